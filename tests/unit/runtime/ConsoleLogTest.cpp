#include "runtime/ConsoleLog.h"

#include <gtest/gtest.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <iostream>
#include <sstream>
#include <thread>

#include "runtime/Logging.h"
#include "support/LogCapture.h"

namespace
{
using namespace std::chrono_literals;
using Texts = std::vector<std::string>;

/// A logger of the tests' own that writes to a ConsoleLog, and what that prints.
class ConsoleLogTest : public testing::Test
{
protected:
    ConsoleLogTest()
    {
        m_console->setLayout(std::make_unique<log4cplus::PatternLayout>("%p %c: %m%n"));
        m_logger.setLogLevel(log4cplus::TRACE_LOG_LEVEL);
        m_logger.setAdditivity(false);
        m_logger.addAppender(log4cplus::SharedAppenderPtr(m_console.get()));
    }
    ~ConsoleLogTest() override
    {
        m_logger.removeAllAppenders();
        std::cerr.rdbuf(m_before);
    }

    /// The lines printed since the last call.
    Texts lines()
    {
        std::istringstream text(m_printed.str());
        m_printed.str({});
        Texts lines;
        for (std::string line; std::getline(text, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    void fail(int times)
    {
        for (int i = 0; i < times; ++i) {
            LOG4CPLUS_ERROR(m_logger, "connection " << i << " is gone");
        }
    }

    LogLimiter::Time m_now{1h};
    std::ostringstream m_printed;
    std::streambuf* m_before = std::cerr.rdbuf(m_printed.rdbuf());
    log4cplus::helpers::SharedObjectPtr<ConsoleLog> m_console{new ConsoleLog([this] { return m_now; })};
    log4cplus::Logger m_logger = log4cplus::Logger::getInstance("ConsoleLogTest");
};
} // namespace

TEST_F(ConsoleLogTest, PrintsALineAsItsLayoutSays)
{
    LOG4CPLUS_WARN(m_logger, "sch\xC3\xB6n");
    EXPECT_EQ(lines(), Texts{"WARN ConsoleLogTest: sch\xC3\xB6n"});
}

TEST_F(ConsoleLogTest, TellsHowManyLinesAFloodHadBeyondTheFirst)
{
    fail(1000);
    EXPECT_EQ(lines().size(), 10u);
    m_now += LogLimiter::kInterval;
    m_console->tellHeld();
    EXPECT_EQ(lines(), Texts{"ERROR ConsoleLogTest: 990 more lines like: connection 999 is gone"});
    m_console->tellHeld();
    EXPECT_EQ(lines(), Texts{});
}

TEST_F(ConsoleLogTest, TheNextLineTellsItToo)
{
    fail(11);
    lines();
    m_now += LogLimiter::kInterval;
    LOG4CPLUS_INFO(m_logger, "later");
    const Texts expected{"ERROR ConsoleLogTest: 1 more lines like: connection 10 is gone",
                         "INFO ConsoleLogTest: later"};
    EXPECT_EQ(lines(), expected);
}

TEST_F(ConsoleLogTest, TheEndOfTheLogTellsWhatAnIntervalHasHeldBackSoFar)
{
    fail(12);
    lines();
    m_console->close();
    EXPECT_EQ(lines(), Texts{"ERROR ConsoleLogTest: 2 more lines like: connection 11 is gone"});
}

TEST_F(ConsoleLogTest, TellsOfKindsOfWhichItPrintedNothing)
{
    for (char first = 'a'; first <= 'z'; ++first) {
        for (char second = 'a'; second <= 'z'; ++second) {
            LOG4CPLUS_ERROR(m_logger, first << second);
        }
    }
    EXPECT_EQ(lines().size(), 100u);
    m_now += LogLimiter::kInterval;
    m_console->tellHeld();
    EXPECT_EQ(lines(), Texts{"WARN Runtime.Log: 576 more lines of other kinds"});
}

TEST_F(ConsoleLogTest, LinesThatWereTurnedOnForALookAreAllThere)
{
    for (int i = 0; i < 1000; ++i) {
        LOG4CPLUS_TRACE(m_logger, "Enter");
        LOG4CPLUS_DEBUG(m_logger, "message " << i);
    }
    EXPECT_EQ(lines().size(), 2000u);
}

TEST_F(ConsoleLogTest, SaysOnceThatItBeginsToHoldLinesBack)
{
    int calls = 0;
    m_console->setHeldObserver([&] { ++calls; });
    fail(10);
    EXPECT_EQ(calls, 0);
    fail(100);
    EXPECT_EQ(calls, 1);
    m_now += LogLimiter::kInterval;
    fail(100);
    EXPECT_EQ(calls, 2);
    m_console->setHeldObserver({});
    m_now += LogLimiter::kInterval;
    fail(100);
    EXPECT_EQ(calls, 2);
}

TEST_F(ConsoleLogTest, NobodyForgesALine)
{
    LOG4CPLUS_ERROR(m_logger, "name 'x'\n12:00:00 ERROR root: forged\r\x1B[2J\t" << std::string(1, '\0'));
    EXPECT_EQ(lines(),
              Texts{R"(ERROR ConsoleLogTest: name 'x'\x0a12:00:00 ERROR root: forged\x0d\x1b[2J\x09\x00)"});
    LOG4CPLUS_TRACE(m_logger, "a\nb\x7F");
    EXPECT_EQ(lines(), Texts{R"(TRACE ConsoleLogTest: a\x0ab\x7f)"});
}

TEST_F(ConsoleLogTest, NobodyForgesALineByControlCharactersOfTwoBytes)
{
    LOG4CPLUS_ERROR(m_logger, "a\xC2\x85"
                              "forged \xC2\x80\xC2\x9F");
    EXPECT_EQ(lines(), Texts{R"(ERROR ConsoleLogTest: a\xc2\x85forged \xc2\x80\xc2\x9f)"});
}

TEST_F(ConsoleLogTest, OtherCharactersAndBytesStayAsTheyAre)
{
    const std::string text = "\xC2\xA0 \xC3\xBC \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x8E\xB5 \xFF \xC2";
    LOG4CPLUS_ERROR(m_logger, text);
    EXPECT_EQ(lines(), Texts{"ERROR ConsoleLogTest: " + text});
}

TEST_F(ConsoleLogTest, LongLinesAreCut)
{
    LOG4CPLUS_ERROR(m_logger, std::string(ConsoleLog::kLongestLine, 'x'));
    EXPECT_EQ(lines(), Texts{"ERROR ConsoleLogTest: " + std::string(1024, 'x')});
    LOG4CPLUS_ERROR(m_logger, std::string(65535, 'x'));
    EXPECT_EQ(lines(), Texts{"ERROR ConsoleLogTest: " + std::string(1024, 'x') + "... (64511 more bytes)"});
}

TEST_F(ConsoleLogTest, ManyThreadsMayLog)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this] { fail(1000); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    m_console->close();
    const Texts printed = lines();
    ASSERT_EQ(printed.size(), 11u);
    EXPECT_EQ(printed.back().find("ERROR ConsoleLogTest: 3990 more lines like: "), 0u) << printed.back();
}

TEST(Logging, WhatQtSaysIsALineOfTheLog)
{
    const LogCapture log(log4cplus::TRACE_LOG_LEVEL, "Qt");
    routeQtLog();
    qDebug("one");
    qInfo("two");
    qWarning("three");
    qCritical("four");
    qInstallMessageHandler(nullptr);
    EXPECT_EQ(log.debugs(), Texts{"one"});
    EXPECT_EQ(log.infos(), Texts{"two"});
    EXPECT_EQ(log.warnings(), Texts{"three"});
    EXPECT_EQ(log.errors(), Texts{"four"});
}
