#pragma once

#include "platform/hostlink/ByteArray.h"
#include "vocabulary/MessageIds.h"

/// Anything that can be sent as one message.
class HostLinkMessageSerializable
{
public:
    virtual ~HostLinkMessageSerializable() = default;

    /// The bytes to send; they stay valid and unchanged until the message is changed or destroyed.
    virtual const ByteArray& serialize() const = 0;
};

/// What all messages share: two bytes of id (big-endian), then the body.
class HostLinkMessage
{
public:
    /// The id, or 0 when there are fewer than two bytes. The body is not examined.
    static MessageId messageId(const ByteArray& bytes);

    /// True when the top bit of the id marks a response.
    static bool isResponseMessageId(MessageId id);
};
