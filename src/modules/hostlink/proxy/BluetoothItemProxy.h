#pragma once

#include <string>

#include "modules/hostlink/proxy/ValueProxy.h"

class CMPath;
class CMValueItem;
class VornBluetoothState;
class VornValue;

/// Whether a Bluetooth device is connected.
enum BluetoothConnectionState : int { BLT_Disconnected = 0, BLT_Connected = 1 };

/// Whether other devices find the module and may pair with it.
enum BluetoothDiscoverableState : int { BLT_Off = 0, BLT_DiscoverablePairable = 1 };

/// The enumerator's name; empty, with an error in the log, for a number without one.
std::string bluetoothConnectionStateToString(BluetoothConnectionState state);
std::string bluetoothDiscoverableStateToString(BluetoothDiscoverableState state);

/// The module's Bluetooth: the host sees whether it is discoverable and connected, makes it discoverable, and
/// dials through the connected telephone. What came of a request shows as a change of the states.
class BluetoothItemProxy : public ValueProxy
{
    Q_OBJECT
public:
    explicit BluetoothItemProxy(QObject* parent);

    /// Answers unsigned byte 1 when the value was read, also for a discoverable byte that asks for nothing; 0
    /// otherwise, and for the connection, which is read only.
    void setValue(State state, const HostLinkValueMessage& request, int index,
                  HostLinkValueMessage* reply) override;

    /// The discoverable or the connection state as an unsigned byte; nothing for any other state.
    void getValue(State state, HostLinkValueMessage* reply) override;
    QList<State> states() const override;

    static BluetoothConnectionState getBluetoothConnectionState(const VornBluetoothState& state);
    static BluetoothDiscoverableState getBluetoothDiscoverableState(const VornBluetoothState& state);

private slots:
    void on_bluetoothStateItem_changed(const VornValue& value, const VornValue& previous);

private:
    static bool dial(const HostLinkValueMessage& request, int index);
    static bool setDiscoverable(const HostLinkValueMessage& request, int index);

    CMValueItem* m_bluetoothStateItem;
};
