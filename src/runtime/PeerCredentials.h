#pragma once

/// True when the process at the other end of a connected Unix socket is of this process's own user or of
/// root. To one that has connected, the other end is the process that listens.
bool isOfOwnUserOrRoot(int socket);
