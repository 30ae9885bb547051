#include <algorithm>
#include <map>
#include <set>

#include "host/Host.h"
#include "platform/hostlink/HostLinkMessage.h"
#include "platform/hostlink/HostLinkPrinter.h"
#include "platform/hostlink/HostLinkUInt16Message.h"
#include "runtime/NodeClient.h"
#include "support/ModuleFixture.h"
#include "support/ServedNodes.h"

namespace
{

using namespace std::chrono_literals;
using Names = std::vector<std::string>;
using Values = std::map<State, std::string>;

constexpr auto kBusyPatience = 30s;

/// A line on which only as many bytes arrive as were allowed, whatever the time.
class MeteredLayer : public HostLinkPhysicalLayer
{
public:
    explicit MeteredLayer(std::unique_ptr<HostLinkPhysicalLayer> layer) : m_layer(std::move(layer)) {}

    void allow(std::size_t bytes) { m_left += bytes; }
    void limit() { m_left = 0; }

    void open(HostLinkTime now) override { m_layer->open(now); }
    void close() override { m_layer->close(); }
    void service(HostLinkTime now) override { m_layer->service(now); }
    std::uint64_t lineNumber() const override { return m_layer->lineNumber(); }
    bool refused() const override { return m_layer->refused(); }
    std::size_t unsent() const override { return m_layer->unsent(); }
    HostLinkTime nextService() const override { return m_layer->nextService(); }

    std::size_t read(std::uint8_t* to, std::size_t max, HostLinkTime now) override
    {
        if (m_left == 0) {
            return 0;
        }
        const std::size_t size = m_layer->read(to, std::min(max, m_left), now);
        m_left -= size;
        return size;
    }

    std::size_t write(const std::uint8_t* from, std::size_t size, HostLinkTime now) override
    {
        return m_layer->write(from, size, now);
    }

    void waitOn(std::vector<pollfd>& descriptors, bool writing) const override
    {
        if (m_left > 0 || writing) {
            m_layer->waitOn(descriptors, writing);
        }
    }

private:
    const std::unique_ptr<HostLinkPhysicalLayer> m_layer;
    std::size_t m_left = std::size_t(1) << 40;
};

/// A module in a process of its own whose nodes a client changes, and a host that has subscribed to all
/// states.
class BusyModule : public ModuleFixture
{
protected:
    void SetUp() override
    {
        std::cout << "HOSTLINK_TEST_SEED=" << testSeed() << '\n';
        ModuleFixture::SetUp();
        QString error;
        ASSERT_TRUE(m_client.connect(runtimeFile("api.socket"), kBusyPatience, &error))
            << error.toStdString();
        HostLinkPhysicalLayer::Properties properties;
        properties.setString(HostLinkPhysicalLayer::Device, runtimeFile("link.socket").toStdString());
        auto line = std::make_unique<MeteredLayer>(HostLinkPhysicalLayer::create("unix", properties));
        m_line = line.get();
        m_host = std::make_unique<Host>(std::move(line));
    }

    QString runtimeFile(const std::string& name) const
    {
        return QString::fromStdString(directory() + "/hostlink/" + name);
    }

    ByteArray stateList(MessageId id) const
    {
        HostLinkUInt16Message message(id);
        for (const State state : m_served) {
            message.addValue(state);
        }
        return message.serialize();
    }

    void subscribeToAll()
    {
        ByteArray message;
        ASSERT_EQ(m_host->receive(&message, m_host->now() + kBusyPatience), Host::Event::NewSession);
        ASSERT_TRUE(m_host->send(stateList(MSG_Subscribe)));
        ASSERT_TRUE(receiveUntil([&] { return m_seen.count(m_served.back()) == 1; }, kBusyPatience));
        m_events = 0;
    }

    /// A second session would be a failure: it says that something was lost.
    bool receiveUntil(const std::function<bool()>& done, HostLinkDuration limit)
    {
        const HostLinkTime deadline = m_host->now() + limit;
        while (!done()) {
            ByteArray message;
            const Host::Event event = m_host->receive(&message, deadline);
            if (event != Host::Event::Message) {
                EXPECT_EQ(event, Host::Event::TimedOut);
                return false;
            }
            see(message);
        }
        return true;
    }

    void see(const ByteArray& bytes)
    {
        const MessageId id = HostLinkMessage::messageId(bytes);
        if (id != MSG_StateChanged && id != MSG_GetStateResponse) {
            return;
        }
        const HostLinkValueMessage message(bytes);
        Values& values = id == MSG_StateChanged ? m_seen : m_answer;
        for (int i = 0; i < message.size(); ++i) {
            values[State(message.getTag(i))] = valueText(message, i);
            m_events += id == MSG_StateChanged ? 1 : 0;
        }
    }

    QVariant call(const QString& method, const QVariantHash& params)
    {
        QString error;
        const std::optional<NodeClient::Answer> answer = m_client.call(method, params, kBusyPatience, &error);
        EXPECT_TRUE(answer) << error.toStdString();
        EXPECT_EQ(answer ? answer->error.code : 0, 0) << answer->error.message.toStdString();
        return answer ? answer->result : QVariant();
    }

    VornValue valueAt(const ServedNode& node)
    {
        return VornHash(call("get", {{"path", node.path().toString()}}).toHash());
    }

    /// Changes one node at random.
    void changeOne()
    {
        const ServedNode& node = m_nodes[m_random() % m_nodes.size()];
        const VornValue value = node.randomValue(m_random);
        const QString path = node.path().toString();
        if (node.isCommand()) {
            call("invoke", {{"path", path}, {"data", QVariantHash(value)}});
        } else if (valueAt(node).sameAs(value)) {
            return; // nobody would be told
        } else {
            call("set", {{"path", path}, {"value", QVariantHash(value)}});
        }
        m_changes += node.states().size();
    }

    std::mt19937 m_random{testSeed()};
    const std::vector<ServedNode> m_nodes = ServedNode::all();
    NodeClient m_client;
    std::unique_ptr<Host> m_host;
    MeteredLayer* m_line = nullptr; ///< the host's
    const std::vector<State> m_served = servedStates();
    Values m_seen;             ///< the latest of each state
    Values m_answer;           ///< to the host's request
    std::size_t m_changes = 0; ///< that the client made of states
    std::size_t m_events = 0;  ///< that the host got
};

} // namespace

TEST_F(BusyModule, AfterAThousandChangesASecondTheHostHasTheNewestOfEachState)
{
    constexpr int kChanges = 3000;
    constexpr std::size_t kBytesForEach = 6; // of the 15 and more that an event takes on the line
    subscribeToAll();

    m_line->limit();
    HostLinkTime next = m_host->now();
    for (int i = 0; i < kChanges; ++i) {
        changeOne();
        m_line->allow(kBytesForEach);
        next += 1ms;
        receiveUntil([] { return false; }, next - m_host->now());
    }
    EXPECT_GT(m_events, 0U);
    EXPECT_LT(m_events, m_changes / 2) << "the line was busy";

    m_line->allow(1'000'000'000);
    ASSERT_TRUE(m_host->send(stateList(MSG_GetState)));
    ASSERT_TRUE(receiveUntil([&] { return !m_answer.empty(); }, kBusyPatience));
    EXPECT_EQ(m_answer.size(), m_served.size());
    EXPECT_GE(m_events, m_changes) << "the module's services may have made some too";
    Names different;
    for (const State state : m_served) {
        if (findProxy(state)->proxy != ProxyClass::HostCommandProxy && m_seen[state] != m_answer[state]) {
            different.push_back(HostLinkPrinter::printHostLinkState(state));
        }
    }
    for (const ServedNode& node : m_nodes) {
        for (const State state : node.states()) {
            if (!node.isCommand() && m_seen[state] != node.shown(state, valueAt(node))) {
                different.push_back(node.path().toString().toStdString());
            }
        }
    }
    EXPECT_EQ(different, Names());
}
