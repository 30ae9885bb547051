#pragma once

#include "platform/sdk/CMPath.h"

/// The player.
class PlayLogicInterface
{
public:
    virtual ~PlayLogicInterface() = default;

    /// The module's one player.
    static PlayLogicInterface* playerInstance();

    /// Where its nodes stand: play time and play-logic data are below.
    virtual CMPath path() const = 0;
};
