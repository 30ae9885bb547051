#pragma once

#include "platform/sdk/CMPath.h"
#include "platform/sdk/CMReply.h"
#include "platform/sdk/VornPlayLogicData.h"

/// The player. Its operations are requests: each returns at once, and its reply tells what became of it.
class PlayLogicInterface
{
public:
    virtual ~PlayLogicInterface() = default;

    /// The module's one player.
    static PlayLogicInterface* playerInstance();

    /// Where its nodes stand: play time, play-logic data and those that take requests are below.
    virtual CMPath path() const = 0;

    /// The node of its play-logic data, whose value is a VornPlayLogicData as a whole.
    virtual CMPath dataPath() const = 0;

    /// Its data now; empty while there is no player.
    virtual VornPlayLogicData data() const = 0;

    /// Plays a media item: at once, or with `append` when its turn comes.
    virtual CMVoidReply play(const VornRoles& roles, bool append) = 0;

    /// Pauses what plays, lets go on what is paused.
    virtual CMVoidReply pause() = 0;
    virtual CMVoidReply stop(VornPlayLogicStopReason::Enum reason) = 0;
    virtual CMVoidReply next() = 0;

    /// To the track before; with `restart` to the begin of the present one, if some of it has been played.
    virtual CMVoidReply previous(bool restart) = 0;
    virtual CMVoidReply like() = 0;
    virtual CMVoidReply dislike() = 0;
};
