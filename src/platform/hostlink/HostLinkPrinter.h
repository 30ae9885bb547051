#pragma once

#include <string>

#include "platform/hostlink/ByteArray.h"
#include "vocabulary/MessageIds.h"
#include "vocabulary/States.h"

/// Readable forms of what travels on the link, for logs and tools.
class HostLinkPrinter
{
public:
    /// The state's name with its prefix "STA_", or 0x and four hexadecimal digits without one.
    static std::string printHostLinkState(State state);

    /// The message's name, or 0x and four hexadecimal digits without one.
    static std::string printMessageId(MessageId id);

    /// One line for a whole message: its name, then each value as TAG=type:value or each number.
    /// Bytes behind the last whole value are counted at the end of the line. Never fails.
    static std::string printMessage(const ByteArray& message);
};
