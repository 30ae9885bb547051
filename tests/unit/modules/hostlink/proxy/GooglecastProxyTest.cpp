#include "modules/hostlink/proxy/GooglecastProxy.h"

#include "support/ProxyFixture.h"

namespace
{
VornValue castAssistant(int state)
{
    return VornValue().setGoogleCastAssistantState(VornGoogleCastAssistantState::Enum(state));
}

VornValue multichannel(int status)
{
    return VornValue().setGoogleCastMultichannelStatus(VornGoogleCastMultichannelStatus::Enum(status));
}

class GooglecastProxyTest : public ProxyFixture
{
protected:
    GooglecastProxyTest() { listenTo(m_proxy); }

    CMValueNode* m_assistant = createNode(VornGoogleCastAssistantStatePath(), castAssistant(0));
    CMValueNode* m_selection = createNode(VornGoogleCastChannelSelectionPath(), VornValue().setBool_(false));
    CMValueNode* m_status = createNode(VornGoogleCastMultichannelStatusPath(), multichannel(0));
    GooglecastProxy m_proxy{nullptr};
};
} // namespace

TEST_F(GooglecastProxyTest, OwnsThreeStates)
{
    EXPECT_EQ(m_proxy.states(),
              (QList<State>{STA_CastAssistantState, STA_CastChannelSelection, STA_CastMultichannelStatus}));
}

TEST_F(GooglecastProxyTest, ReadsEachNodeAsAByte)
{
    m_assistant->setValue(castAssistant(3));
    m_selection->setValue(VornValue().setBool_(true));
    m_status->setValue(multichannel(0x102));
    EXPECT_EQ(read(m_proxy, {33, 46, 47}),
              "MSG_GetStateResponse STA_CastAssistantState=u8:3 STA_CastChannelSelection=u8:1 "
              "STA_CastMultichannelStatus=u8:2");
}

TEST_F(GooglecastProxyTest, OtherStatesHaveNoValue)
{
    EXPECT_EQ(read(m_proxy, {34, 45, 48}), "MSG_GetStateResponse");
}

TEST_F(GooglecastProxyTest, EveryChangeIsTold)
{
    m_selection->setValue(VornValue().setBool_(true));
    m_selection->setValue(VornValue().setBool_(false));
    EXPECT_EQ(told(), (States{{STA_CastChannelSelection}, {STA_CastChannelSelection}}));
    m_assistant->setValue(castAssistant(256));
    EXPECT_EQ(told(), States{{STA_CastAssistantState}}) << "although the host's byte stays 0";
    m_status->setValue(multichannel(1));
    EXPECT_EQ(told(), States{{STA_CastMultichannelStatus}});
}

TEST_F(GooglecastProxyTest, CannotBeWritten)
{
    HostLinkValueMessage request(MSG_SetState);
    request.addValueUint8(STA_CastChannelSelection, 1);
    EXPECT_EQ(write(m_proxy, request), "MSG_SetStateResponse STA_CastChannelSelection=u8:0");
}

TEST_F(GooglecastProxyTest, TracesEachChange)
{
    m_log.clear();
    m_selection->setValue(VornValue().setBool_(true));
    EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL,
                          "Enter void GooglecastProxy::on_channelSelection_changed(const VornValue&): "
                          "{\"bool_\":true}"),
              1U);
}
