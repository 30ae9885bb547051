#pragma once

#include <QStringList>
#include <QVariant>
#include <optional>
#include <type_traits>

#include "platform/sdk/VornHash.h"
#include "platform/sdk/VornList.h"

/// Reading and writing of one field of a record.
namespace VornField
{
/// The field as a T, or nothing where it is of another JSON type: "12" is no number, 1 is no bool, and
/// 5.5 or a number that does not fit is no integer.
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
template <>
std::optional<QVariantList> read<QVariantList>(const QVariant& field);
template <>
std::optional<QVariant> read<QVariant>(const QVariant& field); ///< anything, as it is

/// The elements; nothing where one of them is no T.
template <typename List>
std::optional<List> readList(const QVariant& field);

/// Enumerations travel as their number, records as a hash, lists of records as a list of hashes.
template <typename T>
std::optional<T> read(const QVariant& field)
{
    if constexpr (std::is_enum_v<T>) {
        const std::optional<qint32> number = read<qint32>(field);
        return number ? std::optional<T>(static_cast<T>(*number)) : std::nullopt;
    } else if constexpr (IsVornList<T>::value) {
        return readList<T>(field);
    } else {
        static_assert(std::is_base_of_v<VornHash, T>,
                      "a field is a plain type, an enumeration, a record or a list of records");
        const std::optional<QVariantHash> hash = read<QVariantHash>(field);
        return hash ? std::optional<T>(VornHash(*hash)) : std::nullopt;
    }
}

template <typename List>
std::optional<List> readList(const QVariant& field)
{
    const std::optional<QVariantList> elements = read<QVariantList>(field);
    if (!elements) {
        return std::nullopt;
    }
    List list;
    for (const QVariant& element : *elements) {
        const auto record = read<typename List::value_type>(element);
        if (!record) {
            return std::nullopt;
        }
        list.append(*record);
    }
    return list;
}

/// The field as a hash holds it: an enumeration as int, a record as QVariantHash.
template <typename T>
QVariant write(const T& value)
{
    if constexpr (std::is_enum_v<T>) {
        return QVariant(static_cast<int>(value));
    } else if constexpr (std::is_base_of_v<QVariantHash, T>) {
        return QVariant(static_cast<const QVariantHash&>(value));
    } else if constexpr (IsVornList<T>::value) {
        QVariantList elements;
        for (const auto& element : value) {
            elements.append(write(element));
        }
        return elements;
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
