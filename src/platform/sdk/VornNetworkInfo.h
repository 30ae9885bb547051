#pragma once

#include "platform/sdk/VornEnums.h"
#include "platform/sdk/VornField.h"

/// The Ethernet port.
class VornNetworkWiredInterface : public VornHash
{
    VORN_RECORD(VornNetworkWiredInterface)
public:
    VORN_FIELD(VornNetworkState::Enum, state, setState, State)
    VORN_FIELD(bool, cableConnected, setCableConnected, CableConnected)
};

/// The Wi-Fi client.
class VornNetworkWirelessInterface : public VornHash
{
    VORN_RECORD(VornNetworkWirelessInterface)
public:
    VORN_FIELD(VornNetworkState::Enum, state, setState, State)
};

/// The module's own Wi-Fi access point.
class VornNetworkSoftApInterface : public VornHash
{
    VORN_RECORD(VornNetworkSoftApInterface)
public:
    VORN_FIELD(VornNetworkState::Enum, state, setState, State)
};

/// How the module is connected, as a whole and by each interface.
class VornNetworkInfo : public VornHash
{
    VORN_RECORD(VornNetworkInfo)
public:
    VORN_FIELD(VornNetworkState::Enum, state, setState, State)
    VORN_FIELD(VornNetworkWiredInterface, wired, setWired, Wired)
    VORN_FIELD(VornNetworkWirelessInterface, wireless, setWireless, Wireless)
    VORN_FIELD(VornNetworkSoftApInterface, softAp, setSoftAp, SoftAp)
};
