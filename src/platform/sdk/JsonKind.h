#pragma once

#include <QVariant>
#include <optional>

/// How a variant reads as JSON. Private to the library.
enum class JsonKind { Null, Bool, Number, String, Array, Object };

/// The kind of a variant. Hashes, maps and registered records are objects; anything that only has a
/// text is a string; what has no JSON form is null.
JsonKind jsonKind(const QVariant& value);

/// The number as a 64-bit integer, however it is held: 5.0 is 5. Nothing for a fraction, a number
/// outside the range and for what is no number.
std::optional<qint64> jsonInteger(const QVariant& value);
