#pragma once

#include <QFile>
#include <QTemporaryDir>
#include <memory>

#include "FuzzInput.h"
#include "SimulatedEvents.h"
#include "services/Bluetooth.h"
#include "services/DiracSlots.h"
#include "services/Equalizer.h"
#include "services/Network.h"
#include "services/NodeSettings.h"
#include "services/Player.h"
#include "services/PlayerVolume.h"
#include "services/PowerManager.h"
#include "services/Profile.h"
#include "services/ProfileNodes.h"
#include "services/RoonElements.h"
#include "services/SystemManager.h"

/// The nodes that a module's services have, with the standard profile and playlist, on simulated time. They
/// come in two parts: those that a worker's constructor reads are there at once. Settings are saved, and none
/// are kept from one object to the next.
class ServiceNodes
{
public:
    ServiceNodes()
    {
        QFile::remove(settingsFile());
        m_settings = std::make_unique<NodeSettings>(settingsFile(), standardProfile().settings());
        m_system = std::make_unique<SystemManager>(m_settings.get());
        m_profile = std::make_unique<ProfileNodes>(standardProfile());
        m_diracSlots = std::make_unique<DiracSlots>();
        m_profile->createBeforeWorker();
        m_settings->adopt();
    }
    ~ServiceNodes()
    {
        m_system.reset();
        m_settings.reset(); // before the nodes that it watches
    }

    void createOthers()
    {
        m_power = std::make_unique<PowerManager>();
        m_player =
            std::make_unique<Player>(standardPlaylist(), [] { return SimulatedEvents::instance().now(); });
        m_volume = std::make_unique<PlayerVolume>();
        m_equalizer = std::make_unique<Equalizer>();
        m_roon = std::make_unique<RoonElements>();
        m_network = std::make_unique<Network>([] {
            return std::vector<MachineInterface>{{false, true, true}};
        });
        m_bluetooth = std::make_unique<Bluetooth>();
        m_profile->createAfterWorker();
        m_settings->adopt();
    }

private:
    static const Profile& standardProfile()
    {
        static const Profile profile = Profile::standard();
        return profile;
    }
    static const Playlist::Tracks& standardPlaylist()
    {
        static const Playlist::Tracks tracks = Playlist::standard();
        return tracks;
    }

    /// In memory: a disk would take longer than all the rest.
    static QString settingsFile()
    {
        static const QTemporaryDir directory("/dev/shm/services-fuzz-XXXXXX");
        require(directory.isValid());
        return directory.filePath("settings.json");
    }

    std::unique_ptr<NodeSettings> m_settings;
    std::unique_ptr<SystemManager> m_system;
    std::unique_ptr<ProfileNodes> m_profile;
    std::unique_ptr<DiracSlots> m_diracSlots;
    std::unique_ptr<PowerManager> m_power;
    std::unique_ptr<Player> m_player;
    std::unique_ptr<PlayerVolume> m_volume;
    std::unique_ptr<Equalizer> m_equalizer;
    std::unique_ptr<RoonElements> m_roon;
    std::unique_ptr<Network> m_network;
    std::unique_ptr<Bluetooth> m_bluetooth;
};
