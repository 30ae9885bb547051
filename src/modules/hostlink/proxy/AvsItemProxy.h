#pragma once

#include "modules/hostlink/proxy/ValueProxy.h"

class CMValueItem;
class VornValue;

/// What the module's voice assistant does, a byte each: its service, its activity, Do Not Disturb, a ringing
/// alert, a waiting notification, the Bluetooth devices that it sees and its call. The host cannot write
/// them.
class AvsItemProxy : public ValueProxy
{
    Q_OBJECT
public:
    explicit AvsItemProxy(QObject* parent);

    /// An unsigned byte for each of the seven states, nothing for any other. A number that the host has no
    /// byte for is 0, and an error in the log.
    void getValue(State state, HostLinkValueMessage* reply) override;

    /// The service status alone: the others are answered and told of, but not owned.
    QList<State> states() const override;

private slots:
    void on_avsStateItem_changed(const VornValue& value);
    void on_assistantStateItem_changed(const VornValue& value);
    void on_dndItem_changed(const VornValue& value);
    void on_alertRingingStateItem_changed(const VornValue& value);
    void on_notificationQueuedItem_changed(const VornValue& value);
    void on_connectedBluetoothDevicesItem_changed(const VornValue& value, const VornValue& previous);
    void on_callStateItem_changed(const VornValue& value);

private:
    CMValueItem* m_avsStateItem;
    CMValueItem* m_assistantStateItem;
    CMValueItem* m_dndItem;
    CMValueItem* m_alertRingingStateItem;
    CMValueItem* m_notificationQueuedItem;
    CMValueItem* m_connectedBluetoothDevicesItem;
    CMValueItem* m_callStateItem;
};
