#pragma once

#include "platform/sdk/CMWorker.h"

class CMSetDataRequest;
class CMValueNode;
class VornPowerManagerTarget;

/// Owns the power target and takes requests for another one.
///
/// A request is a VornPowerManagerTarget, {"target": 3} with a reason or without; it is refused where it
/// names no known target. The target node shows the new target as the next one first, then as the
/// present one. The node itself can be written too, with any number, as a test may need.
class PowerManager : public CMNodesWorker
{
    Q_OBJECT
public:
    PowerManager();

private:
    void on_targetRequest_activated(const CMSetDataRequest& request);
    void show(const VornPowerManagerTarget& target);

    CMValueNode* m_target;
};
