#pragma once

#include "platform/sdk/VornEnums.h"
#include "platform/sdk/VornField.h"

/// What the player tells of its volume.
class VornPlayerVolumeChangeEvent : public VornHash
{
    VORN_RECORD(VornPlayerVolumeChangeEvent)
public:
    VORN_FIELD(VornPlayerVolumeChangeEventType::Enum, type, setType, Type)
};
