#include <algorithm>
#include <map>
#include <set>

#include "support/LinkLogCapture.h"
#include "support/ServedNodes.h"
#include "support/SimulatedLink.h"
#include "support/WorkerFixture.h"

namespace
{

using namespace std::chrono_literals;

/// A value of a state that was sent or seen.
struct Event {
    State state;
    std::string value;

    friend bool operator==(const Event& a, const Event& b)
    {
        return a.state == b.state && a.value == b.value;
    }
};

constexpr std::uint64_t kSerialLine = 3840; ///< bytes a second at 38400 bit/s

constexpr auto kStateClass = std::size_t(MessageClass::State);
const std::size_t kQueueBytes = HostLinkCore::Settings{}.queueBytes[kStateClass];
const std::size_t kWindowBytes = HostLinkCore::Settings{}.creditBytes[kStateClass];

using Names = std::vector<std::string>;
using Values = std::map<State, std::string>;

std::vector<Event> eventsOf(const ByteArray& bytes)
{
    std::vector<Event> events;
    const HostLinkValueMessage message(bytes);
    for (int i = 0; i < message.size(); ++i) {
        events.push_back({State(message.getTag(i)), valueText(message, i)});
    }
    return events;
}

/// The worker's transport, but with its end of a simulated link instead of a device and a thread.
class SimulatedTransport : public HostLinkTransportLayer
{
public:
    explicit SimulatedTransport(SimulatedLink& link)
        : HostLinkTransportLayer(memoryLayerPair().first), m_link(link)
    {
        HostLinkTransportLayer::stop(); // the window of messages is the simulation's to open
    }

    int send(const ByteArray& message) override
    {
        const bool taken = m_link.a->send(message, m_link.now);
        if (taken) {
            m_taken[m_link.a->sessionNumber()].push_back(message);
        }
        return taken ? 1 : 0;
    }

    /// What was taken, by the number of the session.
    std::map<std::uint64_t, std::vector<ByteArray>> m_taken;

private:
    SimulatedLink& m_link;
};

/// The real worker and the nodes of all states that it serves, joined with a host by both real cores of a
/// link, on simulated time and by a line that is slower than the changes. The host has subscribed to all.
class BusyLinkTest : public ::testing::TestWithParam<std::uint32_t>
{
protected:
    BusyLinkTest()
    {
        std::cout << "HOSTLINK_TEST_SEED=" << seed() << '\n';
        registerSdkMetaTypes();
        HostLinkPhysicalLayer::registerType(
            "i2c", [](const HostLinkPhysicalLayer::Properties&) { return memoryLayerPair().first; });
        m_worker = std::make_unique<OpenWorker>(QVariantHash());
        m_worker->m_transport = &m_transport;
        createNodes();
        m_link.a.handles = false; // the worker does
    }

    ~BusyLinkTest() override { HostLinkTransportLayer::stopAll(); }

    static std::uint32_t seed() { return GetParam(); }

    void createNodes()
    {
        for (const ServedNode& node : m_nodes) {
            if (!node.isCommand() && !CMRoot()->getValue(node.path()).isValid()) {
                CMValueNode::create(&m_tree, node.path())->setValue(node.randomValue(m_random));
            }
        }
    }

    /// Brings up the line and subscribes the host to all states.
    void connect(const SimulatedLink::Faults& line)
    {
        m_link.lineUp();
        ASSERT_TRUE(m_link.runUntil([&] { return isConnected(); }, 5s));
        m_session = m_link.b->sessionNumber();
        ASSERT_TRUE(subscribeToAll());
        ASSERT_TRUE(letRunUntil([&] { return m_seen.size() == m_served.size(); }, 60s));
        m_link.setFaults(line);
        m_events.clear();
    }

    static SimulatedLink::Faults slowLine(std::uint64_t bytesPerSecond)
    {
        SimulatedLink::Faults line;
        line.bytesPerSecond = bytesPerSecond;
        return line;
    }

    bool isConnected() const
    {
        return m_link.a.core->session() == HostLinkCore::Session::Established
               && m_link.b.core->session() == HostLinkCore::Session::Established;
    }

    bool subscribeToAll()
    {
        HostLinkUInt16Message request(MSG_Subscribe);
        for (const State state : m_served) {
            request.addValue(state);
        }
        return m_link.b->send(request.serialize(), m_link.now);
    }

    /// Lets time pass at both ends.
    void letRun(HostLinkDuration duration)
    {
        m_link.run(duration);
        handleRequests();
        see();
        if (m_subscribesAnew && m_link.b->sessionNumber() != m_session && subscribeToAll()) {
            m_session = m_link.b->sessionNumber();
        }
    }

    bool letRunUntil(const std::function<bool()>& done, HostLinkDuration limit)
    {
        const HostLinkTime end = m_link.now + limit;
        while (!done() && m_link.now < end) {
            letRun(1ms);
        }
        return done();
    }

    /// The host handles all that it has received.
    void handleReceived()
    {
        for (const auto& [session, messages] : std::exchange(m_received, {})) {
            for (std::size_t i = 0; i < messages.size(); ++i) {
                m_link.b->handled();
            }
        }
    }

    std::size_t receivedBytes() const
    {
        std::size_t bytes = 0;
        for (const auto& [session, messages] : m_received) {
            for (const ByteArray& message : messages) {
                bytes += message.size();
            }
        }
        return bytes;
    }

    /// What came to the worker.
    void handleRequests()
    {
        for (const ByteArray& message : std::exchange(m_link.a.received, {})) {
            m_worker->on_message_received(
                QByteArray(reinterpret_cast<const char*>(message.data()), int(message.size())));
            m_link.a->handled();
        }
    }

    /// What came to the host.
    void see()
    {
        for (std::size_t i = 0; i < m_link.b.received.size(); ++i) {
            const ByteArray& message = m_link.b.received[i];
            m_received[m_link.b.receivedIn[i]].push_back(message);
            const MessageId id = HostLinkMessage::messageId(message);
            if (id == MSG_StateChanged) {
                seeEvents(eventsOf(message));
            } else if (id == MSG_GetStateResponse) {
                m_answer = eventsOf(message);
            }
        }
        m_link.b.received.clear();
        m_link.b.receivedIn.clear();
    }

    void seeEvents(const std::vector<Event>& events)
    {
        for (const Event& event : events) {
            m_seen[event.state] = event.value;
            if (std::count(m_unchanged.begin(), m_unchanged.end(), event.state) == 0) {
                m_events.push_back(event);
            }
        }
    }

    /// Changes one node at random, and keeps what its states show then.
    void changeOne()
    {
        const ServedNode& node = m_nodes[m_random() % m_nodes.size()];
        const VornValue before = VornHash(CMRoot()->getValue(node.path()).toHash());
        VornValue value = node.randomValue(m_random);
        while (!node.isCommand() && value.sameAs(before)) {
            value = node.randomValue(m_random);
        }
        const CMVoidReply reply;
        if (node.isCommand()) {
            CMRoot()->invoke(node.path(), value, reply);
        } else {
            CMRoot()->setValue(node.path(), value, reply);
        }
        ASSERT_TRUE(reply.wait());
        ASSERT_FALSE(reply.error().isError()) << reply.error().Message().toStdString();
        for (const State state : node.states()) {
            m_changes.push_back({state, node.shown(state, value)});
        }
    }

    /// A thousand changes a second.
    void change(int count)
    {
        for (int i = 0; i < count; ++i) {
            changeOne();
            letRun(1ms);
            m_mostQueued = std::max(m_mostQueued, queued());
        }
    }

    std::size_t queued() const { return m_link.a.core->queuedBytes(MessageClass::State); }

    /// What the proxies say, asked by the host at the end of everything.
    Values askForAll()
    {
        HostLinkUInt16Message request(MSG_GetState);
        for (const State state : m_served) {
            request.addValue(state);
        }
        EXPECT_TRUE(m_link.b->send(request.serialize(), m_link.now));
        EXPECT_TRUE(letRunUntil([&] { return !m_answer.empty(); }, 60s));
        Values values;
        for (const Event& event : m_answer) {
            values[event.state] = event.value;
        }
        EXPECT_EQ(values.size(), m_answer.size());
        return values;
    }

    /// What the nodes hold.
    Values held() const
    {
        Values values;
        for (const ServedNode& node : m_nodes) {
            for (const State state : node.states()) {
                if (!node.isCommand()) {
                    values[state] = node.shown(state, VornHash(CMRoot()->getValue(node.path()).toHash()));
                }
            }
        }
        return values;
    }

    /// The host's value of each state is the newest: as the nodes hold it and as the proxies tell it.
    void expectHostIsUpToDate()
    {
        ASSERT_TRUE(letRunUntil([&] { return m_session == m_link.b->sessionNumber(); }, 60s));
        const Values proxies = askForAll();
        EXPECT_EQ(differences(proxies), Names());
        EXPECT_EQ(differences(held()), Names());
    }

    /// The states of which the host has another value. A command is handed over once: no proxy knows it any
    /// more, and it may go with a session.
    Names differences(const Values& expected) const
    {
        Names names;
        for (const auto& [state, value] : expected) {
            if (!isCommandState(state) && m_seen.at(state) != value) {
                names.push_back(HostLinkPrinter::printHostLinkState(state));
            }
        }
        return names;
    }

    void expectEachChangeOnceInOrder()
    {
        EXPECT_EQ(m_events.size(), m_changes.size());
        EXPECT_TRUE(m_events == m_changes);
        std::set<State> states;
        for (const Event& change : m_changes) {
            states.insert(change.state);
        }
        EXPECT_EQ(states.size() + m_unchanged.size(), m_served.size());
        EXPECT_EQ(m_link.a->counters().messagesRefused, 0U);
        EXPECT_EQ(m_link.a->counters().messagesDiscarded, 0U);
        EXPECT_EQ(m_link.b->sessionNumber(), 1U);
        EXPECT_LT(m_mostQueued, kQueueBytes);
    }

    static bool isCommandState(State state)
    {
        return findProxy(state)->proxy == ProxyClass::HostCommandProxy;
    }

    std::mt19937 m_random{seed()};
    const std::vector<ServedNode> m_nodes = ServedNode::all();
    const std::vector<State> m_unchanged = ServedNode::statesWithout();
    LogCapture m_log{log4cplus::WARN_LOG_LEVEL};
    LinkLogCapture m_linkLog;
    CMNodes m_tree;
    SimulatedLink m_link{{}, seed()};
    SimulatedTransport m_transport{m_link};
    std::unique_ptr<OpenWorker> m_worker;
    const std::vector<State> m_served = servedStates();

    std::uint64_t m_session = 0;                                ///< in which the host has subscribed
    bool m_subscribesAnew = true;                               ///< the host does so in each session
    std::vector<Event> m_changes;                               ///< all, in order
    std::map<std::uint64_t, std::vector<ByteArray>> m_received; ///< by the number of the session
    std::vector<Event> m_events; ///< of the others, that the host got, in order
    Values m_seen;               ///< the latest of each
    std::vector<Event> m_answer; ///< to the host's last request
    std::size_t m_mostQueued = 0;
};

TEST_P(BusyLinkTest, EveryChangeArrivesInOrderThroughALineSlowerThanTheChanges)
{
    connect(slowLine(kSerialLine));
    change(5000);
    EXPECT_GT(queued(), 32 * 1024U) << "the line is busy";
    EXPECT_LT(m_events.size(), m_changes.size() / 2);

    expectHostIsUpToDate();
    expectEachChangeOnceInOrder();
}

TEST_P(BusyLinkTest, EveryChangeArrivesInOrderThroughALineThatAlsoDamagesAndCutsThem)
{
    SimulatedLink::Faults line = slowLine(2 * kSerialLine);
    line.drop = line.flip = line.duplicate = line.insert = 0.0002;
    line.burst = 40;
    line.split = line.merge = 0.1;
    line.cuts.interval = 3s;
    connect(line);
    change(5000);
    EXPECT_GT(queued(), 32 * 1024U) << "the line is busy";

    expectHostIsUpToDate();
    expectEachChangeOnceInOrder();
    EXPECT_GT(m_link.b->counters().framesDamaged, 0U);
    EXPECT_GT(m_link.b->counters().greetings, 1U) << "the line was cut";
}

/// A full queue ends the session: a host never misses a change without being told.
TEST_P(BusyLinkTest, AHostThatIsTooSlowForEverSeesNewSessionsAndNoGapWithinOne)
{
    connect(slowLine(kSerialLine / 4));
    while (m_link.b->sessionNumber() < 4 && m_changes.size() < 200'000) {
        change(1000);
    }
    EXPECT_GE(m_link.b->sessionNumber(), 4U);
    EXPECT_LE(m_mostQueued, kQueueBytes);
    EXPECT_GT(m_mostQueued, kQueueBytes - 1024) << "all of the queue is used";

    expectHostIsUpToDate();
    const std::uint64_t sessions = m_link.b->sessionNumber();
    EXPECT_EQ(m_link.a->sessionNumber(), sessions);
    EXPECT_EQ(m_linkLog.count("the queue of state messages is full"), sessions - 1) << "said once for each";
    for (std::uint64_t session = 1; session <= sessions; ++session) {
        const std::vector<ByteArray>& taken = m_transport.m_taken[session];
        const std::vector<ByteArray>& received = m_received[session];
        ASSERT_GT(received.size(), m_served.size()) << session;
        ASSERT_LE(received.size(), taken.size()) << session;
        EXPECT_TRUE(std::equal(received.begin(), received.end(), taken.begin())) << session;
        EXPECT_EQ(received.size() == taken.size(), session == sessions) << session;
    }
}

TEST_P(BusyLinkTest, AHostThatHandlesNothingForLongIsUpToDateOnceItDoes)
{
    connect(slowLine(kSerialLine * 8));
    m_received.clear();
    m_link.b.handles = false;
    while (m_link.b->sessionNumber() < 3 && m_changes.size() < 200'000) {
        change(1000);
    }
    EXPECT_EQ(m_link.b->sessionNumber(), 3U);
    EXPECT_LE(m_mostQueued, kQueueBytes);
    EXPECT_LE(receivedBytes(), kWindowBytes);
    EXPECT_FALSE(subscribeToAll()) << "a host whose messages of former sessions wait says nothing";

    handleReceived();
    m_link.b.handles = true;
    expectHostIsUpToDate();
}

/// The host's subscriptions live in the worker, so events go on by themselves; what was lost does not.
TEST_P(BusyLinkTest, AfterALostSessionTheHostHasOldValuesUntilItSubscribesAnew)
{
    connect(slowLine(kSerialLine / 4));
    m_subscribesAnew = false;
    while (m_link.a->sessionNumber() < 2 && m_changes.size() < 200'000) {
        change(1);
    }
    letRun(1s);
    EXPECT_GT(differences(held()).size(), m_served.size() / 2);

    m_events.clear();
    m_changes.clear();
    change(100);
    letRun(5s);
    EXPECT_TRUE(m_events == m_changes) << "still subscribed";
    m_subscribesAnew = true;
    expectHostIsUpToDate();
}

INSTANTIATE_TEST_SUITE_P(Seeds, BusyLinkTest, ::testing::Range(testSeed(), testSeed() + 2));

} // namespace
