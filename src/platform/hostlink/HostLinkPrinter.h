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

    /// One line for a whole message: its name, then each value as TAG=type:value (nil without a value)
    /// or each number. States and refused messages are named, other tags are decimal; text stands in
    /// quotes with \xNN for control characters and bytes that are not UTF-8; bytes are hexadecimal, and
    /// so is the whole body of a message without a name. What follows the last whole value is counted at
    /// the end of the line. Never fails.
    static std::string printMessage(const ByteArray& message);
};
