#pragma once

#include <string>

/// Sample formats that ALSA and GStreamer share. A number behind an underscore is the bytes that a sample
/// takes where its bits leave some of them unused; LE is least significant byte first.
namespace audioUtils
{
enum class PcmFormat {
    S8,
    U8,
    S16LE,
    S16BE,
    U16LE,
    U16BE,
    S18LE, ///< in 3 bytes, as are all of 18, 20 and 24 bits without a number of their own
    S18BE,
    U18LE,
    U18BE,
    S20LE,
    S20BE,
    U20LE,
    U20BE,
    S24LE,
    S24BE,
    U24LE,
    U24BE,
    S24_32LE, ///< 24 bits in 4 bytes
    S24_32BE,
    U24_32LE,
    U24_32BE,
    S32LE,
    S32BE,
    U32LE,
    U32BE,
    F32LE,
    F32BE,
    F64LE,
    F64BE,
};

/// Reads ALSA's name of a format, "S24_3LE". False, and `format` as it was, for any other text.
bool fromSndPcmString(PcmFormat& format, const std::string& name);

/// GStreamer's name of a format, "S24LE".
std::string toGstString(PcmFormat format);
} // namespace audioUtils
