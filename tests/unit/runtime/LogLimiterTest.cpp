#include "runtime/LogLimiter.h"

#include <gtest/gtest.h>

namespace
{
using namespace std::chrono_literals;

constexpr int kWarning = 30000;
constexpr int kError = 40000;

class LogLimiterTest : public testing::Test
{
protected:
    bool say(const std::string& text, int level = kError, const std::string& logger = "HostLink")
    {
        return m_limiter.passes({logger, level, text}, m_now);
    }

    /// How many of so many lines pass.
    int flood(int lines, const std::string& text)
    {
        int passed = 0;
        for (int i = 0; i < lines; ++i) {
            passed += say(text) ? 1 : 0;
        }
        return passed;
    }

    LogLimiter m_limiter;
    LogLimiter::Time m_now{1h};
};

/// Texts that differ in letters.
std::string word(int number)
{
    std::string letters;
    for (; number > 0; number /= 26) {
        letters += static_cast<char>('a' + number % 26);
    }
    return "kind " + letters;
}
} // namespace

TEST_F(LogLimiterTest, TheFirstLinesOfAKindPassAndTheRestIsCounted)
{
    EXPECT_EQ(flood(1000, "broken"), LogLimiter::kMostOfAKind);
    const LogLimiter::Held held = m_limiter.takeAll();
    ASSERT_EQ(held.kinds.size(), 1u);
    EXPECT_EQ(held.kinds[0].count, 990u);
    EXPECT_EQ(held.kinds[0].last.text, "broken");
    EXPECT_EQ(held.kinds[0].last.logger, "HostLink");
    EXPECT_EQ(held.kinds[0].last.level, kError);
    EXPECT_EQ(held.others, 0u);
}

TEST_F(LogLimiterTest, AFloodHidesNoOtherLine)
{
    flood(1000, "broken");
    EXPECT_TRUE(say("something else"));
    EXPECT_TRUE(say("broken", kWarning));
    EXPECT_TRUE(say("broken", kError, "Runtime.NodeApi"));
    EXPECT_FALSE(say("broken"));
}

TEST_F(LogLimiterTest, LinesThatDifferInTheirNumbersAreOfOneKind)
{
    int passed = 0;
    for (int i = 0; i < 1000; ++i) {
        passed += say("no connection " + std::to_string(i) + ", 0x" + std::to_string(i % 7)) ? 1 : 0;
    }
    EXPECT_EQ(passed, LogLimiter::kMostOfAKind);
    const LogLimiter::Held held = m_limiter.takeAll();
    ASSERT_EQ(held.kinds.size(), 1u);
    EXPECT_EQ(held.kinds[0].last.text, "no connection 999, 0x5") << "the newest one speaks for the rest";
}

TEST_F(LogLimiterTest, WithoutAFloodNothingIsHeldBack)
{
    EXPECT_EQ(flood(LogLimiter::kMostOfAKind, "broken"), LogLimiter::kMostOfAKind);
    EXPECT_FALSE(m_limiter.holds());
    m_now += LogLimiter::kInterval;
    EXPECT_TRUE(m_limiter.takeEnded(m_now).kinds.empty());
}

TEST_F(LogLimiterTest, WhatIsHeldBackIsTakenWhenTheIntervalIsOver)
{
    flood(11, "broken");
    EXPECT_TRUE(m_limiter.holds());
    m_now += LogLimiter::kInterval - 1ms;
    EXPECT_TRUE(m_limiter.takeEnded(m_now).kinds.empty());
    EXPECT_FALSE(say("broken"));
    m_now += 1ms;
    const LogLimiter::Held held = m_limiter.takeEnded(m_now);
    ASSERT_EQ(held.kinds.size(), 1u);
    EXPECT_EQ(held.kinds[0].count, 2u);
    EXPECT_FALSE(m_limiter.holds());
    EXPECT_TRUE(m_limiter.takeEnded(m_now).kinds.empty()) << "told once";
}

TEST_F(LogLimiterTest, EachIntervalBeginsAnew)
{
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(flood(1000, "broken"), LogLimiter::kMostOfAKind);
        m_now += LogLimiter::kInterval;
    }
}

TEST_F(LogLimiterTest, AnIntervalBeginsWithALineNotWithTheClock)
{
    flood(1, "broken");
    m_now += 100 * LogLimiter::kInterval + 7s;
    EXPECT_EQ(flood(20, "broken"), LogLimiter::kMostOfAKind);
    m_now += LogLimiter::kInterval - 1ms;
    EXPECT_FALSE(say("broken"));
}

TEST_F(LogLimiterTest, AllKindsTogetherAreBoundedAndTheOthersCounted)
{
    int passed = 0;
    for (int i = 1; i <= 100000; ++i) {
        passed += say(word(i)) ? 1 : 0;
    }
    EXPECT_EQ(passed, LogLimiter::kMost);
    EXPECT_FALSE(say(word(1))) << "a known kind waits too";
    const LogLimiter::Held held = m_limiter.takeAll();
    EXPECT_EQ(held.others, 100000u - LogLimiter::kMost);
    ASSERT_EQ(held.kinds.size(), 1u) << "kinds of which nothing passed cost no memory";
    EXPECT_EQ(held.kinds[0].count, 1u);
}
