#include "modules/hostlink/Log.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "support/LogCapture.h"

namespace
{

int computed = 0;

int detail()
{
    return ++computed;
}

void traced()
{
    HOSTLINK_TRACE_FUNCTION_WITH("detail " << detail());
}

void throwing()
{
    HOSTLINK_TRACE_FUNCTION();
    throw std::runtime_error("on the way");
}

TEST(LogTest, AFunctionTracesItsBeginWithADetailAndItsEnd)
{
    computed = 0;
    const LogCapture log;
    traced();
    const std::vector<std::string> expected{"Enter void {anonymous}::traced(): detail 1",
                                            "Leave void {anonymous}::traced()"};
    EXPECT_EQ(log.traces(), expected);
}

TEST(LogTest, AFunctionThatThrowsTracesItsEndToo)
{
    const LogCapture log;
    EXPECT_THROW(throwing(), std::runtime_error);
    const std::vector<std::string> expected{"Enter void {anonymous}::throwing()",
                                            "Leave void {anonymous}::throwing()"};
    EXPECT_EQ(log.traces(), expected);
}

TEST(LogTest, NothingIsComputedForALevelThatIsOff)
{
    computed = 0;
    const LogCapture log(log4cplus::DEBUG_LOG_LEVEL);
    traced();
    EXPECT_EQ(computed, 0);
    EXPECT_TRUE(log.lines().empty());
}

} // namespace
