#pragma once

#include <log4cplus/consoleappender.h>

#include <functional>

#include "runtime/LogLimiter.h"

/// The log on standard error, in which a peer can neither drown nor forge lines: each is one line without
/// control characters and of at most kLongestLine bytes, and LogLimiter counts what comes too often. Lines
/// below the level info are not limited: whoever turns them on looks for each of them.
class ConsoleLog : public log4cplus::ConsoleAppender
{
public:
    static constexpr std::size_t kLongestLine = 1024;

    using Clock = std::function<LogLimiter::Time()>;

    explicit ConsoleLog(Clock clock = std::chrono::steady_clock::now);
    ~ConsoleLog() override;

    /// Called, on the thread that logs, whenever lines begin to be held back: tellHeld() is due
    /// LogLimiter::kInterval later. Nothing for nobody.
    void setHeldObserver(std::function<void()> observer);

    /// Prints how many lines an interval that is over has held back. The next line does so too.
    void tellHeld();

    /// Prints the same of the interval that is not over.
    void close() override;

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override;

private:
    void print(const LogLimiter::Held& held);
    void print(const LogLimiter::Line& line);

    const Clock m_clock;
    LogLimiter m_limiter;
    std::function<void()> m_heldObserver;
};
