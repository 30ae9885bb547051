#include "services/ProfileNodes.h"

#include <log4cplus/loggingmacros.h>

#include "platform/sdk/CMNode.h"
#include "platform/sdk/Paths.h"

static log4cplus::Logger s_logger = log4cplus::Logger::getInstance("Services.Profile");

ProfileNodes::ProfileNodes(Profile profile) : CMNodesWorker({}, "ProfileNodes"), m_profile(std::move(profile))
{
}

void ProfileNodes::createBeforeWorker()
{
    for (const CMPath& path :
         {VornDiracSlotsSettingsPath(), VornDiracActiveFilterPath(), VornHostLinkTcpTunnelingConfPath()}) {
        const auto entry = m_profile.values().find(path);
        if (entry != m_profile.values().end()) {
            create(path, entry.value());
        }
    }
}

void ProfileNodes::createAfterWorker()
{
    const QStringList list = CMNodes::list();
    const QSet<QString> standing(list.begin(), list.end());
    const QMap<CMPath, VornValue>& values = m_profile.values();
    for (auto entry = values.begin(); entry != values.end(); ++entry) {
        if (m_created.contains(entry.key())) {
            continue;
        }
        if (standing.contains(entry.key().toString())) {
            LOG4CPLUS_WARN(s_logger, entry.key().toString().toStdString()
                                         << " has an owner in the module; the profile's value is not used");
            continue;
        }
        create(entry.key(), entry.value());
    }
}

void ProfileNodes::create(const CMPath& path, const VornValue& value)
{
    CMValueNode::create(nodes(), path)->setValue(value);
    m_created.insert(path);
}
