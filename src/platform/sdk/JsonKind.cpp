#include "platform/sdk/JsonKind.h"

#include <QVariantHash>
#include <cmath>
#include <limits>

namespace
{
bool isUnsigned(const QVariant& value)
{
    switch (static_cast<int>(value.type())) {
    case QMetaType::UChar:
    case QMetaType::UShort:
    case QMetaType::UInt:
    case QMetaType::ULong:
    case QMetaType::ULongLong: return true;
    default: return false;
    }
}

bool isFloating(const QVariant& value)
{
    const int type = static_cast<int>(value.type());
    return type == QMetaType::Double || type == QMetaType::Float;
}

std::optional<qint64> integerOf(double number)
{
    constexpr double kBeyond = 9223372036854775808.0; // 2^63, exact
    if (!(number >= -kBeyond && number < kBeyond) || std::trunc(number) != number) {
        return std::nullopt;
    }
    return static_cast<qint64>(number);
}

std::optional<qint64> integerOf(quint64 number)
{
    if (number > static_cast<quint64>(std::numeric_limits<qint64>::max())) {
        return std::nullopt;
    }
    return static_cast<qint64>(number);
}
} // namespace

JsonKind jsonKind(const QVariant& value)
{
    switch (static_cast<int>(value.userType())) {
    case QMetaType::UnknownType:
    case QMetaType::Nullptr: return JsonKind::Null;
    case QMetaType::Bool: return JsonKind::Bool;
    case QMetaType::SChar:
    case QMetaType::Char:
    case QMetaType::UChar:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Float:
    case QMetaType::Double: return JsonKind::Number;
    case QMetaType::QString: return JsonKind::String;
    case QMetaType::QVariantList:
    case QMetaType::QStringList: return JsonKind::Array;
    case QMetaType::QVariantHash:
    case QMetaType::QVariantMap: return JsonKind::Object;
    default: break;
    }
    if (value.canConvert<QVariantHash>()) {
        return JsonKind::Object;
    }
    return value.canConvert<QString>() ? JsonKind::String : JsonKind::Null;
}

std::optional<qint64> jsonInteger(const QVariant& value)
{
    if (jsonKind(value) != JsonKind::Number) {
        return std::nullopt;
    }
    if (isFloating(value)) {
        return integerOf(value.toDouble());
    }
    return isUnsigned(value) ? integerOf(value.toULongLong()) : value.toLongLong();
}
