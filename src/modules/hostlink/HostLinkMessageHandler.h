#pragma once

#include "platform/hostlink/ByteArray.h"
#include "vocabulary/MessageIds.h"

/// Somebody who takes messages of the host.
class HostLinkMessageHandler
{
public:
    virtual ~HostLinkMessageHandler() = default;

    /// Handles a whole message with its id; false when it is not this handler's.
    virtual bool handleMessage(MessageId id, const ByteArray& bytes) = 0;

    /// Releases what the handler holds; the link stops right after.
    virtual void shutdown() = 0;
};
