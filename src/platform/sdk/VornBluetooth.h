#pragma once

#include "platform/sdk/VornField.h"

/// What the module's Bluetooth does.
class VornBluetoothState : public VornHash
{
    VORN_RECORD(VornBluetoothState)
public:
    VORN_FIELD(bool, connected, setConnected, Connected)
    VORN_FIELD(bool, discoverable, setDiscoverable, Discoverable)
    VORN_FIELD(bool, pairable, setPairable, Pairable)
};

/// A request that the module become, or cease to be, discoverable. It stays so while any name requests it.
class VornBluetoothDiscoverableRequest : public VornHash
{
    VORN_RECORD(VornBluetoothDiscoverableRequest)
public:
    VORN_FIELD(QString, name, setName, Name) ///< who requests it
    VORN_FIELD(bool, useDefaultTimeout, setUseDefaultTimeout, UseDefaultTimeout)
};

/// Bluetooth devices by their names.
class VornBluetoothDevices : public VornHash
{
    VORN_RECORD(VornBluetoothDevices)
public:
    VORN_FIELD(QStringList, names, setNames, Names)
};

/// The name under which the host link requests something.
inline QString VornHostLinkName()
{
    return QStringLiteral("hostLink");
}
