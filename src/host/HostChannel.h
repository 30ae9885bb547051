#pragma once

#include <optional>

#include "platform/hostlink/ByteArray.h"
#include "platform/hostlink/HostLinkTime.h"

/// What a host does beside states: takes messages of its own from the module and has some to send. A
/// HostSession asks it.
class HostChannel
{
public:
    virtual ~HostChannel() = default;

    /// Takes a message of the module; false when it is not this channel's.
    virtual bool take(const ByteArray& message, HostLinkTime now) = 0;

    /// The next message to send, which is on its way then; nothing when there is none by now.
    virtual std::optional<ByteArray> next(HostLinkTime now) = 0;

    /// When next() has something although nothing was taken. Later than a `now` at which it had nothing.
    virtual HostLinkTime deadline() const { return HostLinkTime::max(); }

    /// A session began. What was sent in an earlier one may be lost, and what was to be received too.
    virtual void sessionBegan() = 0;
};
