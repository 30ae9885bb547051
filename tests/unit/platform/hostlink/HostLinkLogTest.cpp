#include "platform/hostlink/HostLinkLog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using Level = HostLinkLog::Level;

namespace
{

class HostLinkLogTest : public testing::Test
{
protected:
    ~HostLinkLogTest() override { HostLinkLog::setSink({}); }
};

} // namespace

TEST_F(HostLinkLogTest, HandsLevelAndTextToItsSink)
{
    std::vector<std::pair<Level, std::string>> lines;
    HostLinkLog::setSink([&](Level level, const std::string& text) { lines.emplace_back(level, text); });
    HostLinkLog::write(Level::Debug, "one");
    HostLinkLog::write(Level::Error, "two");
    EXPECT_EQ(lines,
              (std::vector<std::pair<Level, std::string>>{{Level::Debug, "one"}, {Level::Error, "two"}}));
}

TEST_F(HostLinkLogTest, WritesWarningsAndErrorsToStderrByDefault)
{
    HostLinkLog::setSink([](Level, const std::string&) { ADD_FAILURE() << "this sink was replaced"; });
    HostLinkLog::setSink({});
    testing::internal::CaptureStderr();
    HostLinkLog::write(Level::Debug, "quiet");
    HostLinkLog::write(Level::Info, "quiet too");
    HostLinkLog::write(Level::Warning, "line lost");
    HostLinkLog::write(Level::Error, "device lost, 100% sure");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "hostlink: line lost\nhostlink: device lost, 100% sure\n");
}

TEST_F(HostLinkLogTest, CallsTheSinkFromOneThreadAtATime)
{
    int lines = 0; // unguarded on purpose: the log is the guard
    std::atomic<int> inside = 0;
    std::atomic<int> overlaps = 0;
    HostLinkLog::setSink([&](Level, const std::string&) {
        overlaps += inside++ == 0 ? 0 : 1;
        std::this_thread::yield();
        ++lines;
        --inside;
    });
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int n = 0; n < 1000; ++n) {
                HostLinkLog::write(Level::Warning, "x");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(lines, 4000);
    EXPECT_EQ(overlaps, 0);
}
