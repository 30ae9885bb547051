#include "support/LinkLogCapture.h"
#include "support/WorkerFixture.h"

namespace
{

using Texts = std::vector<std::string>;

class SubscriptionsTest : public WorkerFixture
{
protected:
    SubscriptionsTest() { m_mute->setValue(VornValue().setBool(false)); }

    const LinkLogCapture m_linkLog;
    CMValueNode* m_mute = CMValueNode::create(&m_nodes, VornPlayerMutePath());
};

TEST_F(SubscriptionsTest, TheHostGetsTheCurrentValuesAndThenEachChange)
{
    EXPECT_EQ(ask(numbers(MSG_Subscribe, {STA_Mute})), "MSG_SubscribeResponse STA_Mute");
    EXPECT_EQ(receive(), "MSG_StateChanged STA_Mute=u8:0");
    m_mute->setValue(VornValue().setBool(true));
    EXPECT_EQ(receive(), "MSG_StateChanged STA_Mute=u8:1");
    EXPECT_TRUE(nothingSent());
    EXPECT_EQ(m_log.count(log4cplus::DEBUG_LOG_LEVEL, "received subscribe event"), 1U);
}

TEST_F(SubscriptionsTest, AStateListedTwiceIsSubscribedOnceAndReportedTwice)
{
    EXPECT_EQ(ask(numbers(MSG_Subscribe, {STA_Mute, STA_Mute})), "MSG_SubscribeResponse STA_Mute");
    EXPECT_EQ(receive(), "MSG_StateChanged STA_Mute=u8:0 STA_Mute=u8:0");
}

TEST_F(SubscriptionsTest, ARenewedSubscriptionAnswersOnlyWhatIsNewButReportsAll)
{
    ask(numbers(MSG_Subscribe, {STA_Mute}));
    receive();
    EXPECT_EQ(ask(numbers(MSG_Subscribe, {STA_Mute, STA_MicMute})), "MSG_SubscribeResponse STA_MicMute");
    EXPECT_EQ(receive(), "MSG_StateChanged STA_Mute=u8:0 STA_MicMute=u8:0");
    EXPECT_EQ(ask(numbers(MSG_Subscribe, {STA_Mute})), "MSG_SubscribeResponse");
    EXPECT_EQ(receive(), "MSG_StateChanged STA_Mute=u8:0");
}

TEST_F(SubscriptionsTest, AStateWithoutProxyIsSubscribedButNeverReported)
{
    m_log.clear();
    EXPECT_EQ(ask(numbers(MSG_Subscribe, {0x7777})), "MSG_SubscribeResponse 0x7777");
    EXPECT_TRUE(nothingSent());
    EXPECT_EQ(m_log.textsFrom(log4cplus::INFO_LOG_LEVEL), Texts());
    EXPECT_EQ(ask(numbers(MSG_Unsubscribe, {0x7777})), "MSG_UnsubscribeResponse 0x7777");
}

TEST_F(SubscriptionsTest, ASubscriptionToNothingIsAnsweredAndReportsNothing)
{
    EXPECT_EQ(ask(numbers(MSG_Subscribe, {})), "MSG_SubscribeResponse");
    EXPECT_TRUE(nothingSent());
}

TEST_F(SubscriptionsTest, AChangeOfAnUnsubscribedStateSendsNothing)
{
    m_mute->setValue(VornValue().setBool(true));
    EXPECT_TRUE(nothingSent());
}

TEST_F(SubscriptionsTest, UnsubscribingWhatIsNotSubscribedAnswersNothing)
{
    EXPECT_EQ(ask(numbers(MSG_Unsubscribe, {STA_Mute})), "MSG_UnsubscribeResponse");
    EXPECT_EQ(m_log.count(log4cplus::DEBUG_LOG_LEVEL, "received unsubscribe event"), 1U);
    EXPECT_TRUE(nothingSent());
}

TEST_F(SubscriptionsTest, AfterTheLastUnsubscriptionChangesSendNothing)
{
    ask(numbers(MSG_Subscribe, {STA_Mute, STA_MicMute}));
    receive();
    EXPECT_EQ(ask(numbers(MSG_Unsubscribe, {STA_MicMute, STA_Mute, STA_Mute})),
              "MSG_UnsubscribeResponse STA_MicMute STA_Mute");
    m_mute->setValue(VornValue().setBool(true));
    EXPECT_TRUE(nothingSent());
}

TEST_F(SubscriptionsTest, AnEventTooLongForTheLinkComesStateByState)
{
    const std::string name(40000, 'n');
    createNode(VornDeviceNamePath(), VornValue().setString(QString::fromStdString(name)));
    createNode(VornKestalPrimeHostNamePath(), VornValue().setString(QString::fromStdString(name)));
    ask(numbers(MSG_Subscribe, {STA_DeviceName, STA_HostName, STA_Mute}));
    EXPECT_EQ(receive(), "MSG_StateChanged STA_DeviceName=str:\"" + name + '"');
    EXPECT_EQ(receive(), "MSG_StateChanged STA_HostName=str:\"" + name + '"');
    EXPECT_EQ(receive(), "MSG_StateChanged STA_Mute=u8:0");
    EXPECT_TRUE(nothingSent());
    EXPECT_EQ(m_linkLog.lines(),
              Texts{"MSG_StateChanged of 80016 bytes is longer than the link carries, not sent"});
}

TEST_F(SubscriptionsTest, AnEventThatFindsNoRoomStateByStateEndsTheSession)
{
    const std::string name(60000, 'n');
    createNode(VornDeviceNamePath(), VornValue().setString(QString::fromStdString(name)));
    stopHost();
    m_host = std::make_unique<HostEnd>(MemoryLine::makeEnd(m_line, 1), HostEnd::Handling::WhenTold);
    constexpr int kName = STA_DeviceName;
    ask(numbers(MSG_Subscribe, {kName, kName, kName, kName, kName, kName, kName, STA_Mute}));
    EXPECT_TRUE(waitFor([this] { return m_linkLog.count("the queue of state messages is full") == 1; }));
    restartHost();
    EXPECT_TRUE(nothingSent()) << "what was left of it is for nobody";
    m_mute->setValue(VornValue().setBool(true));
    EXPECT_EQ(receive(), "MSG_StateChanged STA_Mute=u8:1");
}

TEST_F(SubscriptionsTest, BothOperationsAlwaysSucceed)
{
    HostLinkUInt16Message reply(MSG_SubscribeResponse);
    EXPECT_TRUE(m_worker->subscribeStateChange(STA_Mute, &reply));
    EXPECT_TRUE(m_worker->subscribeStateChange(STA_Mute, &reply));
    EXPECT_EQ(reply.size(), 1);
    EXPECT_EQ(m_worker->m_subscribedStates, QSet<State>{STA_Mute});
    EXPECT_TRUE(m_worker->unsubscribeStateChange(STA_Mute, &reply));
    EXPECT_TRUE(m_worker->unsubscribeStateChange(STA_Mute, &reply));
    EXPECT_EQ(reply.size(), 2);
    EXPECT_TRUE(m_worker->m_subscribedStates.isEmpty());
}

TEST_F(SubscriptionsTest, ANewNodeAndOneThatGoesAwayAreChangesToo)
{
    ask(numbers(MSG_Subscribe, {STA_MicMute}));
    receive();
    {
        CMNodes nodes;
        CMValueNode::create(&nodes, VornPlayerMicMutePath())->setValue(VornValue().setBool(true));
        EXPECT_EQ(receive(), "MSG_StateChanged STA_MicMute=u8:1");
    }
    EXPECT_EQ(receive(), "MSG_StateChanged STA_MicMute=u8:0");
}

TEST_F(SubscriptionsTest, TheVolumeListedTwiceIsSubscribedOnceAndReportedTwice)
{
    createNode(VornPlayerVolumePath(), VornValue().setI32(30));
    EXPECT_EQ(ask(numbers(MSG_Subscribe, {9, 9})), "MSG_SubscribeResponse STA_Volume");
    EXPECT_EQ(receive(), "MSG_StateChanged STA_Volume=u8:30 STA_Volume=u8:30");
}

TEST_F(SubscriptionsTest, ANewSessionFindsTheSubscriptionsOfTheOneBefore)
{
    ask(numbers(MSG_Subscribe, {STA_Mute}));
    receive();
    restartHost();
    ASSERT_TRUE(nothingSent()) << "neither the announcement nor values by themselves";
    m_mute->setValue(VornValue().setBool(true));
    EXPECT_EQ(receive(), "MSG_StateChanged STA_Mute=u8:1");
    EXPECT_EQ(ask(numbers(MSG_Subscribe, {STA_Mute, STA_MicMute})), "MSG_SubscribeResponse STA_MicMute");
    EXPECT_EQ(receive(), "MSG_StateChanged STA_Mute=u8:1 STA_MicMute=u8:0");
}

TEST_F(SubscriptionsTest, ChangesBetweenTwoSessionsAreNotSentLater)
{
    ask(numbers(MSG_Subscribe, {STA_Mute}));
    receive();
    stopHostAndHearOfIt();
    m_mute->setValue(VornValue().setBool(true));
    restartHost();
    EXPECT_TRUE(nothingSent());
    EXPECT_EQ(ask(numbers(MSG_GetState, {STA_Mute})), "MSG_GetStateResponse STA_Mute=u8:1");
    EXPECT_EQ(m_linkLog.lines(), Texts());
}

TEST_F(SubscriptionsTest, AChangeTracesTheNamesOfItsStates)
{
    m_log.clear();
    m_worker->on_proxy_changed({STA_Mute, State(0x7777), STA_MicMute});
    const Texts expected{
        "Enter void CMHostLinkWorker::on_proxy_changed(const QList<State>&): STA_Mute, 0x7777, STA_MicMute",
        "Leave void CMHostLinkWorker::on_proxy_changed(const QList<State>&)",
    };
    EXPECT_EQ(m_log.traces(), expected);
}

TEST_F(SubscriptionsTest, TheModuleSubscribesAndUnsubscribesAtTheHost)
{
    m_log.clear();
    EXPECT_TRUE(m_worker->configureSubscriptions(true));
    EXPECT_EQ(receive(), "MSG_Subscribe STA_HostMicMute");
    EXPECT_TRUE(m_worker->configureSubscriptions(false));
    EXPECT_EQ(receive(), "MSG_Unsubscribe STA_HostMicMute");
    EXPECT_EQ(m_log.debugs(), (Texts{"Subscribing for 61443", "Unsubscribing from 61443"}));
    m_worker->m_transport->stop();
    EXPECT_FALSE(m_worker->configureSubscriptions(true));
}

} // namespace
