#pragma once

#include <string>

#include "platform/hostlink/HostLinkCounters.h"

/// {"NAME":VALUE,...} with all counters.
std::string countersJson(const HostLinkCounters& counters);

/// Prints the counters of one link to standard error, as one line: "stats link=NAME NAME=VALUE ..." or an
/// object {"link":NAME,"stats":{...}}.
void printStats(const std::string& link, const HostLinkCounters& counters, bool json);

/// From now on every link of the process is traced to standard error, each line with the time of day in
/// front (see HostLinkTrace).
void printTrace();
