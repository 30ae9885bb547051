#pragma once

#include "platform/sdk/CMWorker.h"

/// The player's volume: a number from 0 to 100, which its node declares as its edit limits.
class PlayerVolume : public CMNodesWorker
{
    Q_OBJECT
public:
    PlayerVolume();
};
