#include "platform/hostlink/Utf8.h"

#include <gtest/gtest.h>

#include <string>

namespace
{

/// The encoding of a code point, by the definition of the format.
std::string encoded(std::uint32_t point)
{
    const auto tail = [&](int shift) { return static_cast<char>(0x80 | ((point >> shift) & 0x3F)); };
    if (point < 0x80) {
        return {static_cast<char>(point)};
    }
    if (point < 0x800) {
        return {static_cast<char>(0xC0 | point >> 6), tail(0)};
    }
    if (point < 0x10000) {
        return {static_cast<char>(0xE0 | point >> 12), tail(6), tail(0)};
    }
    return {static_cast<char>(0xF0 | point >> 18), tail(12), tail(6), tail(0)};
}

} // namespace

TEST(Utf8, AcceptsEveryCodePointButSurrogates)
{
    for (std::uint32_t point = 0; point <= 0x10FFFF; ++point) {
        const std::string text = encoded(point);
        const bool surrogate = point >= 0xD800 && point <= 0xDFFF;
        ASSERT_EQ(utf8SequenceLength(text + "x"), surrogate ? 0 : text.size()) << std::hex << point;
        ASSERT_EQ(utf8SequenceLength(std::string_view(text).substr(0, text.size() - 1)), 0U) << "cut off";
    }
}

TEST(Utf8, RefusesWhatIsNotUtf8)
{
    for (const char* text :
         {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80",
          "\xF5\x80\x80\x80", "\xFE", "\xFF", "\xC3z", "\xE2\x82z", "\xE2z\xAC", "\xF0\x9F\x8Ez"}) {
        EXPECT_EQ(utf8SequenceLength(text), 0U) << testing::PrintToString(std::string(text));
    }
    EXPECT_EQ(utf8SequenceLength(""), 0U);
}

TEST(Utf8, TellsControlCharacters)
{
    for (std::uint32_t point = 0; point <= 0x10FFFF; ++point) {
        const std::string text = encoded(point);
        const bool surrogate = point >= 0xD800 && point <= 0xDFFF;
        const bool control = point < 0x20 || (point >= 0x7F && point < 0xA0);
        ASSERT_EQ(firstCharacter(text + "x"), surrogate ? text.substr(0, 1) : text) << std::hex << point;
        ASSERT_EQ(isControl(firstCharacter(text)), control) << std::hex << point;
    }
    EXPECT_EQ(firstCharacter("\x85x"), "\x85");
    EXPECT_FALSE(isControl("\x85")) << "no character";
}
