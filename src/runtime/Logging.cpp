#include "runtime/Logging.h"

#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/loggingmacros.h>

#include <QCoreApplication>
#include <QTimer>

#include "platform/hostlink/HostLinkLog.h"
#include "runtime/ConsoleLog.h"

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

log4cplus::LogLevel levelOf(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg: return log4cplus::DEBUG_LOG_LEVEL;
    case QtInfoMsg: return log4cplus::INFO_LOG_LEVEL;
    case QtWarningMsg: return log4cplus::WARN_LOG_LEVEL;
    case QtCriticalMsg: return log4cplus::ERROR_LOG_LEVEL;
    case QtFatalMsg: return log4cplus::FATAL_LOG_LEVEL;
    }
    return log4cplus::ERROR_LOG_LEVEL;
}

using ConsoleLogPtr = log4cplus::helpers::SharedObjectPtr<ConsoleLog>;

/// Has the log tell what it held back though nothing else is logged then. The timer runs for nothing else, so
/// that a quiet log wakes nobody.
void tellHeldInTime(const ConsoleLogPtr& console)
{
    auto* timer = new QTimer(QCoreApplication::instance());
    timer->setSingleShot(true);
    timer->setTimerType(Qt::PreciseTimer); // a coarse one may be early
    timer->setInterval(LogLimiter::kInterval);
    QObject::connect(timer, &QTimer::timeout, [console] { console->tellHeld(); });
    QObject::connect(timer, &QObject::destroyed, [console] { console->setHeldObserver({}); });
    console->setHeldObserver([timer] {
        QMetaObject::invokeMethod(
            timer, [timer] { timer->start(); }, Qt::QueuedConnection);
    });
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

    const ConsoleLogPtr console(new ConsoleLog);
    console->setLayout(std::make_unique<log4cplus::PatternLayout>("%D{%H:%M:%S.%q} %-5p %c: %m%n"));
    tellHeldInTime(console);
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.addAppender(log4cplus::SharedAppenderPtr(console.get()));
    for (const Level& known : kLevels) {
        if (level == known.name) {
            root.setLogLevel(known.level);
        }
    }
    routeLinkLog();
    routeQtLog();
}

void routeLinkLog()
{
    HostLinkLog::setSink(
        [logger = log4cplus::Logger::getInstance("HostLink.Link")](
            HostLinkLog::Level linkLevel, const std::string& text) { logger.log(levelOf(linkLevel), text); });
}

void routeQtLog()
{
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString& text) {
        log4cplus::Logger::getInstance("Qt").log(levelOf(type), text.toStdString());
    });
}
