// From worker_create to the fourth of the messages with which a module announces itself, in the host's hand.
// The host is another thread and waits on the line already; the plug-in is loaded. A process measures one
// start.
//
// usage: start_bench

#include <QCoreApplication>
#include <future>
#include <thread>

#include "LinkedHost.h"
#include "Processes.h"
#include "platform/hostlink/HostLinkTransportLayer.h"
#include "platform/sdk/MetaTypes.h"
#include "runtime/EmulatedLine.h"
#include "runtime/Logging.h"
#include "runtime/PluginLoader.h"
#include "services/Profile.h"
#include "services/ProfileNodes.h"

namespace
{

constexpr int kAnnouncement = 4;

Clock::time_point receiveAnnouncement(const std::string& link)
{
    Host host(lineOn(link, false));
    ByteArray message;
    for (int messages = 0; messages < kAnnouncement;) {
        const Host::Event event = host.receive(&message, host.now() + std::chrono::seconds(5));
        if (event == Host::Event::TimedOut) {
            throw std::runtime_error("the module did not announce itself");
        }
        messages += event == Host::Event::Message ? 1 : 0;
    }
    return Clock::now();
}

void measure()
{
    const BenchDirectory directory;
    const std::string link = directory / "link";
    int argc = 0;
    QCoreApplication application(argc, nullptr);
    setUpLogging("off");
    registerSdkMetaTypes();
    ProfileNodes nodes(Profile::standard());
    nodes.createBeforeWorker();
    PluginLoader plugin;
    QString error;
    HostLinkPhysicalLayer::Properties properties;
    properties.setString(HostLinkPhysicalLayer::Device, link);
    properties.setInt(HostLinkPhysicalLayer::Listen, 1);
    std::unique_ptr<HostLinkPhysicalLayer> line = openEmulatedLine("unix", properties, &error);
    if (!line || !plugin.load(HOSTLINK_PLUGIN, &error)) {
        throw std::runtime_error(error.toStdString());
    }
    HostLinkPhysicalLayer::registerType(
        "i2c", [&line](const HostLinkPhysicalLayer::Properties&) { return std::move(line); });

    std::future<Clock::time_point> announced = std::async(std::launch::async, receiveAnnouncement, link);
    usleep(50'000); // the host has connected and waits
    const auto begin = Clock::now();
    const std::unique_ptr<CMNodesWorker> worker = plugin.createWorker({}, &error);
    const auto created = Clock::now();
    const auto end = announced.get();
    report("created_ms", 1e3 * std::chrono::duration<double>(created - begin).count());
    report("announced_ms", 1e3 * std::chrono::duration<double>(end - begin).count());
    HostLinkTransportLayer::stopAll();
}

} // namespace

int main()
{
    return runBench(measure);
}
