#include "runtime/ModuleProcess.h"

#include <limits>

#include "platform/hostlink/HostLinkTransportLayer.h"
#include "platform/sdk/MetaTypes.h"
#include "platform/sdk/Paths.h"
#include "platform/sdk/VornHostLinkTcpTunnelingConf.h"
#include "runtime/EmulatedLine.h"
#include "runtime/LinkCounters.h"
#include "services/Bluetooth.h"
#include "services/DiracSlots.h"
#include "services/Equalizer.h"
#include "services/Network.h"
#include "services/NodeSettings.h"
#include "services/Player.h"
#include "services/PlayerVolume.h"
#include "services/Playlist.h"
#include "services/PowerManager.h"
#include "services/Profile.h"
#include "services/ProfileNodes.h"
#include "services/RoonElements.h"
#include "services/SystemManager.h"

namespace
{
/// The type of the line that every worker opens.
constexpr const char* kWorkerLine = "i2c";

constexpr const char* kSettingsFile = "settings.json";

/// The worker takes the port's lower 16 bits: one above them would open another than the profile says.
bool applyTunnelSettings(const ModuleProcess::Settings& settings, Profile* profile, QString* error)
{
    VornHostLinkTcpTunnelingConf conf = profile->values().value(VornHostLinkTcpTunnelingConfPath());
    if (settings.tunnelPort) {
        conf.setPort(*settings.tunnelPort);
    }
    if (settings.tunnelConnections) {
        conf.setMaxOpenConnections(*settings.tunnelConnections);
    }
    if (conf.port() > std::numeric_limits<quint16>::max()) {
        *error = QString("VornHostLinkTcpTunnelingConfPath: %1 is no port").arg(conf.port());
        return false;
    }
    profile->set(VornHostLinkTcpTunnelingConfPath(), conf);
    return true;
}
} // namespace

ModuleProcess::ModuleProcess() = default;

ModuleProcess::~ModuleProcess()
{
    HostLinkTransportLayer::stopAll();
    m_api.reset(); // before the nodes: their end is no change of a value
    m_systemManager.reset();
    m_nodeSettings.reset();
    m_worker.reset();
    if (m_line) {
        m_line->reset();
    }
}

ModuleProcess::Start ModuleProcess::start(const Settings& settings, QString* error)
{
    registerSdkMetaTypes();
    std::optional<Profile> profile =
        settings.profileFile.isEmpty() ? Profile::standard() : Profile::load(settings.profileFile, error);
    if (!profile) {
        return Start::BadFile;
    }
    const std::optional<Playlist::Tracks> playlist =
        settings.playlistFile.isEmpty() ? Playlist::standard() : Playlist::load(settings.playlistFile, error);
    if (!playlist) {
        return Start::BadFile;
    }
    if (!applyTunnelSettings(settings, &*profile, error)) {
        return Start::BadFile;
    }
    if (!m_api->listen(settings.apiSocket, error) || !replaceLine(settings, error)
        || !m_stateDirectory.open(settings.stateDirectory, error)
        || !createNodes(*profile, *playlist, settings.plugin, error)) {
        return Start::Failed;
    }
    return Start::Ready;
}

bool ModuleProcess::createNodes(const Profile& profile, const QVector<Track>& playlist, const QString& plugin,
                                QString* error)
{
    m_nodeSettings = std::make_unique<NodeSettings>(m_stateDirectory.file(kSettingsFile), profile.settings());
    m_systemManager = std::make_unique<SystemManager>(m_nodeSettings.get());
    m_profileNodes = std::make_unique<ProfileNodes>(profile);
    m_diracSlots = std::make_unique<DiracSlots>();
    m_profileNodes->createBeforeWorker();
    m_nodeSettings->adopt();
    if (!createWorker(plugin, error)) {
        return false;
    }
    m_linkCounters = std::make_unique<LinkCounters>();
    m_powerManager = std::make_unique<PowerManager>();
    m_player = std::make_unique<Player>(playlist);
    m_playerVolume = std::make_unique<PlayerVolume>();
    m_equalizer = std::make_unique<Equalizer>();
    m_roonElements = std::make_unique<RoonElements>();
    m_network = std::make_unique<Network>();
    m_bluetooth = std::make_unique<Bluetooth>();
    m_profileNodes->createAfterWorker();
    m_nodeSettings->adopt();
    return true;
}

bool ModuleProcess::replaceLine(const Settings& settings, QString* error)
{
    if (settings.lineType.empty()) {
        return true;
    }
    const bool listens = settings.lineProperties.integer(HostLinkPhysicalLayer::Listen).value_or(0) == 1;
    m_line = std::make_shared<std::unique_ptr<HostLinkPhysicalLayer>>(
        listens ? openEmulatedLine(settings.lineType, settings.lineProperties, error)
                : HostLinkPhysicalLayer::create(settings.lineType, settings.lineProperties));
    if (*m_line == nullptr) {
        return false;
    }
    HostLinkPhysicalLayer::registerType(
        kWorkerLine, [line = m_line](const HostLinkPhysicalLayer::Properties&) { return std::move(*line); });
    return true;
}

bool ModuleProcess::createWorker(const QString& plugin, QString* error)
{
    if (!m_plugin.load(plugin, error)) {
        return false;
    }
    m_worker = m_plugin.createWorker({}, error);
    return m_worker != nullptr;
}
