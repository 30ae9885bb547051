#include "runtime/Logging.h"

#include <log4cplus/consoleappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/loggingmacros.h>

#include "platform/hostlink/HostLinkLog.h"

namespace
{
struct Level {
    const char* name;
    log4cplus::LogLevel level;
};

constexpr Level kLevels[] = {
    {"trace", log4cplus::TRACE_LOG_LEVEL}, {"debug", log4cplus::DEBUG_LOG_LEVEL},
    {"info", log4cplus::INFO_LOG_LEVEL},   {"warn", log4cplus::WARN_LOG_LEVEL},
    {"error", log4cplus::ERROR_LOG_LEVEL}, {"off", log4cplus::OFF_LOG_LEVEL},
};

log4cplus::LogLevel levelOf(HostLinkLog::Level level)
{
    switch (level) {
    case HostLinkLog::Level::Debug: return log4cplus::DEBUG_LOG_LEVEL;
    case HostLinkLog::Level::Info: return log4cplus::INFO_LOG_LEVEL;
    case HostLinkLog::Level::Warning: return log4cplus::WARN_LOG_LEVEL;
    case HostLinkLog::Level::Error: return log4cplus::ERROR_LOG_LEVEL;
    }
    return log4cplus::ERROR_LOG_LEVEL;
}
} // namespace

QStringList logLevelNames()
{
    QStringList names;
    for (const Level& level : kLevels) {
        names += level.name;
    }
    return names;
}

void setUpLogging(const QString& level)
{
    static const log4cplus::Initializer initializer;

    constexpr bool toStandardError = true;
    constexpr bool flushEachLine = true;
    log4cplus::SharedAppenderPtr appender(new log4cplus::ConsoleAppender(toStandardError, flushEachLine));
    appender->setLayout(std::make_unique<log4cplus::PatternLayout>("%D{%H:%M:%S.%q} %-5p %c: %m%n"));
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.addAppender(appender);
    for (const Level& known : kLevels) {
        if (level == known.name) {
            root.setLogLevel(known.level);
        }
    }
    routeLinkLog();
}

void routeLinkLog()
{
    HostLinkLog::setSink(
        [logger = log4cplus::Logger::getInstance("HostLink.Link")](
            HostLinkLog::Level linkLevel, const std::string& text) { logger.log(levelOf(linkLevel), text); });
}
