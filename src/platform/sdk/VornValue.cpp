#include "platform/sdk/VornValue.h"

#include <array>

namespace
{
struct FieldRow {
    VornValue::Type type;
    QString key;
    VornValue (*make)(const QVariant& scalar); ///< empty where the scalar is not of the type
};

template <typename T>
VornValue makeValue(const QString& key, const QVariant& scalar)
{
    const std::optional<T> value = VornField::read<T>(scalar);
    VornValue result;
    if (value) {
        result.insert(key, VornField::write<T>(*value));
    }
    return result;
}

const auto& fieldRows()
{
    static const std::array rows{
#define VORN_VALUE_ROW(type, getter, setter, Key)                                                            \
    FieldRow{VornValue::Type::Key, VornValue::Key(),                                                         \
             [](const QVariant& scalar) { return makeValue<type>(VornValue::Key(), scalar); }},
        VORN_VALUE_FIELDS(VORN_VALUE_ROW)
#undef VORN_VALUE_ROW
    };
    return rows;
}

const FieldRow* findRow(VornValue::Type type)
{
    for (const FieldRow& row : fieldRows()) {
        if (row.type == type) {
            return &row;
        }
    }
    return nullptr;
}

bool isObject(const QVariant& value)
{
    return VornField::read<QVariantHash>(value).has_value();
}
} // namespace

VornValue::Type VornValue::type() const
{
    if (size() != 1) {
        return Type::Hash;
    }
    for (const FieldRow& row : fieldRows()) {
        if (row.key == constBegin().key()) {
            return row.make(constBegin().value()).isEmpty() ? Type::Hash : row.type;
        }
    }
    return Type::Hash;
}

QString VornValue::typeName(Type type)
{
    const FieldRow* row = findRow(type);
    if (row == nullptr) {
        return QStringLiteral("hash");
    }
    return row->key.endsWith('_') ? row->key.chopped(1) : row->key;
}

QVariant VornValue::scalar() const
{
    const FieldRow* row = findRow(type());
    if (row == nullptr) {
        return QVariant(static_cast<const QVariantHash&>(*this));
    }
    return value(row->key);
}

VornValue VornValue::fromScalar(Type type, const QVariant& scalar, bool* ok)
{
    const FieldRow* row = findRow(type);
    const bool whole = isObject(scalar);
    VornValue result;
    if (whole) {
        result = VornHash(scalar.toHash());
    } else if (row != nullptr) {
        result = row->make(scalar);
    }
    if (ok != nullptr) {
        *ok = whole || !result.isEmpty();
    }
    return result;
}
