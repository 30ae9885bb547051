#include "services/PowerManager.h"

#include <log4cplus/loggingmacros.h>

#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMSetDataRequest.h"
#include "platform/sdk/Paths.h"
#include "platform/sdk/VornJson.h"

static log4cplus::Logger powerLogger = log4cplus::Logger::getInstance("Services.PowerManager");

namespace
{
using Target = VornPowerManagerTarget;
using Targets = VornPowerManagerTargets;

std::optional<qint32> targetNumber(const QVariantHash& record)
{
    return VornField::read<qint32>(record.value(Target::Target()));
}

bool isKnown(qint32 number)
{
    return number >= Targets::Number0 && number <= Targets::Number6;
}

QString objectionToTarget(const VornValue& value)
{
    return targetNumber(value.powerTarget())
               ? QString()
               : R"(takes {"powerTarget":{"target":1}}, not )" + value.toJsonString();
}
} // namespace

PowerManager::PowerManager()
    : CMNodesWorker({}, "PowerManager"), m_target(CMValueNode::create(nodes(), VornPowerManagerTargetPath()))
{
    show(Target()
             .setTarget(Targets::Number1)
             .setNextTarget(Targets::Number1)
             .setReason(VornPowerManagerReasons::Unset));
    m_target->setCheck(objectionToTarget);
    CMActivateNode::create(nodes(), VornPowerManagerTargetRequestPath(), this,
                           &PowerManager::on_targetRequest_activated);
}

void PowerManager::on_targetRequest_activated(const CMSetDataRequest& request)
{
    const Target wanted = VornHash(request.data().toHash());
    const std::optional<qint32> number = targetNumber(wanted);
    if (!number || !isKnown(*number)) {
        request.fail({CMError::Refused, VornPowerManagerTargetRequestPath().toString()
                                            + R"(: takes {"target":N} with N from 0 to 6, not )"
                                            + wanted.toJsonString()});
        return;
    }
    LOG4CPLUS_INFO(powerLogger, "power target " << Targets::toString(wanted.target()).toStdString());
    Target target = m_target->value().powerTarget();
    show(target.setNextTarget(wanted.target()).setReason(wanted.reason()));
    show(target.setTarget(wanted.target()));
    request.complete({});
}

void PowerManager::show(const VornPowerManagerTarget& target)
{
    m_target->setValue(VornValue().setPowerTarget(target));
}
