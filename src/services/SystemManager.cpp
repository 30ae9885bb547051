#include "services/SystemManager.h"

#include <log4cplus/loggingmacros.h>

#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMSetDataRequest.h"
#include "platform/sdk/Paths.h"

static log4cplus::Logger s_logger = log4cplus::Logger::getInstance("Services.SystemManager");

SystemManager::SystemManager() : CMNodesWorker({}, "SystemManager")
{
    CMActivateNode::create(nodes(), VornSystemManagerFactoryResetPath(), this,
                           &SystemManager::on_factoryReset_activated);
}

void SystemManager::on_factoryReset_activated(const CMSetDataRequest& request)
{
    LOG4CPLUS_WARN(s_logger, "factory reset requested");
    request.complete({});
}
