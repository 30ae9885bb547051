#include "platform/sdk/VornField.h"

#include <limits>

#include "platform/sdk/JsonKind.h"

namespace VornField
{
template <>
std::optional<bool> read<bool>(const QVariant& field)
{
    return jsonKind(field) == JsonKind::Bool ? std::optional<bool>(field.toBool()) : std::nullopt;
}

template <>
std::optional<qint32> read<qint32>(const QVariant& field)
{
    using Limits = std::numeric_limits<qint32>;
    const std::optional<qint64> number = jsonInteger(field);
    if (!number || *number < Limits::min() || *number > Limits::max()) {
        return std::nullopt;
    }
    return static_cast<qint32>(*number);
}

template <>
std::optional<qint64> read<qint64>(const QVariant& field)
{
    return jsonInteger(field);
}

template <>
std::optional<double> read<double>(const QVariant& field)
{
    return jsonKind(field) == JsonKind::Number ? std::optional<double>(field.toDouble()) : std::nullopt;
}

template <>
std::optional<QString> read<QString>(const QVariant& field)
{
    return jsonKind(field) == JsonKind::String ? std::optional<QString>(field.toString()) : std::nullopt;
}

template <>
std::optional<QStringList> read<QStringList>(const QVariant& field)
{
    if (jsonKind(field) != JsonKind::Array) {
        return std::nullopt;
    }
    QStringList texts;
    const QVariantList list = field.toList();
    for (const QVariant& element : list) {
        const std::optional<QString> text = read<QString>(element);
        if (!text) {
            return std::nullopt;
        }
        texts.append(*text);
    }
    return texts;
}

template <>
std::optional<QVariantHash> read<QVariantHash>(const QVariant& field)
{
    return jsonKind(field) == JsonKind::Object ? std::optional<QVariantHash>(field.toHash()) : std::nullopt;
}

template <>
std::optional<QVariantList> read<QVariantList>(const QVariant& field)
{
    return jsonKind(field) == JsonKind::Array ? std::optional<QVariantList>(field.toList()) : std::nullopt;
}

template <>
std::optional<QVariant> read<QVariant>(const QVariant& field)
{
    return field;
}
} // namespace VornField
