#include "platform/sdk/CMSetDataRequest.h"
#include "support/WorkerFixture.h"

namespace
{

using Texts = std::vector<std::string>;

/// What the module asks of the worker through its nodes.
class ServiceRequestsTest : public WorkerFixture
{
protected:
    /// Invokes a node; it has been answered, with an empty value, on return.
    static void invoke(const CMPath& path, const VornHash& data = {})
    {
        const CMVoidReply reply;
        CMRoot()->invoke(path, data, reply);
        ASSERT_TRUE(waitFor([&] { return reply.isFinished(); }));
        EXPECT_FALSE(reply.error().isError()) << reply.error().Message().toStdString();
        EXPECT_FALSE(reply.value().isValid());
    }

    static void sendChannel(const VornHash& data)
    {
        invoke(VornHostLinkSendDiracStimuliOutputChannelIndexPath(), data);
    }

    void subscribeToHaloBrightness()
    {
        EXPECT_EQ(ask(numbers(MSG_Subscribe, {790})), "MSG_SubscribeResponse STA_HaloBrightness");
        EXPECT_EQ(receive(), "MSG_StateChanged STA_HaloBrightness=u8:0");
    }

    static std::string valueAt(const CMPath& path)
    {
        return VornHash(CMRoot()->getValue(path).toHash()).toJsonString().toStdString();
    }
};

TEST_F(ServiceRequestsTest, TheHostIsToldOfAnUpgradeThatIsAvailable)
{
    m_log.clear();
    invoke(VornHostLinkSendSoftwareUpgradeAvailablePath());
    EXPECT_EQ(receive(), "MSG_SetState STA_SomUpgradeStatus=u8:0");
    EXPECT_TRUE(nothingSent());
    const std::string function =
        "void CMHostLinkWorker::on_tarkoSendSoftwareUpgradeAvailable_invoked(const CMSetDataRequest&)";
    const Texts traces = m_log.traces();
    ASSERT_GE(traces.size(), 2U);
    EXPECT_EQ(traces[0], "Enter " + function);
    EXPECT_EQ(traces[1], "Leave " + function);
}

TEST_F(ServiceRequestsTest, TheUpgradeUnderWayHasANodeToo)
{
    EXPECT_TRUE(CMNodes::list().contains(VornHostLinkSendSoftwareUpgradeInProgressPath().toString()));
}

TEST_F(ServiceRequestsTest, TheChannelIsSentAsTheLowByteOfItsNumber)
{
    subscribeToHaloBrightness();
    sendChannel(VornValue().setI32(258));
    EXPECT_EQ(receive(), "MSG_StateChanged STA_HaloBrightness=u8:2");
    sendChannel(VornValue().setI32(-1));
    EXPECT_EQ(receive(), "MSG_StateChanged STA_HaloBrightness=u8:255");
    EXPECT_TRUE(nothingSent());
}

TEST_F(ServiceRequestsTest, TheHaloBrightnessIsStillReadUnderTheChannelsId)
{
    createNode(VornKestalPrimeHaloBrightnessPath(), VornValue().setI32(7));
    ask(numbers(MSG_Subscribe, {790}));
    receive();
    sendChannel(VornValue().setI32(3));
    EXPECT_EQ(receive(), "MSG_StateChanged STA_HaloBrightness=u8:3");
    EXPECT_EQ(ask(numbers(MSG_GetState, {790})), "MSG_GetStateResponse STA_HaloBrightness=u8:7");
}

TEST_F(ServiceRequestsTest, AChannelIsAnsweredButNotSentToAHostThatHasNotSubscribed)
{
    sendChannel(VornValue().setI32(3));
    EXPECT_TRUE(nothingSent());
}

TEST_F(ServiceRequestsTest, ARequestWithoutAChannelIsAnsweredAndSendsNothing)
{
    subscribeToHaloBrightness();
    sendChannel({});
    sendChannel(VornValue().setI64(3));
    EXPECT_TRUE(nothingSent());
}

TEST_F(ServiceRequestsTest, ARequestWithoutDataSendsNothing)
{
    subscribeToHaloBrightness();
    const CMVoidReply reply;
    m_log.clear();
    m_worker->on_tarkoSendDiracStimuliOutputChannelIndex_invoked(CMSetDataRequest(QVariant(), reply));
    EXPECT_TRUE(reply.isFinished());
    EXPECT_TRUE(nothingSent());
}

TEST_F(ServiceRequestsTest, TracesWhetherAChannelRequestHasData)
{
    m_log.clear();
    m_worker->on_tarkoSendDiracStimuliOutputChannelIndex_invoked(CMSetDataRequest());
    const VornValue channel = VornValue().setI32(3);
    m_worker->on_tarkoSendDiracStimuliOutputChannelIndex_invoked(
        CMSetDataRequest(QVariant(static_cast<const QVariantHash&>(channel)), {}));
    const std::string function =
        "void CMHostLinkWorker::on_tarkoSendDiracStimuliOutputChannelIndex_invoked(const CMSetDataRequest&)";
    EXPECT_EQ(m_log.traces(), (Texts{"Enter " + function + ": 0", "Leave " + function,
                                     "Enter " + function + ": 1", "Leave " + function}));
}

TEST_F(ServiceRequestsTest, TwoRequestsForAFactoryResetAreTwoInvocations)
{
    int resets = 0;
    CMActivateNode::create(
        &m_nodes, VornSystemManagerFactoryResetPath(), &m_nodes, [&](const CMSetDataRequest&) { ++resets; },
        Qt::QueuedConnection);
    HostLinkValueMessage request(MSG_SetState);
    request.addValueUint8(STA_TarkoFactoryReset, 1);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(ask(request), "MSG_SetStateResponse STA_TarkoFactoryReset=u8:1");
    }
    EXPECT_EQ(resets, 0);
    EXPECT_TRUE(waitFor([&] { return resets == 2; }));
}

TEST_F(ServiceRequestsTest, AFactoryResetThatNobodyServesIsNotReported)
{
    m_log.clear();
    m_worker->on_tarkoFactoryReset();
    EXPECT_TRUE(nothingSent());
    ASSERT_EQ(m_log.infos(), Texts{"!!! Triggering Factory Reset !!!"});
    EXPECT_TRUE(m_log.errors().empty());
    EXPECT_TRUE(m_log.texts(log4cplus::WARN_LOG_LEVEL).empty());
}

TEST_F(ServiceRequestsTest, NodesThatTheHostFillsLaterHaveFirstValues)
{
    EXPECT_EQ(valueAt(VornHostLinkHeadphonesConnectedPath()), R"({"bool_":false})");
    EXPECT_EQ(valueAt(VornHostLinkAudioBalancePath()), R"({"i32_":0})");
    EXPECT_EQ(valueAt(VornHostLinkKestalPrimeBtConnectionStatePath()), R"({"i32_":0})");
    EXPECT_EQ(valueAt(VornHostLinkKestalPrimeBtFirmwareVersion()), R"({"string_":""})");
}

TEST_F(ServiceRequestsTest, TheHostFillsTheNodesOfItsBluetoothChip)
{
    EXPECT_EQ(ask(numbers(MSG_GetState, {STA_BtConnectionState, STA_BtFirmwareVersion})),
              "MSG_GetStateResponse STA_BtConnectionState=u8:0 STA_BtFirmwareVersion=str:\"\"");
    HostLinkValueMessage request(MSG_SetState);
    request.addValueUint8(STA_BtConnectionState, 2);
    request.addValueString(STA_BtFirmwareVersion, "1.9.0");
    EXPECT_EQ(ask(request), "MSG_SetStateResponse STA_BtConnectionState=u8:1 STA_BtFirmwareVersion=u8:1");
    EXPECT_EQ(ask(numbers(MSG_GetState, {STA_BtConnectionState, STA_BtFirmwareVersion})),
              "MSG_GetStateResponse STA_BtConnectionState=u8:2 STA_BtFirmwareVersion=str:\"1.9.0\"");
}

} // namespace
