#include "services/PlayerVolume.h"

#include <gtest/gtest.h>

#include "platform/sdk/CMItem.h"
#include "platform/sdk/Paths.h"

TEST(PlayerVolume, DeclaresItsLimits)
{
    const PlayerVolume volume;
    const CMItem item(nullptr, VornPlayerVolumePath());
    EXPECT_EQ(item.roles().value().i32(), 25);
    EXPECT_EQ(item.roles().edit().min().i32(), 0);
    EXPECT_EQ(item.roles().edit().max().i32(), 100);
}
