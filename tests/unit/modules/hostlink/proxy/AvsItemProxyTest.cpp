#include "modules/hostlink/proxy/AvsItemProxy.h"

#include "support/ProxyFixture.h"

namespace
{
VornValue status(int number)
{
    return VornValue().setAlexaVoiceServiceStatus(VornAvsStatus::Enum(number));
}

VornValue assistant(int number)
{
    return VornValue().setAlexaAssistantState(VornAvsAssistantState::Enum(number));
}

VornValue call(int number)
{
    return VornValue().setAlexaCallState(VornAvsCallState::Enum(number));
}

VornValue devices(const QStringList& names)
{
    return VornValue().setAlexaConnectedBluetoothDevices(VornBluetoothDevices().setNames(names));
}

VornValue flag(bool value)
{
    return VornValue().setBool_(value);
}

class AvsItemProxyTest : public ProxyFixture
{
protected:
    AvsItemProxyTest() { listenTo(m_proxy); }

    std::string byte(State state)
    {
        const std::string answer = read(m_proxy, {state});
        return answer.substr(answer.rfind(':') + 1);
    }

    CMValueNode* m_status = createNode(VornAlexaVoiceServiceStatusPath(), status(0));
    CMValueNode* m_assistant = createNode(VornAlexaAssistantStatePath(), assistant(0));
    CMValueNode* m_dnd = createNode(VornAlexaDoNotDisturbPath(), flag(false));
    CMValueNode* m_alert = createNode(VornAlexaAlertRingingPath(), flag(false));
    CMValueNode* m_notification = createNode(VornAlexaNotificationQueuedPath(), flag(false));
    CMValueNode* m_devices = createNode(VornAlexaConnectedBluetoothDevicesPath(), devices({}));
    CMValueNode* m_call = createNode(VornAlexaCallStatePath(), call(0));
    AvsItemProxy m_proxy{nullptr};
};
} // namespace

TEST_F(AvsItemProxyTest, OwnsTheServiceStatusAlone)
{
    EXPECT_EQ(m_proxy.states(), QList<State>{STA_AvsState});
}

TEST_F(AvsItemProxyTest, ServiceStatusesThreeAndFourChangePlaces)
{
    const char* const bytes[] = {"0", "1", "2", "4", "3"};
    for (int number = 0; number < 5; ++number) {
        m_status->setValue(status(number));
        EXPECT_EQ(byte(STA_AvsState), bytes[number]);
    }
    EXPECT_EQ(m_log.errors(), Texts());
}

TEST_F(AvsItemProxyTest, NumbersBelowTheLimitAreSentAsTheyAre)
{
    for (int number = 0; number < 6; ++number) {
        m_assistant->setValue(assistant(number));
        EXPECT_EQ(byte(STA_AvsAssistantState), std::to_string(number));
    }
    for (int number = 0; number < 5; ++number) {
        m_call->setValue(call(number));
        EXPECT_EQ(byte(STA_AvsCallState), std::to_string(number));
    }
    EXPECT_EQ(m_log.errors(), Texts());
}

TEST_F(AvsItemProxyTest, UnknownNumbersAreZeroAndAnError)
{
    m_status->setValue(status(5));
    m_assistant->setValue(assistant(6));
    m_call->setValue(call(5));
    EXPECT_EQ(byte(STA_AvsState), "0");
    EXPECT_EQ(byte(STA_AvsAssistantState), "0");
    EXPECT_EQ(byte(STA_AvsCallState), "0");
    EXPECT_EQ(m_log.errors(), (Texts{"AvsItemProxy: unknown conversion from '5' to AVS state",
                                     "AvsItemProxy: unknown conversion from '6' to AVS assistant state",
                                     "AvsItemProxy: unknown conversion from '5' to AVS call state"}));
}

TEST_F(AvsItemProxyTest, FlagsAreZeroOrOne)
{
    for (const bool on : {true, false}) {
        m_dnd->setValue(flag(on));
        m_alert->setValue(flag(on));
        m_notification->setValue(flag(on));
        for (const State state : {STA_AvsDoNotDisturb, STA_AvsAlertRinging, STA_AvsNotificationQueued}) {
            EXPECT_EQ(byte(state), on ? "1" : "0");
        }
    }
}

TEST_F(AvsItemProxyTest, DevicesAreCountedInEightBits)
{
    m_devices->setValue(devices({"a", "b"}));
    EXPECT_EQ(byte(STA_AvsBluetoothDeviceCount), "2");
    QStringList many;
    for (int i = 0; i < 258; ++i) {
        many.append(QString::number(i));
    }
    m_devices->setValue(devices(many));
    EXPECT_EQ(byte(STA_AvsBluetoothDeviceCount), "2");
}

TEST_F(AvsItemProxyTest, OtherStatesHaveNoValue)
{
    EXPECT_EQ(read(m_proxy, {46, 47, 38, 0x7777}), "MSG_GetStateResponse");
}

TEST_F(AvsItemProxyTest, EachChangeIsToldAndLogged)
{
    m_status->setValue(status(3));
    m_assistant->setValue(assistant(2));
    m_dnd->setValue(flag(true));
    m_alert->setValue(flag(true));
    m_notification->setValue(flag(true));
    m_call->setValue(call(4));
    EXPECT_EQ(told(), (States{{STA_AvsState},
                              {STA_AvsAssistantState},
                              {STA_AvsDoNotDisturb},
                              {STA_AvsAlertRinging},
                              {STA_AvsNotificationQueued},
                              {STA_AvsCallState}}));
    EXPECT_EQ(
        m_log.infos(),
        (Texts{"Changing avs state to 'Number3'.", "Changing Alexa assistant state to 'Number2'.",
               "Changing Alexa Do Not Disturb state to '1'.", "Changing Alexa alert ringing state to '1'.",
               "Changing Alexa Notification Queued state to '1'.",
               "Changing Alexa call state to 'Number4'."}));
}

TEST_F(AvsItemProxyTest, ListOfAsManyDevicesTellsNothing)
{
    m_devices->setValue(devices({"a", "b"}));
    EXPECT_EQ(told(), States{{STA_AvsBluetoothDeviceCount}});
    m_devices->setValue(devices({"a", "c"}));
    EXPECT_EQ(told(), States());
    m_devices->setValue(devices({}));
    EXPECT_EQ(told(), States{{STA_AvsBluetoothDeviceCount}});
    EXPECT_EQ(m_log.infos(), (Texts{"Number of connected BT devices: 0 -> 2",
                                    "Number of connected BT devices didn't change!",
                                    "Number of connected BT devices: 2 -> 0"}));
}

TEST_F(AvsItemProxyTest, CannotBeWritten)
{
    HostLinkValueMessage request(MSG_SetState);
    request.addValueUint8(STA_AvsState, 1);
    EXPECT_EQ(write(m_proxy, request), "MSG_SetStateResponse STA_AvsState=u8:0");
}
