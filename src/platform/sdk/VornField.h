#pragma once

#include <QStringList>
#include <QVariant>
#include <optional>
#include <type_traits>

#include "platform/sdk/VornHash.h"

/// Reading and writing of one field of a record.
namespace VornField
{
/// The field as a T, or nothing where it is of another JSON type: "12" is no number, 1 is no bool, and
/// 5.5 or a number that does not fit is no integer. A list is one of texts only.
template <typename T>
std::optional<T> read(const QVariant& field);

template <>
std::optional<bool> read<bool>(const QVariant& field);
template <>
std::optional<qint32> read<qint32>(const QVariant& field);
template <>
std::optional<qint64> read<qint64>(const QVariant& field);
template <>
std::optional<double> read<double>(const QVariant& field);
template <>
std::optional<QString> read<QString>(const QVariant& field);
template <>
std::optional<QStringList> read<QStringList>(const QVariant& field); ///< a list of texts only
template <>
std::optional<QVariantHash> read<QVariantHash>(const QVariant& field);

/// Enumerations travel as their number, records as a hash.
template <typename T>
std::optional<T> read(const QVariant& field)
{
    if constexpr (std::is_enum_v<T>) {
        const std::optional<qint32> number = read<qint32>(field);
        return number ? std::optional<T>(static_cast<T>(*number)) : std::nullopt;
    } else {
        static_assert(std::is_base_of_v<VornHash, T>, "a field is a plain type, an enumeration or a record");
        const std::optional<QVariantHash> hash = read<QVariantHash>(field);
        return hash ? std::optional<T>(VornHash(*hash)) : std::nullopt;
    }
}

/// The field as a hash holds it: an enumeration as int, a record as QVariantHash.
template <typename T>
QVariant write(const T& value)
{
    if constexpr (std::is_enum_v<T>) {
        return QVariant(static_cast<int>(value));
    } else if constexpr (std::is_base_of_v<QVariantHash, T>) {
        return QVariant(static_cast<const QVariantHash&>(value));
    } else {
        return QVariant(value);
    }
}

/// The field `key` of a record; 0, false or empty where it is missing or of another type.
template <typename T>
T get(const QVariantHash& record, const QString& key)
{
    const auto field = record.constFind(key);
    return field == record.constEnd() ? T{} : read<T>(*field).value_or(T{});
}
} // namespace VornField

/// Begins a record: a view over any hash.
#define VORN_RECORD(Name)                                                                                    \
public:                                                                                                      \
    using Record = Name;                                                                                     \
    using VornHash::VornHash;                                                                                \
    Name() = default;                                                                                        \
    Name(const VornHash& hash) : VornHash(hash) {} // NOLINT: every hash can be viewed

/// Declares a field of a record: its key (the getter's name), its getter and its chaining setter.
#define VORN_FIELD(type, getter, setter, Key)                                                                \
    static QString Key()                                                                                     \
    {                                                                                                        \
        return QStringLiteral(#getter);                                                                      \
    }                                                                                                        \
    type getter() const                                                                                      \
    {                                                                                                        \
        return VornField::get<type>(*this, Key());                                                           \
    }                                                                                                        \
    Record& setter(const type& value)                                                                        \
    {                                                                                                        \
        insert(Key(), VornField::write<type>(value));                                                        \
        return *this;                                                                                        \
    }
