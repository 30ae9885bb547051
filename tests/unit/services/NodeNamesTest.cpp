#include "services/NodeNames.h"

#include <gtest/gtest.h>

TEST(NodeNames, APathIsItself)
{
    EXPECT_EQ(resolveNodeName("/player/mute").toString(), "/player/mute");
    EXPECT_EQ(resolveNodeName("/x").toString(), "/x");
}

TEST(NodeNames, AnAccessorIsItsPath)
{
    EXPECT_EQ(resolveNodeName("VornPlayerMutePath").toString(), "/player/mute");
    EXPECT_EQ(resolveNodeName("VornUIDisplayBrightnessPath").toString(), "/ui/displayBrightness");
}

TEST(NodeNames, ARelativePathStandsBelowThePlayerInstance)
{
    EXPECT_EQ(resolveNodeName("VornPlayLogicPlayTimePath").toString(), "/player/instance/playTime");
}

TEST(NodeNames, NothingElseIsAPath)
{
    for (const char* name : {"", "/", "player/mute", "/player/", "//player", "/player//mute",
                             "VornPlayerMute", "vornPlayerMutePath", "VornPlayerMutePath "}) {
        EXPECT_TRUE(resolveNodeName(name).isEmpty()) << name;
    }
}
