#pragma once

#include "platform/sdk/CMWorker.h"

class CMValueNode;

/// The player's equaliser: five bands at first. Whoever writes its node may change gains and bands alike;
/// each gain keeps within the limits of its band.
class Equalizer : public CMNodesWorker
{
    Q_OBJECT
public:
    Equalizer();

private:
    CMValueNode* m_bands;
};
