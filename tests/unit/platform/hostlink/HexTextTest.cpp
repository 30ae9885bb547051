#include "platform/hostlink/HexText.h"

#include <gtest/gtest.h>

TEST(HexText, WritesBytesInLowerCaseAndIdsInUpperCase)
{
    EXPECT_EQ(hexText({0x00, 0xAB, 0x0F}), "00ab0f");
    EXPECT_EQ(hexText({}), "");
    EXPECT_EQ(hexNumber(0xF00A), "0xF00A");
    EXPECT_EQ(hexNumber(0), "0x0000");
}

TEST(HexText, EscapesEachByte)
{
    EXPECT_EQ(escapedBytes("\n\xC2\x85"), R"(\x0a\xc2\x85)");
    EXPECT_EQ(escapedBytes(""), "");
}

TEST(HexText, EscapesControlsAndNothingElse)
{
    EXPECT_EQ(withoutControls("\x1B[2J\x7F\xC2\x85 \t\n\\ \xC3\x85 \x85"),
              "\\x1b[2J\\x7f\\xc2\\x85 \\x09\\x0a\\ \xC3\x85 \x85");
    EXPECT_EQ(withoutControls("\t\n\r", "\t\n"), "\t\n\\x0d");
    EXPECT_EQ(withoutControls(""), "");
}

TEST(HexText, ReadsPairsOfDigitsInEitherCase)
{
    EXPECT_EQ(parseHex("00abCD"), (ByteArray{0x00, 0xAB, 0xCD}));
    EXPECT_EQ(parseHex(""), ByteArray());
}

TEST(HexText, RefusesAnythingElse)
{
    for (const char* text : {"0", "000", "0g", "g0", "0x01", "-1", "+1", " 1", "1 ", "0 1 "}) {
        EXPECT_EQ(parseHex(text), std::nullopt) << text;
    }
}
