#include "platform/sdk/VornHash.h"

#include "platform/sdk/JsonKind.h"
#include "platform/sdk/VornJson.h"

namespace
{
bool sameVariant(const QVariant& a, const QVariant& b);

bool sameNumber(const QVariant& a, const QVariant& b)
{
    const std::optional<qint64> integerA = jsonInteger(a);
    const std::optional<qint64> integerB = jsonInteger(b);
    if (integerA || integerB) {
        return integerA == integerB;
    }
    // What is left prints as a fraction, as an exact number beyond 64 bits signed, or as null.
    return VornJson::print(a) == VornJson::print(b);
}

bool sameList(const QVariantList& a, const QVariantList& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), sameVariant);
}

bool sameHash(const QVariantHash& a, const QVariantHash& b)
{
    if (a.isSharedWith(b)) {
        return true;
    }
    if (a.size() != b.size()) {
        return false;
    }
    for (auto field = a.begin(); field != a.end(); ++field) {
        const auto other = b.constFind(field.key());
        if (other == b.constEnd() || !sameVariant(*field, *other)) {
            return false;
        }
    }
    return true;
}

bool sameVariant(const QVariant& a, const QVariant& b)
{
    const JsonKind kind = jsonKind(a);
    if (kind != jsonKind(b)) {
        return false;
    }
    switch (kind) {
    case JsonKind::Null: return true;
    case JsonKind::Bool: return a.toBool() == b.toBool();
    case JsonKind::Number: return sameNumber(a, b);
    case JsonKind::String: return a.toString() == b.toString();
    case JsonKind::Array: return sameList(a.toList(), b.toList());
    case JsonKind::Object: return sameHash(a.toHash(), b.toHash());
    }
    return false;
}
} // namespace

QString VornHash::toJsonString() const
{
    return VornJson::print(QVariant(static_cast<const QVariantHash&>(*this)));
}

bool VornHash::sameAs(const QVariantHash& other) const
{
    return sameHash(*this, other);
}
