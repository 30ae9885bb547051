#pragma once

#include <QMetaType>
#include <QString>
#include <QVariantHash>

/// A string-keyed variant hash, the form of every value in the node tree.
class VornHash : public QVariantHash
{
public:
    VornHash() = default;
    VornHash(const QVariantHash& hash) : QVariantHash(hash) {} // NOLINT: a VornHash is a QVariantHash
    VornHash(std::initializer_list<std::pair<QString, QVariant>> fields) : QVariantHash(fields) {}

    /// Compact JSON (RFC 8259) with sorted keys; 64-bit integers stay exact.
    QString toJsonString() const;

    /// Equal by content and by the JSON type of each field, to any depth: 1 equals 1 held as 64 bits,
    /// but not "1" and not true.
    bool sameAs(const QVariantHash& other) const;
};

Q_DECLARE_METATYPE(VornHash)
