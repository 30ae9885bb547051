#pragma once

#include "platform/sdk/VornValue.h"

/// How a value may be edited: limits, both inclusive.
class VornEdit : public VornHash
{
public:
    using VornHash::VornHash;
    VornEdit() = default;
    VornEdit(const VornHash& hash) : VornHash(hash) {} // NOLINT: a view over any hash

    VornValue min() const;
    VornValue max() const;
    VornEdit& setMin(const VornValue& value);
    VornEdit& setMax(const VornValue& value);
};

/// Named values of one media item.
class VornRoles : public VornHash
{
public:
    using VornHash::VornHash;
    VornRoles() = default;
    VornRoles(const VornHash& hash) : VornHash(hash) {} // NOLINT: a view over any hash

    QString title() const;
    VornValue value() const;
    VornEdit edit() const;
    VornRoles& setTitle(const QString& title);
    VornRoles& setValue(const VornValue& value);
    VornRoles& setEdit(const VornEdit& edit);
};

Q_DECLARE_METATYPE(VornRoles)
