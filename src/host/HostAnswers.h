#pragma once

#include <optional>
#include <set>

#include "platform/hostlink/ByteArray.h"

/// How a host that owns no states answers the module's own requests.
class HostAnswers
{
public:
    /// The response to a request. None for responses and state-changed events, which are never
    /// answered, and for messages without an id.
    ///
    /// Asked and set states are answered with Nil, subscriptions with what was newly made or removed, any
    /// other request with an error response that holds a Nil tagged with its id.
    std::optional<ByteArray> answer(const ByteArray& message);

    /// Forgets the module's subscriptions, which end with its session.
    void reset() { m_subscribed.clear(); }

private:
    ByteArray subscribe(const ByteArray& message);
    ByteArray unsubscribe(const ByteArray& message);

    std::set<std::uint16_t> m_subscribed;
};
