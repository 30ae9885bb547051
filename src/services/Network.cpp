#include "services/Network.h"

#include <QNetworkInterface>
#include <algorithm>

#include "platform/sdk/CMNode.h"
#include "platform/sdk/Paths.h"

namespace
{
using State = VornNetworkState;

bool isReachable(const QNetworkInterface& interface)
{
    const QList<QNetworkAddressEntry> entries = interface.addressEntries();
    return std::any_of(entries.begin(), entries.end(),
                       [](const QNetworkAddressEntry& entry) { return !entry.ip().isLinkLocal(); });
}

State::Enum stateOf(const MachineInterface& interface)
{
    if (!interface.running) {
        return State::Disconnected;
    }
    return interface.hasAddress ? State::Connected : State::Connecting;
}

/// Connected is best.
State::Enum better(State::Enum a, State::Enum b)
{
    const auto rank = [](State::Enum state) {
        return state == State::Connected ? 2 : state == State::Connecting ? 1 : 0;
    };
    return rank(a) < rank(b) ? b : a;
}

QString objectionToInfo(const VornValue& value)
{
    return value.isEmpty() || VornField::read<VornNetworkInfo>(value.value(VornValue::NetworkInfo()))
               ? QString()
               : R"(takes {"networkInfo":{"state":1,"wired":{"state":1}}}, not )" + value.toJsonString();
}
} // namespace

std::vector<MachineInterface> interfacesOfMachine()
{
    std::vector<MachineInterface> found;
    for (const QNetworkInterface& interface : QNetworkInterface::allInterfaces()) {
        const bool wireless = interface.type() == QNetworkInterface::Wifi;
        if (wireless || interface.type() == QNetworkInterface::Ethernet) {
            const auto flags = interface.flags();
            found.push_back(
                {wireless,
                 flags.testFlag(QNetworkInterface::IsUp) && flags.testFlag(QNetworkInterface::IsRunning),
                 isReachable(interface)});
        }
    }
    return found;
}

VornNetworkInfo networkInfoOf(const std::vector<MachineInterface>& interfaces)
{
    State::Enum wired = State::Disconnected;
    State::Enum wireless = State::Disconnected;
    bool cable = false;
    for (const MachineInterface& interface : interfaces) {
        State::Enum& state = interface.wireless ? wireless : wired;
        state = better(state, stateOf(interface));
        cable = cable || (!interface.wireless && interface.running);
    }
    VornNetworkInfo info;
    info.setState(better(wired, wireless))
        .setWired(VornNetworkWiredInterface().setState(wired).setCableConnected(cable))
        .setWireless(VornNetworkWirelessInterface().setState(wireless))
        .setSoftAp(VornNetworkSoftApInterface().setState(State::Disconnected));
    return info;
}

Network::Network(Interfaces interfaces, std::chrono::milliseconds period)
    : CMNodesWorker({}, "Network"), m_interfaces(std::move(interfaces)),
      m_info(CMValueNode::create(nodes(), VornNetworkInfoPath()))
{
    m_info->setCheck(objectionToInfo);
    look();
    connect(&m_timer, &QTimer::timeout, this, &Network::look);
    m_timer.start(period);
}

void Network::look()
{
    const VornValue seen = VornValue().setNetworkInfo(networkInfoOf(m_interfaces()));
    const bool isOurs = m_info->value().isEmpty() || m_info->value().sameAs(m_shown);
    if (isOurs) {
        m_shown = seen;
        m_info->setValue(seen);
    }
}
