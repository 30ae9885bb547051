#include "cli/Suggestions.h"

#include <gtest/gtest.h>

TEST(Suggestions, NearestNameComesFirst)
{
    EXPECT_EQ(suggestions("gett", {"set", "get"}), "; did you mean get, set?");
}

TEST(Suggestions, CaseDoesNotMatter)
{
    EXPECT_EQ(suggestions("STATES", {"states", "decode"}), "; did you mean states?");
}

TEST(Suggestions, AtMostThreeAreMade)
{
    EXPECT_EQ(suggestions("a1", {"a2", "a3", "a4", "a5"}), "; did you mean a2, a3, a4?");
}

TEST(Suggestions, NothingNearIsNoSuggestion)
{
    EXPECT_EQ(suggestions("zebra", {"get", "set"}), "");
    EXPECT_EQ(suggestions("get", {}), "");
}

TEST(Suggestions, EndlessWordIsNotCompared)
{
    EXPECT_EQ(suggestions(std::string(100'000, 'x'), {"get"}), "");
}
