#pragma once

#include "platform/sdk/CMWorker.h"

class CMSetDataRequest;
class CMValueNode;

/// The player's volume: a number from 0 to 100, which its node declares as its edit limits and keeps to.
///
/// Its step node moves it relatively, as a knob does: {"i32_": -3} is three steps down. The volume stops at
/// its limits. A step is answered with the volume then reached, and is always told: by the change of the
/// volume or, where it could not change it, by a volume-change event of the root.
class PlayerVolume : public CMNodesWorker
{
    Q_OBJECT
public:
    PlayerVolume();

private:
    void on_volumeStep_activated(const CMSetDataRequest& request);

    CMValueNode* m_volume;
};
