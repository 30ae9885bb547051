#pragma once

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
    VORN_FIELD(QString, title, setTitle, Title)
    VORN_FIELD(VornValue, value, setValue, Value)
    VORN_FIELD(VornEdit, edit, setEdit, Edit)
};

Q_DECLARE_METATYPE(VornRoles)
