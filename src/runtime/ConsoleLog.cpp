#include "runtime/ConsoleLog.h"

#include <log4cplus/spi/loggingevent.h>
#include <log4cplus/thread/syncprims.h>

#include <utility>

#include "platform/hostlink/HexText.h"

namespace
{
using Event = log4cplus::spi::InternalLoggingEvent;

constexpr bool kToStandardError = true;
constexpr bool kFlushEachLine = true;

std::string cut(std::string text)
{
    if (text.size() > ConsoleLog::kLongestLine) {
        const std::size_t rest = text.size() - ConsoleLog::kLongestLine;
        text.resize(ConsoleLog::kLongestLine);
        text += "... (" + std::to_string(rest) + " more bytes)";
    }
    return text;
}
} // namespace

ConsoleLog::ConsoleLog(Clock clock)
    : ConsoleAppender(kToStandardError, kFlushEachLine), m_clock(std::move(clock))
{
}

ConsoleLog::~ConsoleLog()
{
    destructorImpl();
}

void ConsoleLog::setHeldObserver(std::function<void()> observer)
{
    const log4cplus::thread::MutexGuard guard(access_mutex);
    m_heldObserver = std::move(observer);
}

void ConsoleLog::tellHeld()
{
    const log4cplus::thread::MutexGuard guard(access_mutex);
    print(m_limiter.takeEnded(m_clock()));
}

void ConsoleLog::close()
{
    const log4cplus::thread::MutexGuard guard(access_mutex);
    print(m_limiter.takeAll());
    ConsoleAppender::close();
}

/// The base class calls this with access_mutex locked.
void ConsoleLog::append(const Event& event)
{
    LogLimiter::Line line{event.getLoggerName(), event.getLogLevel(), withoutControls(event.getMessage())};
    if (line.level < log4cplus::INFO_LOG_LEVEL) {
        return print(line);
    }
    line.text = cut(std::move(line.text));
    const LogLimiter::Time now = m_clock();
    print(m_limiter.takeEnded(now));
    const bool heldBefore = m_limiter.holds();
    if (m_limiter.passes(line, now)) {
        print(line);
    } else if (!heldBefore && m_heldObserver) {
        m_heldObserver();
    }
}

void ConsoleLog::print(const LogLimiter::Held& held)
{
    for (const LogLimiter::Held::Kind& kind : held.kinds) {
        print({kind.last.logger, kind.last.level,
               std::to_string(kind.count) + " more lines like: " + kind.last.text});
    }
    if (held.others > 0) {
        print({"Runtime.Log", log4cplus::WARN_LOG_LEVEL,
               std::to_string(held.others) + " more lines of other kinds"});
    }
}

void ConsoleLog::print(const LogLimiter::Line& line)
{
    ConsoleAppender::append(Event(line.logger, line.level, line.text, "", -1));
}
