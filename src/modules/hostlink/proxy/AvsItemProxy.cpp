#include "modules/hostlink/proxy/AvsItemProxy.h"

#include <iterator>

#include "modules/hostlink/CheckedConnect.h"
#include "modules/hostlink/Log.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMItem.h"
#include "platform/sdk/Paths.h"
#include "platform/sdk/VornValue.h"

namespace
{
constexpr int kAssistantStates = 6;
constexpr int kCallStates = 5;

std::string text(VornAvsStatus::Enum status)
{
    return VornAvsStatus::toString(status).toStdString();
}

std::string text(VornAvsAssistantState::Enum state)
{
    return VornAvsAssistantState::toString(state).toStdString();
}

std::string text(VornAvsCallState::Enum state)
{
    return VornAvsCallState::toString(state).toStdString();
}

/// The host's byte for a service status: for it, 3 and 4 have changed places.
std::uint8_t avsState(VornAvsStatus::Enum status)
{
    constexpr std::uint8_t bytes[] = {0, 1, 2, 4, 3};
    if (status < 0 || status >= int(std::size(bytes))) {
        LOG4CPLUS_ERROR(hostLinkLogger,
                        "AvsItemProxy: unknown conversion from '" << text(status) << "' to AVS state");
        return 0;
    }
    return bytes[status];
}

std::uint8_t assistantState(VornAvsAssistantState::Enum state)
{
    if (state < 0 || state >= kAssistantStates) {
        LOG4CPLUS_ERROR(hostLinkLogger, "AvsItemProxy: unknown conversion from '"
                                            << text(state) << "' to AVS assistant state");
        return 0;
    }
    return static_cast<std::uint8_t>(state);
}

std::uint8_t callState(VornAvsCallState::Enum state)
{
    if (state < 0 || state >= kCallStates) {
        LOG4CPLUS_ERROR(hostLinkLogger,
                        "AvsItemProxy: unknown conversion from '" << text(state) << "' to AVS call state");
        return 0;
    }
    return static_cast<std::uint8_t>(state);
}

int deviceCount(const VornValue& value)
{
    return value.alexaConnectedBluetoothDevices().names().size();
}
} // namespace

AvsItemProxy::AvsItemProxy(QObject* parent)
    : ValueProxy(parent), m_avsStateItem(new CMValueItem(this, VornAlexaVoiceServiceStatusPath())),
      m_assistantStateItem(new CMValueItem(this, VornAlexaAssistantStatePath())),
      m_dndItem(new CMValueItem(this, VornAlexaDoNotDisturbPath())),
      m_alertRingingStateItem(new CMValueItem(this, VornAlexaAlertRingingPath())),
      m_notificationQueuedItem(new CMValueItem(this, VornAlexaNotificationQueuedPath())),
      m_connectedBluetoothDevicesItem(new CMValueItem(this, VornAlexaConnectedBluetoothDevicesPath())),
      m_callStateItem(new CMValueItem(this, VornAlexaCallStatePath()))
{
    connectChecked(m_avsStateItem, &CMValueItem::changed, this, &AvsItemProxy::on_avsStateItem_changed);
    connectChecked(m_assistantStateItem, &CMValueItem::changed, this,
                   &AvsItemProxy::on_assistantStateItem_changed);
    connectChecked(m_dndItem, &CMValueItem::changed, this, &AvsItemProxy::on_dndItem_changed);
    connectChecked(m_alertRingingStateItem, &CMValueItem::changed, this,
                   &AvsItemProxy::on_alertRingingStateItem_changed);
    connectChecked(m_notificationQueuedItem, &CMValueItem::changed, this,
                   &AvsItemProxy::on_notificationQueuedItem_changed);
    connectChecked(m_connectedBluetoothDevicesItem, &CMValueItem::changed, this,
                   &AvsItemProxy::on_connectedBluetoothDevicesItem_changed);
    connectChecked(m_callStateItem, &CMValueItem::changed, this, &AvsItemProxy::on_callStateItem_changed);
}

void AvsItemProxy::getValue(State state, HostLinkValueMessage* reply)
{
    switch (state) {
    case STA_AvsState:
        reply->addValueUint8(state, avsState(m_avsStateItem->value().alexaVoiceServiceStatus()));
        break;
    case STA_AvsAssistantState:
        reply->addValueUint8(state, assistantState(m_assistantStateItem->value().alexaAssistantState()));
        break;
    case STA_AvsDoNotDisturb: reply->addValueUint8(state, m_dndItem->value().bool_()); break;
    case STA_AvsAlertRinging: reply->addValueUint8(state, m_alertRingingStateItem->value().bool_()); break;
    case STA_AvsNotificationQueued:
        reply->addValueUint8(state, m_notificationQueuedItem->value().bool_());
        break;
    case STA_AvsBluetoothDeviceCount:
        reply->addValueUint8(
            state, static_cast<std::uint8_t>(deviceCount(m_connectedBluetoothDevicesItem->value())));
        break;
    case STA_AvsCallState:
        reply->addValueUint8(state, callState(m_callStateItem->value().alexaCallState()));
        break;
    default: break;
    }
}

QList<State> AvsItemProxy::states() const
{
    return {STA_AvsState};
}

void AvsItemProxy::on_avsStateItem_changed(const VornValue& value)
{
    LOG4CPLUS_INFO(hostLinkLogger,
                   "Changing avs state to '" << text(value.alexaVoiceServiceStatus()) << "'.");
    emit valueChanged({STA_AvsState});
}

void AvsItemProxy::on_assistantStateItem_changed(const VornValue& value)
{
    LOG4CPLUS_INFO(hostLinkLogger,
                   "Changing Alexa assistant state to '" << text(value.alexaAssistantState()) << "'.");
    emit valueChanged({STA_AvsAssistantState});
}

void AvsItemProxy::on_dndItem_changed(const VornValue& value)
{
    LOG4CPLUS_INFO(hostLinkLogger, "Changing Alexa Do Not Disturb state to '" << value.bool_() << "'.");
    emit valueChanged({STA_AvsDoNotDisturb});
}

void AvsItemProxy::on_alertRingingStateItem_changed(const VornValue& value)
{
    LOG4CPLUS_INFO(hostLinkLogger, "Changing Alexa alert ringing state to '" << value.bool_() << "'.");
    emit valueChanged({STA_AvsAlertRinging});
}

void AvsItemProxy::on_notificationQueuedItem_changed(const VornValue& value)
{
    LOG4CPLUS_INFO(hostLinkLogger, "Changing Alexa Notification Queued state to '" << value.bool_() << "'.");
    emit valueChanged({STA_AvsNotificationQueued});
}

void AvsItemProxy::on_connectedBluetoothDevicesItem_changed(const VornValue& value, const VornValue& previous)
{
    const int now = deviceCount(value);
    const int before = deviceCount(previous);
    if (now == before) {
        LOG4CPLUS_INFO(hostLinkLogger, "Number of connected BT devices didn't change!");
        return;
    }
    LOG4CPLUS_INFO(hostLinkLogger, "Number of connected BT devices: " << before << " -> " << now);
    emit valueChanged({STA_AvsBluetoothDeviceCount});
}

void AvsItemProxy::on_callStateItem_changed(const VornValue& value)
{
    LOG4CPLUS_INFO(hostLinkLogger, "Changing Alexa call state to '" << text(value.alexaCallState()) << "'.");
    emit valueChanged({STA_AvsCallState});
}
