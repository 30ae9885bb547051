#pragma once

#include "platform/sdk/VornRoles.h"

/// The modes of playing that the player can be put into now.
class VornPlayLogicPlayModesSupported : public VornHash
{
    VORN_RECORD(VornPlayLogicPlayModesSupported)
public:
    VORN_FIELD(bool, shuffle, setShuffle, Shuffle)
    VORN_FIELD(bool, repeatOne, setRepeatOne, RepeatOne)
    VORN_FIELD(bool, repeatAll, setRepeatAll, RepeatAll)
};

/// What the player can be asked to do now.
class VornPlayLogicControls : public VornHash
{
    VORN_RECORD(VornPlayLogicControls)
public:
    VORN_FIELD(bool, pause, setPause, Pause)
    VORN_FIELD(bool, next_, setNext_, Next)
    VORN_FIELD(bool, previous, setPrevious, Previous)
    VORN_FIELD(bool, like, setLike, Like)
    VORN_FIELD(bool, dislike, setDislike, Dislike)
    VORN_FIELD(VornPlayLogicPlayModesSupported, playMode, setPlayMode, PlayMode)
    VORN_FIELD(bool, seekTime, setSeekTime, SeekTime)
    VORN_FIELD(bool, seekTrack, setSeekTrack, SeekTrack)
    VORN_FIELD(bool, seekBytes, setSeekBytes, SeekBytes)
};

/// How it goes with the track.
class VornPlayLogicStatus : public VornHash
{
    VORN_RECORD(VornPlayLogicStatus)
public:
    VORN_FIELD(qint64, duration, setDuration, Duration) ///< milliseconds, 0 where it is not known
    VORN_FIELD(VornPlayLogicRating::Enum, rating, setRating, Rating)
    VORN_FIELD(QString, error, setError,
               Error) ///< why the last track could not be played; empty when it could
};

/// All that the player tells of itself: the whole value of its data node.
class VornPlayLogicData : public VornHash
{
    VORN_RECORD(VornPlayLogicData)
public:
    VORN_FIELD(VornPlayLogicState::Enum, state, setState, State)
    VORN_FIELD(VornPlayLogicStatus, status, setStatus, Status)
    VORN_FIELD(VornPlayLogicControls, controls, setControls, Controls)
    VORN_FIELD(VornRoles, trackRoles, setTrackRoles, TrackRoles) ///< the track that plays
    VORN_FIELD(VornRoles, mediaRoles, setMediaRoles, MediaRoles) ///< what it comes from: a list, a station
};
