#pragma once

#include "platform/sdk/VornMediaData.h"
#include "platform/sdk/VornValue.h"

/// How a value may be edited: limits, both inclusive.
class VornEdit : public VornHash
{
    VORN_RECORD(VornEdit)
public:
    VORN_FIELD(VornValue, min, setMin, Min)
    VORN_FIELD(VornValue, max, setMax, Max)
};

/// Named values of one media item.
class VornRoles : public VornHash
{
    VORN_RECORD(VornRoles)
public:
    VORN_FIELD(VornRolesType::Enum, type, setType, Type)
    VORN_FIELD(VornRolesAudioType::Enum, audioType, setAudioType, AudioType)
    VORN_FIELD(QString, title, setTitle, Title)
    VORN_FIELD(QString, icon, setIcon, Icon) ///< address of its picture
    VORN_FIELD(VornMediaData, mediaData, setMediaData, MediaData)
    VORN_FIELD(VornValue, value, setValue, Value)
    VORN_FIELD(VornEdit, edit, setEdit, Edit)
};

Q_DECLARE_METATYPE(VornRoles)
