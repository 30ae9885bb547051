#include "services/Bluetooth.h"

#include <log4cplus/loggingmacros.h>

#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMSetDataRequest.h"
#include "platform/sdk/Paths.h"
#include "platform/sdk/VornBluetooth.h"
#include "platform/sdk/VornJson.h"

static log4cplus::Logger bluetoothLogger = log4cplus::Logger::getInstance("Services.Bluetooth");

namespace
{
constexpr int kMostNames = 64; ///< that request discoverability at a time
constexpr int kLongestName = 256;

using Request = VornBluetoothDiscoverableRequest;

QString objectionToState(const VornValue& value)
{
    return VornField::read<VornBluetoothState>(value.value(VornValue::BluetoothState()))
               ? QString()
               : R"(takes {"bluetoothState":{"connected":true}}, not )" + value.toJsonString();
}

/// The request's name; fails the request where it has none that can be taken.
QString nameOf(const CMSetDataRequest& request, const CMPath& path)
{
    const Request wanted = VornHash(request.data().toHash());
    if (wanted.name().isEmpty()) {
        request.fail({CMError::Refused, path.toString() + R"(: takes {"name":"who requests it"}, not )"
                                            + wanted.toJsonString()});
        return {};
    }
    if (wanted.name().size() > kLongestName) {
        request.fail({CMError::Refused,
                      path.toString() + QString(": a name has at most %1 characters").arg(kLongestName)});
        return {};
    }
    return wanted.name();
}
} // namespace

Bluetooth::Bluetooth(std::chrono::milliseconds defaultTimeout)
    : CMNodesWorker({}, "Bluetooth"), m_state(CMValueNode::create(nodes(), VornBluetoothStatePath()))
{
    m_state->setValue(VornValue().setBluetoothState(
        VornBluetoothState().setConnected(false).setDiscoverable(false).setPairable(false)));
    m_state->setCheck(objectionToState);
    CMActivateNode::create(nodes(), VornBluetoothRequestDiscoverablePath(), this,
                           &Bluetooth::on_requestDiscoverable_activated);
    CMActivateNode::create(nodes(), VornBluetoothRevokeDiscoverablePath(), this,
                           &Bluetooth::on_revokeDiscoverable_activated);
    CMActivateNode::create(nodes(), VornBluetoothDialCallPath(), this, &Bluetooth::on_dialCall_activated);
    m_timer.setSingleShot(true);
    m_timer.setInterval(defaultTimeout);
    connect(&m_timer, &QTimer::timeout, this, &Bluetooth::on_timeout);
}

void Bluetooth::on_requestDiscoverable_activated(const CMSetDataRequest& request)
{
    const QString name = nameOf(request, VornBluetoothRequestDiscoverablePath());
    if (name.isEmpty()) {
        return;
    }
    if ((m_timed | m_lasting | QSet<QString>{name}).size() > kMostNames) {
        request.fail(
            {CMError::Refused, VornBluetoothRequestDiscoverablePath().toString()
                                   + QString(": at most %1 may request it at a time").arg(kMostNames)});
        return;
    }
    if (Request(VornHash(request.data().toHash())).useDefaultTimeout()) {
        m_timed.insert(name);
        m_timer.start();
    } else {
        m_lasting.insert(name);
    }
    showDiscoverable();
    request.complete({});
}

void Bluetooth::on_revokeDiscoverable_activated(const CMSetDataRequest& request)
{
    const QString name = nameOf(request, VornBluetoothRevokeDiscoverablePath());
    if (name.isEmpty()) {
        return;
    }
    m_lasting.remove(name);
    m_timed.remove(name);
    showDiscoverable();
    request.complete({});
}

void Bluetooth::on_dialCall_activated(const CMSetDataRequest& request)
{
    const VornValue number = VornHash(request.data().toHash());
    const QString path = VornBluetoothDialCallPath().toString();
    if (number.type() != VornValue::Type::String || number.string().isEmpty()) {
        request.fail(
            {CMError::Refused, path + R"(: takes {"string_":"+495551234"}, not )" + number.toJsonString()});
    } else if (!m_state->value().bluetoothState().connected()) {
        request.fail({CMError::Refused, path + ": no device is connected"});
    } else {
        LOG4CPLUS_INFO(bluetoothLogger, "dialling " << number.string().toStdString());
        request.complete({});
    }
}

void Bluetooth::on_timeout()
{
    m_timed.clear();
    showDiscoverable();
}

void Bluetooth::showDiscoverable()
{
    const bool discoverable = !m_lasting.isEmpty() || !m_timed.isEmpty();
    VornBluetoothState state = m_state->value().bluetoothState();
    state.setDiscoverable(discoverable).setPairable(discoverable);
    m_state->setValue(VornValue().setBluetoothState(state));
}
