#pragma once

#include "platform/sdk/VornRoles.h"

/// What to play: `roles`, or the track of the player's queue with the number `track`, or with neither on
/// with what is there.
class VornPlayLogicPlayRequest : public VornHash
{
    VORN_RECORD(VornPlayLogicPlayRequest)
public:
    VORN_FIELD(VornRoles, roles, setRoles, Roles)
    VORN_FIELD(bool, append, setAppend, Append) ///< the roles go behind the queue
    VORN_FIELD(qint32, track, setTrack, Track)  ///< from 1
};

class VornPlayLogicStopRequest : public VornHash
{
    VORN_RECORD(VornPlayLogicStopRequest)
public:
    VORN_FIELD(VornPlayLogicStopReason::Enum, reason, setReason, Reason)
};

class VornPlayLogicPreviousRequest : public VornHash
{
    VORN_RECORD(VornPlayLogicPreviousRequest)
public:
    VORN_FIELD(bool, restart, setRestart, Restart) ///< to the begin of the present track, if some was played
};
