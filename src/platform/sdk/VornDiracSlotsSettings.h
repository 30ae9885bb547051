#pragma once

#include "platform/sdk/VornField.h"

/// The filter slots of the room correction.
class VornDiracSlotsList : public VornHash
{
    VORN_RECORD(VornDiracSlotsList)
public:
    VORN_FIELD(qint32, activeSlot, setActiveSlot, ActiveSlot) ///< number of the slot in use
};

/// The settings of the room correction that outlast a restart.
class VornDiracSlotsSettings : public VornHash
{
    VORN_RECORD(VornDiracSlotsSettings)
public:
    VORN_FIELD(VornDiracSlotsList, slotsList, setSlotsList, SlotsList)
};
