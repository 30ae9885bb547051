#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

/// The text of UTF-8 bytes; nothing where they are no UTF-8.
std::optional<QString> fromUtf8(const QByteArray& bytes);

/// What a file that is read as a whole may hold.
constexpr qint64 kMostFileBytes = 16 << 20;

/// The text of a file in UTF-8, of at most kMostFileBytes. Without one, *error names the file and says why.
std::optional<QString> readUtf8File(const QString& file, QString* error);
