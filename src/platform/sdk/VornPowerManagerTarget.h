#pragma once

#include "platform/sdk/VornEnums.h"
#include "platform/sdk/VornField.h"

/// Where the power manager takes the module.
class VornPowerManagerTarget : public VornHash
{
    VORN_RECORD(VornPowerManagerTarget)
public:
    VORN_FIELD(VornPowerManagerTargets::Enum, target, setTarget, Target)
    VORN_FIELD(VornPowerManagerTargets::Enum, nextTarget, setNextTarget,
               NextTarget) ///< what follows target()
    VORN_FIELD(VornPowerManagerReasons::Enum, reason, setReason, Reason)
};
