#include "modules/hostlink/proxy/NetworkItemProxy.h"

#include "modules/hostlink/CheckedConnect.h"
#include "modules/hostlink/Log.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMItem.h"
#include "platform/sdk/Paths.h"
#include "platform/sdk/VornValue.h"

std::string networkStateEnumToString(NetworkState state)
{
    switch (state) {
    case NETW_NotConnected: return "NETW_NotConnected";
    case NETW_Connected: return "NETW_Connected";
    case NETW_Connecting: return "NETW_Connecting";
    case NETW_Error: return "NETW_Error";
    }
    LOG4CPLUS_ERROR(hostLinkLogger,
                    "Unknown conversion from '" << static_cast<int>(state) << "' to network state string.");
    return {};
}

std::string connectionTypeEnumToString(NetworkType type)
{
    switch (type) {
    case CONT_Unknown: return "CONT_Unknown";
    case CONT_Ethernet: return "CONT_Ethernet";
    case CONT_WiFi: return "CONT_WiFi";
    case CONT_SoftAP: return "CONT_SoftAP";
    }
    LOG4CPLUS_ERROR(hostLinkLogger,
                    "Unknown conversion from '" << static_cast<int>(type) << "' to connection type string.");
    return {};
}

NetworkItemProxy::NetworkItemProxy(QObject* parent)
    : ValueProxy(parent), m_networkInfoItem(new CMValueItem(this, VornNetworkInfoPath()))
{
    connectChecked(m_networkInfoItem, &CMValueItem::changed, this,
                   &NetworkItemProxy::on_networkInfoItem_changed);
}

void NetworkItemProxy::getValue(State state, HostLinkValueMessage* reply)
{
    HOSTLINK_TRACE_FUNCTION_WITH(state);
    if (state == STA_NetworkState) {
        reply->addValueUint8(state, static_cast<std::uint8_t>(getNetworkState()));
    } else if (state == STA_NetworkConnectionType) {
        const NetworkType type = connectionTypeToEnum(m_networkInfoItem->value().networkInfo());
        reply->addValueUint8(state, static_cast<std::uint8_t>(type));
    }
}

QList<State> NetworkItemProxy::states() const
{
    return {STA_NetworkState, STA_NetworkConnectionType};
}

NetworkType NetworkItemProxy::connectionTypeToEnum(const VornNetworkInfo& info)
{
    LOG4CPLUS_TRACE(hostLinkLogger,
                    "Enter " << __PRETTY_FUNCTION__ << ": state: " << static_cast<int>(info.state()));
    NetworkType type = CONT_Unknown;
    if (info.wired().state() == VornNetworkState::Connected) {
        type = CONT_Ethernet;
    } else if (info.wireless().state() == VornNetworkState::Connected) {
        type = CONT_WiFi;
    } else if (info.softAp().state() == VornNetworkState::Connected) {
        type = CONT_SoftAP;
    }
    LOG4CPLUS_TRACE(hostLinkLogger, "Leave " << __PRETTY_FUNCTION__
                                             << ": ConnectionType: " << connectionTypeEnumToString(type));
    return type;
}

void NetworkItemProxy::on_networkInfoItem_changed(const VornValue& value, const VornValue& previous)
{
    LOG4CPLUS_TRACE(hostLinkLogger,
                    "Enter " << __PRETTY_FUNCTION__ << ": " << value.toJsonString().toStdString());
    const VornNetworkInfo info = value.networkInfo();
    LOG4CPLUS_TRACE(hostLinkLogger, "network state = " << static_cast<int>(info.state())
                                                       << ", cable = " << info.wired().cableConnected());
    const NetworkState before = m_networkState;
    follow(info);
    QList<State> changed;
    if (m_networkState != before) {
        changed.append(STA_NetworkState);
    }
    if (connectionTypeToEnum(info) != connectionTypeToEnum(previous.networkInfo())) {
        changed.append(STA_NetworkConnectionType);
    }
    if (!changed.isEmpty()) {
        emit valueChanged(changed);
    }
    LOG4CPLUS_TRACE(hostLinkLogger, "Leave " << __PRETTY_FUNCTION__ << ": networkState : "
                                             << networkStateEnumToString(m_networkState));
}

/// Moves the network state on by a new report.
void NetworkItemProxy::follow(const VornNetworkInfo& info)
{
    const bool cable = info.wired().cableConnected();
    if (info.state() == VornNetworkState::Connected) {
        m_wasConnected = true;
        m_networkState = NETW_Connected;
    } else if (!m_wasConnected) {
        m_networkState = NETW_Connecting;
    } else if (info.state() == VornNetworkState::Connecting) {
        m_networkState = cable ? NETW_Connected : NETW_Connecting;
    } else if (info.state() == VornNetworkState::Disconnected) {
        const bool softAp = info.softAp().state() == VornNetworkState::Connected;
        m_networkState = cable ? NETW_Connecting : softAp ? NETW_Error : NETW_NotConnected;
    }
}
