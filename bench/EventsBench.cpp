// Changes of nodes' values that reach a subscribed host as events, as many a second as there can be. The
// module, in a process and on a core of its own, changes the values without a pause but for what the link's
// queue asks: while that is more than half full nothing changes. `raw` is a plain loop that writes as many
// bytes for each event.
//
// usage: events_bench raw|own [EVENTS [CLIENT_CORE [SERVER_CORE [STATES]]]]     STATES change in turn

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTimer>

#include "ChangingNodes.h"
#include "LinkedHost.h"
#include "Trips.h"
#include "modules/hostlink/HostLinkWorker.h"
#include "platform/hostlink/HostLinkTransportLayer.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/MetaTypes.h"
#include "runtime/Logging.h"

namespace
{

constexpr std::size_t kEventBytes = 18; ///< on the line: id, tag, encoding, value, and the frame around it
constexpr std::size_t kHalfQueue = 128 * 1024;
constexpr std::size_t kChangesAtOnce = 64;

/// The worker on its nodes. It begins with the changes when there is something to read from `go`.
class Module
{
public:
    Module(const std::string& link, const std::vector<State>& states, int turns, int go)
        : m_turnsAtOnce(1 + int((kChangesAtOnce - 1) / states.size())), m_turns(turns),
          m_go(go, QSocketNotifier::Read)
    {
        registerSdkMetaTypes();
        HostLinkPhysicalLayer::registerType(
            "i2c", [link](const HostLinkPhysicalLayer::Properties&) { return lineOn(link, true); });
        m_nodes = std::make_unique<ChangingNodes>(states);
        m_worker = std::make_unique<CMHostLinkWorker>(QVariantHash());
        QObject::connect(&m_go, &QSocketNotifier::activated, [this] {
            m_go.setEnabled(false);
            m_timer.start(0);
        });
        QObject::connect(&m_timer, &QTimer::timeout, [this] { changeSome(); });
    }

private:
    /// Comes back after the event loop has done what was posted.
    void changeSome()
    {
        if (HostLinkTransportLayer::live().front().counters.stateQueued > kHalfQueue) {
            usleep(20);
            return;
        }
        for (int i = 0; i < m_turnsAtOnce && m_done < m_turns; ++i) {
            m_nodes->change(++m_done);
        }
        if (m_done == m_turns) {
            m_timer.stop();
        }
    }

    const int m_turnsAtOnce;
    const int m_turns;
    int m_done = 0;
    QSocketNotifier m_go;
    QTimer m_timer;
    std::unique_ptr<ChangingNodes> m_nodes;
    std::unique_ptr<CMHostLinkWorker> m_worker;
};

void measureRaw(const TripArguments& arguments)
{
    int ends[2];
    openPair(ends);
    const int end = ends[0];
    const Server server(arguments.serverCore, [&] {
        char event[kEventBytes] = {};
        if (read(ends[1], event, 1) != 1) {
            return;
        }
        for (int i = 0; i < arguments.requests && write(ends[1], event, sizeof event) > 0; ++i) {
        }
        pause();
    });
    reportEvents(arguments.requests, [&] {
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

void measureOwn(const TripArguments& arguments)
{
    const BenchDirectory directory;
    const std::string link = directory / "link";
    const std::vector<State> states = someStates(std::size_t(std::max(1, arguments.states)));
    const auto told = int(std::count_if(states.begin(), states.end(), [](State state) {
        return std::find(std::begin(kNeverTold), std::end(kNeverTold), state) == std::end(kNeverTold);
    }));
    const int turns = (arguments.requests + told - 1) / told;
    int ends[2];
    openPair(ends);
    const Server server(arguments.serverCore, [&] {
        int argc = 0;
        QCoreApplication application(argc, nullptr);
        setUpLogging("off");
        const Module module(link, states, turns, ends[1]);
        QCoreApplication::exec();
    });

    LinkedHost linked(link);
    linked.session.open();
    linked.session.request(messageAbout(MSG_Subscribe, states), HostSession::Repeat::Never);

    ByteArray message;
    const auto nextEvents = [&] {
        do {
            if (linked.host.receive(&message, linked.host.now() + std::chrono::seconds(10))
                != Host::Event::Message) {
                throw std::runtime_error("events were lost");
            }
        } while (HostLinkMessage::messageId(message) != MSG_StateChanged);
        return HostLinkValueMessage(message).size();
    };
    nextEvents(); // the values at the time of the subscription
    int left = turns * told;
    reportEvents(left, [&] {
        if (write(ends[0], "", 1) != 1) {
            throw std::runtime_error("the module went away");
        }
        while (left > 0) {
            left -= nextEvents();
        }
    });
    const bool isLast = left == 0 && (told > 1 || HostLinkValueMessage(message).getInt32(0) == turns);
    if (!isLast) {
        throw std::runtime_error("the last event is not that of the last change");
    }
    report("states", double(states.size()));
    report("states_told", told);
}

} // namespace

int main(int argc, char** argv)
{
    return runTrips(argc, argv, [](const TripArguments& arguments) {
        arguments.subject == "raw" ? measureRaw(arguments) : measureOwn(arguments);
    });
}
