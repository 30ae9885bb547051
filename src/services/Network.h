#pragma once

#include <QTimer>
#include <chrono>
#include <functional>
#include <vector>

#include "platform/sdk/CMWorker.h"
#include "platform/sdk/VornNetworkInfo.h"

class CMValueNode;

/// An interface of the machine, other than the loopback.
struct MachineInterface {
    bool wireless = false;
    bool running = false;    ///< up, and the cable is plugged in or the radio joined
    bool hasAddress = false; ///< one that other networks reach it by: not only link-local
};

std::vector<MachineInterface> interfacesOfMachine();

/// What a module with these interfaces would report. A machine does not tell its own access point from
/// other radios, so softAp is never connected.
VornNetworkInfo networkInfoOf(const std::vector<MachineInterface>& interfaces);

/// Shows the machine's network on VornNetworkInfoPath(), and looks for changes now and then.
///
/// Whoever writes another value there takes over: the value stays as written, so that any state can be
/// had. An empty one, {}, gives the node back to the machine.
class Network : public CMNodesWorker
{
    Q_OBJECT
public:
    using Interfaces = std::function<std::vector<MachineInterface>()>;

    explicit Network(Interfaces interfaces = interfacesOfMachine,
                     std::chrono::milliseconds period = std::chrono::seconds(5));

private:
    void look();

    Interfaces m_interfaces;
    CMValueNode* m_info;
    VornValue m_shown; ///< of the machine's, the latest
    QTimer m_timer;
};
