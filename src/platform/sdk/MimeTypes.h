#pragma once

#include <QString>

/// Names of media types (RFC 6838).
namespace MimeTypes::Audio
{
/// Audio whose coding shows only once it is opened.
inline QString unknown()
{
    return QStringLiteral("audio/unknown");
}
} // namespace MimeTypes::Audio
