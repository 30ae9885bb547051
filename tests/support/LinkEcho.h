#pragma once

#include "platform/hostlink/ByteArray.h"

/// Asks a link_echo for the number of its sessions.
inline const ByteArray kCountSessions{0x7f, 0x01};
