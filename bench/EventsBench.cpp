// Changes of a node's value that reach a subscribed host as events, one message each, as many a second as
// there can be. The module, in a process and on a core of its own, changes the value without a pause but for
// what the link's queue asks: while that is more than half full nothing changes. `raw` is a plain loop that
// writes as many bytes for each event.
//
// usage: events_bench raw|own [EVENTS [CLIENT_CORE [SERVER_CORE [STATES]]]]     STATES change in turn

#include <sys/socket.h>

#include <QCoreApplication>
#include <QSocketNotifier>
#include <cstring>

#include "Trips.h"
#include "host/Host.h"
#include "host/HostSession.h"
#include "modules/hostlink/HostLinkWorker.h"
#include "platform/hostlink/HostLinkTransportLayer.h"
#include "platform/hostlink/HostLinkUInt16Message.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMNode.h"
#include "platform/sdk/MetaTypes.h"
#include "runtime/Logging.h"
#include "vocabulary/Proxies.h"

namespace
{

constexpr std::size_t kEventBytes = 18; ///< on the line: id, tag, encoding, value, and the frame around it
constexpr std::size_t kHalfQueue = 128 * 1024;
constexpr int kChangesAtOnce = 64;

/// Rows of states that show a node which only this program has, each another one.
std::vector<const ProxyRow*> rowsToChange(std::size_t count)
{
    std::vector<const ProxyRow*> rows{
        &*std::find_if(kProxies.begin(), kProxies.end(), [](const ProxyRow& row) {
            return row.convert == CMValueItemProxyConvert::Int32VornI32;
        })};
    for (const ProxyRow& row : kProxies) {
        const auto sameNode = [&](const ProxyRow* other) { return other->node == row.node; };
        if (rows.size() < count && row.proxy == ProxyClass::ValueItemProxy
            && row.convert != CMValueItemProxyConvert::Uint8InputState
            && CMPath(*row.node).toString().indexOf("/hostLink/") != 0
            && std::none_of(rows.begin(), rows.end(), sameNode)) {
            rows.push_back(&row);
        }
    }
    return rows;
}

/// The node's value in its turn: another one than in the turn before.
VornValue valueInTurn(const ProxyRow& row, int turn)
{
    switch (*row.convert) {
    case CMValueItemProxyConvert::Uint8VornBool: return VornValue().setBool(turn % 2 != 0);
    case CMValueItemProxyConvert::Int64VornI64: return VornValue().setI64(turn);
    case CMValueItemProxyConvert::Bin16VornString:
        return VornValue().setString(turn % 2 != 0 ? "odd" : "even");
    case CMValueItemProxyConvert::Bin16VornValueJson: return VornHash{{"turn", turn}};
    default: return VornValue().setI32(turn);
    }
}

/// The worker on its nodes. It begins with the changes when there is something to read from `go`.
class Module
{
public:
    Module(const std::string& link, const std::vector<const ProxyRow*>& rows, int events, int go)
        : m_rows(rows), m_events(events), m_go(go, QSocketNotifier::Read)
    {
        registerSdkMetaTypes();
        HostLinkPhysicalLayer::Properties properties;
        properties.setString(HostLinkPhysicalLayer::Device, link);
        properties.setInt(HostLinkPhysicalLayer::Listen, 1);
        HostLinkPhysicalLayer::registerType("i2c", [properties](const HostLinkPhysicalLayer::Properties&) {
            return HostLinkPhysicalLayer::create("unix", properties);
        });
        for (const ProxyRow* row : rows) {
            m_values.push_back(CMValueNode::create(&m_nodes, CMPath(*row->node)));
            m_values.back()->setValue(valueInTurn(*row, 0));
        }
        m_worker = std::make_unique<CMHostLinkWorker>(QVariantHash());
        QObject::connect(&m_go, &QSocketNotifier::activated, [this] {
            m_go.setEnabled(false);
            change();
        });
    }

private:
    void change()
    {
        for (int done = 0; done < m_events;) {
            if (HostLinkTransportLayer::live().front().counters.stateQueued > kHalfQueue) {
                usleep(20);
                continue;
            }
            for (int i = 0; i < kChangesAtOnce && done < m_events; ++i, ++done) {
                const std::size_t node = std::size_t(done) % m_rows.size();
                m_values[node]->setValue(valueInTurn(*m_rows[node], 1 + done / int(m_rows.size())));
            }
        }
    }

    const std::vector<const ProxyRow*> m_rows;
    const int m_events;
    QSocketNotifier m_go;
    CMNodes m_nodes;
    std::vector<CMValueNode*> m_values;
    std::unique_ptr<CMHostLinkWorker> m_worker;
};

int openPair(int (&ends)[2])
{
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
        throw std::runtime_error("socketpair failed");
    }
    return ends[0];
}

template <typename Receive>
void reportEvents(int events, const Server& server, Receive receive)
{
    const double busyBefore = processorSeconds(0) + processorSeconds(server.pid());
    const auto begin = Clock::now();
    receive();
    const double seconds = secondsSince(begin);
    const double busy = processorSeconds(0) + processorSeconds(server.pid()) - busyBefore;
    report("events_per_s", events / seconds);
    report("cpu_us", 1e6 * busy / events);
}

void measureRaw(const TripArguments& arguments)
{
    int ends[2];
    const int end = openPair(ends);
    const Server server(arguments.serverCore, [&] {
        char event[kEventBytes] = {};
        if (read(ends[1], event, 1) != 1) {
            return;
        }
        for (int i = 0; i < arguments.requests && write(ends[1], event, sizeof event) > 0; ++i) {
        }
        pause();
    });
    reportEvents(arguments.requests, server, [&] {
        std::vector<char> buffer(64 * 1024);
        std::size_t left = std::size_t(arguments.requests) * kEventBytes;
        ssize_t got = write(end, "", 1);
        for (; left > 0 && got > 0; left -= std::size_t(got)) {
            got = read(end, buffer.data(), buffer.size());
        }
        if (left > 0) {
            throw std::runtime_error("the raw peer went away");
        }
    });
}

void measureOwn(const TripArguments& arguments, std::size_t states)
{
    const BenchDirectory directory;
    const std::string link = directory / "link";
    const std::vector<const ProxyRow*> rows = rowsToChange(states);
    int ends[2];
    const int go = openPair(ends);
    const Server server(arguments.serverCore, [&] {
        int argc = 0;
        QCoreApplication application(argc, nullptr);
        setUpLogging("off");
        const Module module(link, rows, arguments.requests, ends[1]);
        QCoreApplication::exec();
    });

    HostLinkPhysicalLayer::Properties properties;
    properties.setString(HostLinkPhysicalLayer::Device, link);
    Host host(HostLinkPhysicalLayer::create("unix", properties));
    HostSession session(host, std::chrono::seconds(5));
    session.open();
    HostLinkUInt16Message subscription(MSG_Subscribe);
    for (const ProxyRow* row : rows) {
        subscription.addValue(row->states.front());
    }
    session.request(subscription.serialize(), HostSession::Repeat::Never);

    ByteArray message;
    const auto nextEvent = [&] {
        do {
            if (host.receive(&message, host.now() + std::chrono::seconds(10)) != Host::Event::Message) {
                throw std::runtime_error("events were lost");
            }
        } while (HostLinkMessage::messageId(message) != MSG_StateChanged);
    };
    nextEvent(); // the values at the time of the subscription
    reportEvents(arguments.requests, server, [&] {
        if (write(go, "", 1) != 1) {
            throw std::runtime_error("the module went away");
        }
        for (int i = 0; i < arguments.requests; ++i) {
            nextEvent();
        }
    });
    const std::size_t last = std::size_t(arguments.requests - 1) % rows.size();
    const HostLinkValueMessage event(message);
    const bool isLast = event.getTag(0) == rows[last]->states.front()
                        && (rows.size() > 1 || event.getInt32(0) == arguments.requests);
    if (!isLast) {
        throw std::runtime_error("the last event is not that of the last change");
    }
    report("states", double(rows.size()));
}

} // namespace

int main(int argc, char** argv)
try {
    TripArguments arguments(argc - 2, argv + 2);
    arguments.requests = argc > 2 ? arguments.requests : 100000;
    pinTo(arguments.clientCore);
    if (argc > 1 && std::strcmp(argv[1], "raw") == 0) {
        measureRaw(arguments);
    } else {
        measureOwn(arguments, argc > 5 ? std::size_t(std::atoi(argv[5])) : 1);
    }
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "events_bench: %s\n", error.what());
    return 1;
}
