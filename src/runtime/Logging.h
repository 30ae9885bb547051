#pragma once

#include <QString>
#include <QStringList>

/// Names of the log levels: trace, debug, info, warn, error, off.
QStringList logLevelNames();

/// Sends all log lines from `level` (one of logLevelNames()) up to standard error, the host-link
/// library's too. To be called once, before anything logs.
void setUpLogging(const QString& level);

/// Makes what the host-link library says lines of the logger "HostLink.Link".
void routeLinkLog();
