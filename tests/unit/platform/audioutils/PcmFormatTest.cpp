#include "platform/audioutils/PcmFormat.h"

#include <gtest/gtest.h>

#include <set>

namespace
{
using audioUtils::PcmFormat;

struct Names {
    const char* alsa;
    const char* gst;
};

constexpr Names kNames[] = {
    {"S8", "S8"},
    {"U8", "U8"},
    {"S16_LE", "S16LE"},
    {"S16_BE", "S16BE"},
    {"U16_LE", "U16LE"},
    {"U16_BE", "U16BE"},
    {"S18_3LE", "S18LE"},
    {"S18_3BE", "S18BE"},
    {"U18_3LE", "U18LE"},
    {"U18_3BE", "U18BE"},
    {"S20_3LE", "S20LE"},
    {"S20_3BE", "S20BE"},
    {"U20_3LE", "U20LE"},
    {"U20_3BE", "U20BE"},
    {"S24_3LE", "S24LE"},
    {"S24_3BE", "S24BE"},
    {"U24_3LE", "U24LE"},
    {"U24_3BE", "U24BE"},
    {"S24_LE", "S24_32LE"},
    {"S24_BE", "S24_32BE"},
    {"U24_LE", "U24_32LE"},
    {"U24_BE", "U24_32BE"},
    {"S32_LE", "S32LE"},
    {"S32_BE", "S32BE"},
    {"U32_LE", "U32LE"},
    {"U32_BE", "U32BE"},
    {"FLOAT_LE", "F32LE"},
    {"FLOAT_BE", "F32BE"},
    {"FLOAT64_LE", "F64LE"},
    {"FLOAT64_BE", "F64BE"},
};
} // namespace

TEST(PcmFormat, EachNameOfAlsaBecomesTheOneOfGStreamer)
{
    std::set<PcmFormat> formats;
    for (const Names& names : kNames) {
        PcmFormat format{};
        ASSERT_TRUE(audioUtils::fromSndPcmString(format, names.alsa)) << names.alsa;
        EXPECT_EQ(audioUtils::toGstString(format), names.gst);
        formats.insert(format);
    }
    EXPECT_EQ(formats.size(), std::size(kNames));
}

TEST(PcmFormat, AnyOtherTextIsRefusedAndLeavesTheFormat)
{
    for (const std::string name : {"", "S24LE", "s16_le", "S16", "S16_LE ", "S20_LE", "MU_LAW", "DSD_U8"}) {
        PcmFormat format = PcmFormat::U32BE;
        EXPECT_FALSE(audioUtils::fromSndPcmString(format, name)) << name;
        EXPECT_EQ(format, PcmFormat::U32BE);
    }
}

TEST(PcmFormat, AFormatWithoutANameHasAnEmptyOne)
{
    EXPECT_EQ(audioUtils::toGstString(PcmFormat(1000)), "");
}
