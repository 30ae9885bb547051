#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

/// The text of UTF-8 bytes; nothing where they are no UTF-8.
std::optional<QString> fromUtf8(const QByteArray& bytes);
