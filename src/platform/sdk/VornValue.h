#pragma once

#include "platform/sdk/VornEnums.h"
#include "platform/sdk/VornHash.h"

/// A typed view over a hash: each type has a field of its own, {"i32_": 5} for a 32-bit number. A field
/// that is missing or of another type reads as 0, false or empty.
class VornValue : public VornHash
{
public:
    using VornHash::VornHash;
    VornValue() = default;
    VornValue(const VornHash& hash) : VornHash(hash) {} // NOLINT: every hash is a value

    /// Keys of the plain fields.
    static QString Bool() { return QStringLiteral("bool_"); }
    static QString I32() { return QStringLiteral("i32_"); }
    static QString I64() { return QStringLiteral("i64_"); }
    static QString Double() { return QStringLiteral("double_"); }
    static QString String() { return QStringLiteral("string_"); }

    bool bool_() const;
    qint32 i32_() const;
    qint64 i64_() const;
    double double_() const;
    QString string_() const;

    VornValue& setBool_(bool value);
    VornValue& setI32_(qint32 value);
    VornValue& setI64_(qint64 value);
    VornValue& setDouble_(double value);
    VornValue& setString_(const QString& value);

    qint32 i32() const { return i32_(); }
    qint64 i64() const { return i64_(); }
    QString string() const { return string_(); }
    VornValue& setBool(bool value) { return setBool_(value); }
    VornValue& setI32(qint32 value) { return setI32_(value); }
    VornValue& setI64(qint64 value) { return setI64_(value); }
    VornValue& setString(const QString& value) { return setString_(value); }
};

Q_DECLARE_METATYPE(VornValue)
