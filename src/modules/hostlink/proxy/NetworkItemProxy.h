#pragma once

#include <string>

#include "modules/hostlink/proxy/ValueProxy.h"

class CMValueItem;
class VornNetworkInfo;
class VornValue;

/// How the module is connected, as the host sees it.
enum NetworkState : int { NETW_NotConnected = 0, NETW_Connected = 1, NETW_Connecting = 2, NETW_Error = 3 };

/// The kind of link in use.
enum NetworkType : int { CONT_Unknown = 0, CONT_Ethernet = 1, CONT_WiFi = 2, CONT_SoftAP = 3 };

/// The enumerator's name; empty, with an error in the log, for a number without one.
std::string networkStateEnumToString(NetworkState state);
std::string connectionTypeEnumToString(NetworkType type);

/// How the module is connected to the network, in two bytes. The host cannot write them.
class NetworkItemProxy : public ValueProxy
{
    Q_OBJECT
public:
    explicit NetworkItemProxy(QObject* parent);

    /// The network state or the connection type as an unsigned byte; nothing for any other state.
    void getValue(State state, HostLinkValueMessage* reply) override;
    QList<State> states() const override;

    NetworkState getNetworkState() const { return m_networkState; }

    /// The first connected interface of Ethernet, Wi-Fi and the own access point.
    static NetworkType connectionTypeToEnum(const VornNetworkInfo& info);

private slots:
    void on_networkInfoItem_changed(const VornValue& value, const VornValue& previous);

private:
    void follow(const VornNetworkInfo& info);

    bool m_wasConnected = false; ///< at any time so far: what comes before counts as connecting
    CMValueItem* m_networkInfoItem;
    NetworkState m_networkState = NETW_NotConnected;
};
