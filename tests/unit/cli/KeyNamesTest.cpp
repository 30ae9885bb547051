#include "cli/KeyNames.h"

#include <gtest/gtest.h>

namespace
{

TEST(KeyNames, NamesAreThoseOfLinux)
{
    EXPECT_EQ(keyCode("KEY_VOLUMEUP"), 115);
    EXPECT_EQ(keyCode("volumeup"), 115);
    EXPECT_EQ(keyCode("Key_Mute"), 113);
    EXPECT_EQ(keyCode("BTN_LEFT"), 0x110);
    EXPECT_EQ(keyCode("KEY_1"), 2);
    EXPECT_EQ(keyCode("KEY_MACRO30"), 0x2AD);
}

TEST(KeyNames, NumbersAreCodes)
{
    EXPECT_EQ(keyCode("0"), 0);
    EXPECT_EQ(keyCode("1"), 1);
    EXPECT_EQ(keyCode("0x2ff"), 767);
    EXPECT_EQ(keyCode("65535"), 65535);
}

TEST(KeyNames, WhatIsNeitherIsNone)
{
    for (const char* text :
         {"", "KEY_", "KEY_MAX", "KEY_CNT", "VOLUMUP", "65536", "-1", "0x", "0x10000", "11 5"}) {
        EXPECT_FALSE(keyCode(text)) << text;
    }
    EXPECT_EQ(similarKeys("KEY_VOLUMUP"), "; did you mean KEY_VOLUMEUP?");
}

} // namespace
