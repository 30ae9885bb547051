#pragma once

#include <QString>
#include <QStringList>

/// Names of the log levels: trace, debug, info, warn, error, off.
QStringList logLevelNames();

/// Sends all log lines from `level` (one of logLevelNames()) up to standard error, the host-link library's
/// and Qt's too, as ConsoleLog limits them. To be called once, before anything logs, with a QCoreApplication,
/// whose event loop then tells in time what was held back.
void setUpLogging(const QString& level);

/// Makes what the host-link library says lines of the logger "HostLink.Link".
void routeLinkLog();

/// Makes what Qt says lines of the logger "Qt".
void routeQtLog();
