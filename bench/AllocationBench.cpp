// Heap allocations of the module for each get of ten states and for each event, all threads and libraries
// counted. The link's own are those of a transport that answers as many bytes from its observer; the worker's
// are the rest. The host is a process of its own.
//
// usage: allocation_bench [REQUESTS]

#include <QCoreApplication>
#include <QEventLoop>
#include <QSocketNotifier>
#include <functional>

#include "AllocationCount.h"
#include "LinkedHost.h"
#include "Processes.h"
#include "modules/hostlink/HostLinkWorker.h"
#include "platform/hostlink/HostLinkTransportLayer.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMNode.h"
#include "platform/sdk/MetaTypes.h"
#include "platform/sdk/Paths.h"
#include "runtime/Logging.h"

namespace
{

/// A host in a process of its own that makes as many requests as it is told to.
class RequestingHost
{
public:
    explicit RequestingHost(const std::string& link)
    {
        openPair(m_ends);
        m_server = std::make_unique<Server>(-1, [this, link] { serve(link); });
    }

    void begin(int requests) { put(m_ends[0], &requests, sizeof requests); }

    /// Becomes readable when they have all been answered.
    int end() const { return m_ends[0]; }

    void finish()
    {
        char done;
        if (read(m_ends[0], &done, 1) != 1) {
            throw std::runtime_error("the host went away");
        }
    }

private:
    static void put(int end, const void* bytes, std::size_t size)
    {
        if (write(end, bytes, size) != ssize_t(size)) {
            throw std::runtime_error("the other process went away");
        }
    }

    void serve(const std::string& link)
    {
        LinkedHost linked(link);
        HostSession& session = linked.session;
        session.open();
        session.request(messageAbout(MSG_Subscribe, std::array{STA_DiracActiveFilter}),
                        HostSession::Repeat::Never);
        const ByteArray get = messageAbout(MSG_GetState, kTenStates);
        for (int requests = 0; read(m_ends[1], &requests, sizeof requests) == sizeof requests;) {
            for (int i = 0; i < requests; ++i) {
                session.request(get, HostSession::Repeat::Never);
            }
            ByteArray message; // events are taken while there is nothing to ask
            while (requests == 0
                   && linked.host.receive(&message, linked.host.now() + std::chrono::milliseconds(200))
                          == Host::Event::Message) {
            }
            put(m_ends[1], "", 1);
        }
    }

    int m_ends[2];
    std::unique_ptr<Server> m_server;
};

/// Allocations of this process for each request, while `wait` lets time pass until the host has its answers.
double allocationsPerRequest(RequestingHost& host, int requests, const std::function<void()>& wait)
{
    const auto make = [&](int count) {
        const std::uint64_t before = allocations;
        host.begin(count);
        wait();
        host.finish();
        return allocations - before;
    };
    make(requests);
    const std::uint64_t some = make(requests);
    const std::uint64_t more = make(2 * requests);
    return (double(more) - double(some)) / requests; // what a run costs whatever its length is left out
}

ByteArray tenValues()
{
    HostLinkValueMessage reply(MSG_GetStateResponse);
    for (int i = 0; i < 6; ++i) {
        reply.addValueUint8(kTenStates[i], 1);
    }
    reply.addValueUint32(kTenStates[6], 1);
    reply.addValueInt32(kTenStates[7], 1);
    reply.addValueInt64(kTenStates[8], 1);
    reply.addValueString(kTenStates[9], "twenty bytes of name");
    return reply.serialize();
}

/// What the link alone takes, on a thread that does nothing else.
double linkAllocations(int requests)
{
    const BenchDirectory directory;
    const std::string link = directory / "link";
    RequestingHost host(link);
    HostLinkTransportLayer transport(lineOn(link, true));
    const ByteArray reply = tenValues();
    const ByteArray emptyReply = HostLinkValueMessage(MSG_GetStateResponse).serialize();
    const ByteArray subscribed = HostLinkUInt16Message(MSG_SubscribeResponse).serialize();
    transport.addMessageReceivedObserver([&](const ByteArray& request) {
        const bool isGet = HostLinkMessage::messageId(request) == MSG_GetState;
        transport.send(!isGet ? subscribed : request.size() > 2 ? reply : emptyReply);
        transport.messageHandled();
    });
    transport.start();
    return allocationsPerRequest(host, requests, [] {});
}

class ModuleNodes
{
public:
    ModuleNodes()
    {
        add(VornPlayerMutePath(), VornValue().setBool(true));
        add(VornPlayerMicMutePath(), VornValue().setBool(false));
        add(VornUIDisplayBrightnessPath(), VornValue().setI32(7));
        add(VornKestalPrimeMqaStatePath(), VornValue().setI32(1));
        add(VornKestalPrimeMaxAmpVolumePath(), VornValue().setI32(80));
        add(VornKestalPrimeVolumeModePath(), VornValue().setI32(2));
        add(VornKestalPrimeIpAddressPath(), VornValue().setI32(19216801));
        add(VornPlayLogicPlayTimePath(), VornValue().setI64(123456789012));
        add(VornDeviceNamePath(), VornValue().setString("twenty bytes of name"));
        filter = add(VornTarkoDiracActiveFilterPath(), VornValue().setI32(-3));
    }

    CMValueNode* filter; ///< the one that changes

private:
    CMValueNode* add(const CMPath& path, const VornValue& value)
    {
        CMValueNode* node = CMValueNode::create(&m_nodes, path);
        node->setValue(value);
        return node;
    }

    CMNodes m_nodes;
};

/// Allocations of one change of a node that the host has subscribed; its values were made before.
double eventAllocations(CMValueNode* node, int events)
{
    std::vector<VornValue> values;
    for (int i = 0; i < events; ++i) {
        values.push_back(VornValue().setI32(i));
    }
    const std::uint64_t before = allocations;
    for (const VornValue& value : values) {
        node->setValue(value);
        while (HostLinkTransportLayer::live().front().counters.stateQueued > 0) {
            usleep(10);
        }
    }
    const std::uint64_t all = allocations - before;
    const std::uint64_t looksBefore = allocations;
    for (int i = 0; i < events; ++i) {
        HostLinkTransportLayer::live();
    }
    return (double(all) - double(allocations - looksBefore)) / events;
}

void measureWorker(int requests, double link)
{
    const BenchDirectory directory;
    const std::string line = directory / "link";
    RequestingHost host(line);
    int argc = 0;
    QCoreApplication application(argc, nullptr);
    setUpLogging("off");
    registerSdkMetaTypes();
    HostLinkPhysicalLayer::registerType(
        "i2c", [&](const HostLinkPhysicalLayer::Properties&) { return lineOn(line, true); });
    const ModuleNodes nodes;
    const CMHostLinkWorker worker((QVariantHash()));
    QEventLoop loop;
    const QSocketNotifier done(host.end(), QSocketNotifier::Read);
    QObject::connect(&done, &QSocketNotifier::activated, &loop, &QEventLoop::quit);
    const double all = allocationsPerRequest(host, requests, [&] { loop.exec(); });
    report("get_worker", all - link);
    host.begin(0);
    report("event", eventAllocations(nodes.filter, requests));
    HostLinkTransportLayer::stopAll();
}

} // namespace

int main(int argc, char** argv)
{
    return runBench([&] {
        const int requests = argc > 1 ? std::atoi(argv[1]) : 2000;
        const double link = linkAllocations(requests);
        report("get_link", link);
        measureWorker(requests, link);
    });
}
