#include "services/SystemManager.h"

#include <log4cplus/loggingmacros.h>

#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMSetDataRequest.h"
#include "platform/sdk/Paths.h"
#include "services/NodeSettings.h"

static log4cplus::Logger systemLogger = log4cplus::Logger::getInstance("Services.SystemManager");

SystemManager::SystemManager(NodeSettings* settings)
    : CMNodesWorker({}, "SystemManager"), m_settings(settings)
{
    CMActivateNode::create(nodes(), VornSystemManagerFactoryResetPath(), this,
                           &SystemManager::on_factoryReset_activated);
}

void SystemManager::on_factoryReset_activated(const CMSetDataRequest& request)
{
    LOG4CPLUS_WARN(systemLogger, "factory reset requested");
    QString error;
    if (!m_settings->reset(&error)) {
        request.fail({CMError::Refused,
                      VornSystemManagerFactoryResetPath().toString()
                          + ": settings have their first values, but not after a restart: " + error});
        return;
    }
    LOG4CPLUS_WARN(systemLogger, "factory reset done: all settings have their first values");
    request.complete({});
}
