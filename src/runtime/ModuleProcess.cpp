#include "runtime/ModuleProcess.h"

#include <QDir>
#include <QFile>

#include "platform/hostlink/HostLinkTransportLayer.h"
#include "platform/sdk/MetaTypes.h"
#include "platform/sdk/Paths.h"
#include "runtime/EmulatedLine.h"
#include "services/PlayerVolume.h"
#include "services/Profile.h"
#include "services/ProfileNodes.h"
#include "services/SystemManager.h"

namespace
{
/// The type of the line that every worker opens.
constexpr const char* kWorkerLine = "i2c";

bool makeStateDirectory(const QString& path, QString* error)
{
    const bool isNew = !QDir(path).exists();
    if (!QDir().mkpath(path)) {
        *error = "cannot create the state directory " + path;
        return false;
    }
    if (isNew) {
        QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    return true;
}

void applyTunnelSettings(const ModuleProcess::Settings& settings, Profile* profile)
{
    VornValue conf = profile->values().value(VornHostLinkTcpTunnelingConfPath());
    if (settings.tunnelPort) {
        conf["port"] = *settings.tunnelPort;
    }
    if (settings.tunnelConnections) {
        conf["maxOpenConnections"] = *settings.tunnelConnections;
    }
    profile->set(VornHostLinkTcpTunnelingConfPath(), conf);
}
} // namespace

ModuleProcess::ModuleProcess() = default;

ModuleProcess::~ModuleProcess()
{
    HostLinkTransportLayer::stopAll();
    m_api.reset(); // before the nodes: their end is no change of a value
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
        return Start::BadProfile;
    }
    applyTunnelSettings(settings, &*profile);
    if (!makeStateDirectory(settings.stateDirectory, error) || !m_api->listen(settings.apiSocket, error)
        || !replaceLine(settings, error)) {
        return Start::Failed;
    }
    m_systemManager = std::make_unique<SystemManager>();
    m_profileNodes = std::make_unique<ProfileNodes>(*profile);
    m_profileNodes->createBeforeWorker();
    if (!createWorker(settings.plugin, error)) {
        return Start::Failed;
    }
    m_playerVolume = std::make_unique<PlayerVolume>();
    m_profileNodes->createAfterWorker();
    return Start::Ready;
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
