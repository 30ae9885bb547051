#include <algorithm>

#include "support/WorkerFixture.h"
#include "vocabulary/HostNodes.h"

namespace
{

/// The states that the host owns and the module mirrors.
class HostStatesTest : public WorkerFixture
{
protected:
    static std::string valueAt(const CMPath& path)
    {
        return VornHash(CMRoot()->getValue(path).toHash()).toJsonString().toStdString();
    }

    /// The host pushes a message; it has been handled on return.
    void push(const HostLinkValueMessage& event)
    {
        ASSERT_NE(m_host->send(event), 0);
        ASSERT_TRUE(nothingSent());
    }
};

TEST_F(HostStatesTest, EachHasANodeThatIsEmptyAtFirst)
{
    EXPECT_EQ(m_worker->m_hostStateNodes.size(), static_cast<int>(kHostNodes.size()));
    for (const HostNodeRow& row : kHostNodes) {
        EXPECT_TRUE(m_worker->m_hostStateNodes.contains(row.state)) << row.state;
        EXPECT_TRUE(CMRoot()->getValue(CMPath(row.node)).isValid()) << row.state;
        EXPECT_EQ(valueAt(CMPath(row.node)), "{}") << row.state;
    }
}

TEST_F(HostStatesTest, APushAndTheAnswerToAQueryReachTheNodesAlike)
{
    int round = 0;
    for (const MessageId id : {MSG_StateChanged, MSG_GetStateResponse}) {
        const std::string text = "1.0." + std::to_string(++round);
        HostLinkValueMessage event(id);
        event.addValueString(STA_HostFirmwareVersion, text);
        event.addValueUint8(STA_HostMicMute, static_cast<std::uint8_t>(round == 1 ? 2 : 0));
        event.addValueString(STA_HostSystemInfo, "Model " + text);
        push(event);
        EXPECT_EQ(valueAt(VornHostLinkHostFirmwareVersion()), R"({"string_":")" + text + R"("})");
        EXPECT_EQ(valueAt(VornHostlinkMicMutePath()),
                  round == 1 ? R"({"bool_":true})" : R"({"bool_":false})");
        EXPECT_EQ(valueAt(VornHostLinkKestalPrimeHostSystemInfoPath()),
                  R"({"string_":"Model )" + text + R"("})");
    }
    EXPECT_TRUE(m_log.infos().empty());
}

TEST_F(HostStatesTest, ModuleClientsCannotWriteThem)
{
    HostLinkValueMessage event(MSG_StateChanged);
    event.addValueString(STA_HostFirmwareVersion, "2.4");
    push(event);
    const CMVoidReply reply;
    CMRoot()->setValue(VornHostLinkHostFirmwareVersion(), VornValue().setString("mine"), reply);
    ASSERT_TRUE(waitFor([&] { return reply.isFinished(); }));
    EXPECT_TRUE(reply.error().isError());
    EXPECT_EQ(valueAt(VornHostLinkHostFirmwareVersion()), R"({"string_":"2.4"})");
}

TEST_F(HostStatesTest, OthersInTheSameMessageAreTakenAsWell)
{
    HostLinkValueMessage event(MSG_StateChanged);
    event.addValueUint16(STA_HostMicMute, 1);
    event.addValueNil(STA_Mute);
    event.addValueString(STA_HostFirmwareVersion, "3");
    push(event);
    EXPECT_EQ(valueAt(VornHostlinkMicMutePath()), "{}");
    EXPECT_EQ(valueAt(VornHostLinkHostFirmwareVersion()), R"({"string_":"3"})");
    EXPECT_EQ(m_log.infos(), std::vector<std::string>{"Unsupported state 7"});
}

TEST_F(HostStatesTest, TheHostCannotReadThem)
{
    EXPECT_EQ(ask(numbers(MSG_GetState, {STA_HostMicMute, STA_HostFirmwareVersion})),
              "MSG_GetStateResponse STA_HostMicMute=nil STA_HostFirmwareVersion=nil");
}

TEST_F(HostStatesTest, AQueryAsksForEachOfThemOnce)
{
    m_worker->queryHostStates();
    const ByteArray bytes = m_host->receive();
    EXPECT_EQ(HostLinkMessage::messageId(bytes), MSG_GetState);
    const HostLinkUInt16Message query(bytes);
    std::vector<int> asked;
    for (int i = 0; i < query.size(); ++i) {
        asked.push_back(query.get(i));
    }
    std::sort(asked.begin(), asked.end());
    EXPECT_EQ(asked, (std::vector<int>{STA_HostFirmwareVersion, STA_HostMicMute, STA_HostSystemInfo}));
}

} // namespace
