#include "platform/audioutils/PcmFormat.h"

#include <string_view>

namespace audioUtils
{
namespace
{
struct FormatRow {
    PcmFormat format;
    std::string_view alsa;
    std::string_view gst;
};

constexpr FormatRow kFormats[] = {
    {PcmFormat::S8, "S8", "S8"},
    {PcmFormat::U8, "U8", "U8"},
    {PcmFormat::S16LE, "S16_LE", "S16LE"},
    {PcmFormat::S16BE, "S16_BE", "S16BE"},
    {PcmFormat::U16LE, "U16_LE", "U16LE"},
    {PcmFormat::U16BE, "U16_BE", "U16BE"},
    {PcmFormat::S18LE, "S18_3LE", "S18LE"},
    {PcmFormat::S18BE, "S18_3BE", "S18BE"},
    {PcmFormat::U18LE, "U18_3LE", "U18LE"},
    {PcmFormat::U18BE, "U18_3BE", "U18BE"},
    {PcmFormat::S20LE, "S20_3LE", "S20LE"},
    {PcmFormat::S20BE, "S20_3BE", "S20BE"},
    {PcmFormat::U20LE, "U20_3LE", "U20LE"},
    {PcmFormat::U20BE, "U20_3BE", "U20BE"},
    {PcmFormat::S24LE, "S24_3LE", "S24LE"},
    {PcmFormat::S24BE, "S24_3BE", "S24BE"},
    {PcmFormat::U24LE, "U24_3LE", "U24LE"},
    {PcmFormat::U24BE, "U24_3BE", "U24BE"},
    {PcmFormat::S24_32LE, "S24_LE", "S24_32LE"},
    {PcmFormat::S24_32BE, "S24_BE", "S24_32BE"},
    {PcmFormat::U24_32LE, "U24_LE", "U24_32LE"},
    {PcmFormat::U24_32BE, "U24_BE", "U24_32BE"},
    {PcmFormat::S32LE, "S32_LE", "S32LE"},
    {PcmFormat::S32BE, "S32_BE", "S32BE"},
    {PcmFormat::U32LE, "U32_LE", "U32LE"},
    {PcmFormat::U32BE, "U32_BE", "U32BE"},
    {PcmFormat::F32LE, "FLOAT_LE", "F32LE"},
    {PcmFormat::F32BE, "FLOAT_BE", "F32BE"},
    {PcmFormat::F64LE, "FLOAT64_LE", "F64LE"},
    {PcmFormat::F64BE, "FLOAT64_BE", "F64BE"},
};
} // namespace

bool fromSndPcmString(PcmFormat& format, const std::string& name)
{
    for (const FormatRow& row : kFormats) {
        if (row.alsa == name) {
            format = row.format;
            return true;
        }
    }
    return false;
}

std::string toGstString(PcmFormat format)
{
    for (const FormatRow& row : kFormats) {
        if (row.format == format) {
            return std::string(row.gst);
        }
    }
    return {};
}
} // namespace audioUtils
