#pragma once

#include <string>

/// Writes one line to standard output and flushes it. What goes to a terminal has control characters other
/// than tab and line feed as \xNN, since text of others may hold commands to it. Throws std::system_error
/// when nobody reads any more.
void putLine(const std::string& line);
