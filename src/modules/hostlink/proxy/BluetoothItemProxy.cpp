#include "modules/hostlink/proxy/BluetoothItemProxy.h"

#include "modules/hostlink/CheckedConnect.h"
#include "modules/hostlink/Log.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMItem.h"
#include "platform/sdk/CMWorker.h"
#include "platform/sdk/Paths.h"

namespace
{
void invokeUnawaited(const CMPath& path, const VornHash& data)
{
    CMRoot()->invoke(path, data, CMVoidReply(new CMReplyData<QVariant>));
}
} // namespace

std::string bluetoothConnectionStateToString(BluetoothConnectionState state)
{
    switch (state) {
    case BLT_Disconnected: return "BLT_Disconnected";
    case BLT_Connected: return "BLT_Connected";
    }
    LOG4CPLUS_ERROR(hostLinkLogger, "Unknown conversion from '" << static_cast<int>(state)
                                                                << "' to bluetooth connection state string.");
    return {};
}

std::string bluetoothDiscoverableStateToString(BluetoothDiscoverableState state)
{
    switch (state) {
    case BLT_Off: return "BLT_Off";
    case BLT_DiscoverablePairable: return "BLT_DiscoverablePairable";
    }
    LOG4CPLUS_ERROR(hostLinkLogger, "Unknown conversion from '" << static_cast<int>(
                                        state) << "' to buetooth discoverable state string.");
    return {};
}

BluetoothItemProxy::BluetoothItemProxy(QObject* parent)
    : ValueProxy(parent), m_bluetoothStateItem(new CMValueItem(this, VornBluetoothStatePath()))
{
    connectChecked(m_bluetoothStateItem, &CMValueItem::changed, this,
                   &BluetoothItemProxy::on_bluetoothStateItem_changed);
}

BluetoothConnectionState BluetoothItemProxy::getBluetoothConnectionState(const VornBluetoothState& state)
{
    return state.connected() ? BLT_Connected : BLT_Disconnected;
}

BluetoothDiscoverableState BluetoothItemProxy::getBluetoothDiscoverableState(const VornBluetoothState& state)
{
    return state.discoverable() && state.pairable() ? BLT_DiscoverablePairable : BLT_Off;
}

void BluetoothItemProxy::setValue(State state, const HostLinkValueMessage& request, int index,
                                  HostLinkValueMessage* reply)
{
    bool accepted = false;
    if (state == STA_BluetoothOutgoingCall) {
        accepted = dial(request, index);
    } else if (state == STA_BluetoothDiscoverable) {
        accepted = setDiscoverable(request, index);
    }
    reply->addValueUint8(state, accepted ? 1 : 0);
}

bool BluetoothItemProxy::dial(const HostLinkValueMessage& request, int index)
{
    bool ok = false;
    const std::string number = request.getString(index, &ok);
    if (!ok) {
        return false;
    }
    LOG4CPLUS_INFO(hostLinkLogger, "BluetoothOutgoingCall: " << number);
    invokeUnawaited(VornBluetoothDialCallPath(), VornValue().setString_(QString::fromStdString(number)));
    return true;
}

bool BluetoothItemProxy::setDiscoverable(const HostLinkValueMessage& request, int index)
{
    bool ok = false;
    const auto wanted = static_cast<BluetoothDiscoverableState>(request.getUint8(index, &ok));
    if (!ok) {
        return false;
    }
    const std::string text = bluetoothDiscoverableStateToString(wanted); // may log a line of its own
    LOG4CPLUS_INFO(hostLinkLogger, "Set: " << text);
    VornBluetoothDiscoverableRequest discoverable;
    discoverable.setName(VornHostLinkName()).setUseDefaultTimeout(true);
    if (wanted == BLT_Off) {
        invokeUnawaited(VornBluetoothRevokeDiscoverablePath(), discoverable);
    } else if (wanted == BLT_DiscoverablePairable) {
        invokeUnawaited(VornBluetoothRequestDiscoverablePath(), discoverable);
    }
    return true;
}

void BluetoothItemProxy::getValue(State state, HostLinkValueMessage* reply)
{
    HOSTLINK_TRACE_FUNCTION_WITH(state);
    const VornBluetoothState bluetooth = m_bluetoothStateItem->value().bluetoothState();
    if (state == STA_BluetoothConnection) {
        reply->addValueUint8(state, static_cast<std::uint8_t>(getBluetoothConnectionState(bluetooth)));
    } else if (state == STA_BluetoothDiscoverable) {
        reply->addValueUint8(state, static_cast<std::uint8_t>(getBluetoothDiscoverableState(bluetooth)));
    }
}

QList<State> BluetoothItemProxy::states() const
{
    return {STA_BluetoothDiscoverable, STA_BluetoothConnection, STA_BluetoothOutgoingCall};
}

/// Tells of every change, also of one that is none to the host.
void BluetoothItemProxy::on_bluetoothStateItem_changed(const VornValue& value, const VornValue& previous)
{
    HOSTLINK_TRACE_FUNCTION_WITH(value.toJsonString().toStdString());
    const VornBluetoothState now = value.bluetoothState();
    const VornBluetoothState before = previous.bluetoothState();
    QList<State> changed;
    if (getBluetoothDiscoverableState(now) != getBluetoothDiscoverableState(before)) {
        changed.append(STA_BluetoothDiscoverable);
    }
    if (getBluetoothConnectionState(now) != getBluetoothConnectionState(before)) {
        changed.append(STA_BluetoothConnection);
    }
    emit valueChanged(changed);
}
