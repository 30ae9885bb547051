#include "cli/JsonText.h"

#include <gtest/gtest.h>

TEST(JsonString, EscapesWhatJsonDoesNotAllow)
{
    EXPECT_EQ(jsonString(""), R"("")");
    EXPECT_EQ(jsonString("a \"b\" \\ /"), R"("a \"b\" \\ /")");
    EXPECT_EQ(jsonString("\t\r\n"), R"("\t\r\n")");
    EXPECT_EQ(jsonString(std::string_view("\0\x01\x1f\x7f", 4)), R"("\u0000\u0001\u001f\u007f")");
}

TEST(JsonString, EscapesControlCharactersOfTwoBytes)
{
    EXPECT_EQ(jsonString("\xC2\x80\xC2\x85\xC2\x9F"), R"("\u0080\u0085\u009f")");
    EXPECT_EQ(jsonString("\xC2\xA0\xC3\x85"), "\"\xC2\xA0\xC3\x85\"");
}

TEST(JsonString, KeepsUtf8)
{
    EXPECT_EQ(jsonString("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xB5"), "\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xB5\"");
}

TEST(JsonString, ReplacesEachByteThatIsNotUtf8)
{
    EXPECT_EQ(jsonString("a\xFF\x80z"), R"("a\ufffd\ufffdz")");
    EXPECT_EQ(jsonString("\xE2\x82"), R"("\ufffd\ufffd")");
    EXPECT_EQ(jsonString("\xED\xA0\x80"), R"("\ufffd\ufffd\ufffd")") << "a surrogate";
}
