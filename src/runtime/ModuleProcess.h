#pragma once

#include <QString>
#include <memory>
#include <optional>
#include <string>

#include "platform/hostlink/HostLinkPhysicalLayer.h"
#include "platform/sdk/CMWorker.h"
#include "runtime/NodeApi.h"
#include "runtime/PluginLoader.h"
#include "runtime/StateDirectory.h"

class Bluetooth;
class LinkCounters;
class Network;
class NodeSettings;
class PlayerVolume;
class PowerManager;
class Profile;
class ProfileNodes;
class SystemManager;

/// A module in this process: the services, the worker of a plug-in and the node API, on the process's
/// one node tree. Needs a QCoreApplication, whose event loop serves it.
class ModuleProcess
{
public:
    struct Settings {
        std::string lineType; ///< type of the physical layer that the worker gets; empty: its own
        HostLinkPhysicalLayer::Properties lineProperties;
        QString apiSocket;
        QString stateDirectory; ///< keeps the settings; created where missing
        QString profileFile;    ///< empty: the standard profile
        QString plugin;
        std::optional<int> tunnelPort; ///< 0: no tunnelling; nothing: as the profile says
        std::optional<int> tunnelConnections;
    };

    enum class Start { Ready, BadProfile, Failed };

    ModuleProcess();
    /// Stops the links, saves the settings, then destroys the worker; the plug-in stays loaded.
    ~ModuleProcess();

    /// To be called once. On Ready the worker is constructed, every node has its first or its kept value
    /// and the node API listens; otherwise *error says why not.
    Start start(const Settings& settings, QString* error);

private:
    bool replaceLine(const Settings& settings, QString* error);
    bool createWorker(const QString& plugin, QString* error);
    bool createNodes(const Profile& profile, const QString& plugin, QString* error);

    StateDirectory m_stateDirectory;
    std::shared_ptr<std::unique_ptr<HostLinkPhysicalLayer>> m_line; ///< open, until the worker takes it
    std::unique_ptr<NodeApi> m_api = std::make_unique<NodeApi>();
    PluginLoader m_plugin;
    std::unique_ptr<LinkCounters> m_linkCounters;
    std::unique_ptr<ProfileNodes> m_profileNodes;
    std::unique_ptr<PowerManager> m_powerManager;
    std::unique_ptr<PlayerVolume> m_playerVolume;
    std::unique_ptr<Network> m_network;
    std::unique_ptr<Bluetooth> m_bluetooth;
    std::unique_ptr<NodeSettings> m_nodeSettings;
    std::unique_ptr<SystemManager> m_systemManager;
    std::unique_ptr<CMNodesWorker> m_worker;
};
