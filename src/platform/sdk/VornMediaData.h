#pragma once

#include "platform/sdk/VornField.h"

/// One way to get at the sound of a media item. Numbers are 0 where they are not known.
class VornResource : public VornHash
{
    VORN_RECORD(VornResource)
public:
    VORN_FIELD(QString, uri, setUri, Uri)
    VORN_FIELD(QString, mimeType, setMimeType, MimeType)
    VORN_FIELD(qint32, sampleFrequency, setSampleFrequency, SampleFrequency) ///< Hz
    VORN_FIELD(qint32, nrAudioChannels, setNrAudioChannels, NrAudioChannels)
    VORN_FIELD(qint32, bitsPerSample, setBitsPerSample, BitsPerSample)
    VORN_FIELD(qint64, duration, setDuration, Duration) ///< milliseconds
};

/// What is said about a media item.
class VornMetaData : public VornHash
{
    VORN_RECORD(VornMetaData)
public:
    VORN_FIELD(QString, album, setAlbum, Album)
    VORN_FIELD(QString, artist, setArtist, Artist)
    VORN_FIELD(QString, serviceID, setServiceID, ServiceID)                         ///< one of VornServices.h
    VORN_FIELD(QString, externalServiceID, setExternalServiceID, ExternalServiceID) ///< goes before serviceID
    VORN_FIELD(QString, externalAppName, setExternalAppName, ExternalAppName)       ///< empty: it is idle
    VORN_FIELD(qint32, maximumRetryCount, setMaximumRetryCount, MaximumRetryCount)
    VORN_FIELD(bool, canBeRated, setCanBeRated, CanBeRated) ///< its service takes likes and dislikes
};

/// The playable side of a media item.
class VornMediaData : public VornHash
{
    VORN_RECORD(VornMediaData)
public:
    VORN_FIELD(VornList<VornResource>, resources, setResources, Resources)      ///< the preferred one first
    VORN_FIELD(VornResource, activeResource, setActiveResource, ActiveResource) ///< the one that plays
    VORN_FIELD(VornMetaData, metaData, setMetaData, MetaData)
};
