#pragma once

#include "platform/sdk/CMWorker.h"

class CMValueItem;
class CMValueNode;

/// The slots of the room correction, of which one is active. Choosing a slot makes its filter the active one;
/// after a restart the worker does so with the slot that was chosen last.
class DiracSlots : public CMNodesWorker
{
    Q_OBJECT
public:
    /// Its nodes must stand before a worker is constructed.
    DiracSlots();

private:
    void on_slots_changed(const VornValue& value);

    CMValueNode* m_slots;
    CMValueNode* m_activeFilter;
};
