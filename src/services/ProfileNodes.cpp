#include "services/ProfileNodes.h"

#include <log4cplus/loggingmacros.h>

#include "platform/sdk/CMNode.h"
#include "platform/sdk/Paths.h"

static log4cplus::Logger profileLogger = log4cplus::Logger::getInstance("Services.Profile");

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
    const QMap<CMPath, VornValue>& values = m_profile.values();
    for (auto entry = values.begin(); entry != values.end(); ++entry) {
        if (!m_done.contains(entry.key())) {
            create(entry.key(), entry.value());
        }
    }
}

void ProfileNodes::create(const CMPath& path, const VornValue& value)
{
    m_done.insert(path);
    if (CMNodes::exists(path)) {
        write(path, value);
    } else {
        CMValueNode::create(nodes(), path)->setValue(value);
    }
}

/// Writes a node of another owner as anybody would; a refusal leaves it as it is.
void ProfileNodes::write(const CMPath& path, const VornValue& value)
{
    const CMReply<QVariant> reply;
    CMRoot()->setValue(path, value, reply);
    reply.wait();
    if (reply.error().isError()) {
        LOG4CPLUS_WARN(profileLogger,
                       "the profile's value is not used: " << reply.error().Message().toStdString());
    }
}
