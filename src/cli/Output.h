#pragma once

#include <string>

/// Writes one line to standard output and flushes it. Throws std::system_error when nobody reads any more.
void putLine(const std::string& line);
