#pragma once

#include <string>

/// Writes one line to standard output at once. What goes to a terminal has control characters other than tab
/// and line feed as \xNN, since text of others may hold commands to it. Waits while what reads it is behind,
/// and gives up what is left of the line when the descriptor of setOutputInterrupt() is readable meanwhile.
/// Throws std::system_error when nobody reads any more.
void putLine(const std::string& line);

/// What ends the wait of putLine(); -1 for nothing.
void setOutputInterrupt(int descriptor);
