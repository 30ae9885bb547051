#pragma once

#include <map>
#include <set>
#include <vector>

#include "platform/hostlink/HostLinkUInt16Message.h"
#include "platform/hostlink/HostLinkValueMessage.h"

/// The states that a host owns, and its answers to the module's own requests. A fresh one owns none.
class HostAnswers
{
public:
    /// Owns each value's state from now on, or gives it its new value.
    void own(const HostLinkValueMessage& values);

    /// Every owned state's value appended to `message`, in the order of their numbers.
    void addOwned(HostLinkValueMessage* message) const;

    /// What goes out for a received message, in order. Nothing for responses and state-changed events,
    /// which are never answered, and for messages without an id.
    ///
    /// A request for states is answered with the values of those owned and Nil for the others. A set value
    /// is taken (u8 1) where the host owns the state, else its answer is Nil. Subscriptions are answered
    /// with what was newly made or removed; a state-changed event with the owned ones' values follows the
    /// answer to a subscription, and the answer to a set state that is subscribed. Any other request gets
    /// an error response that holds a Nil tagged with its id.
    std::vector<ByteArray> answers(const ByteArray& message);

    /// Forgets the module's subscriptions, which end with its session.
    void reset() { m_subscribed.clear(); }

private:
    ByteArray getStates(const HostLinkUInt16Message& request) const;
    std::vector<ByteArray> setStates(const HostLinkValueMessage& request);
    std::vector<ByteArray> subscribe(const HostLinkUInt16Message& request);
    ByteArray unsubscribe(const HostLinkUInt16Message& request);

    std::map<std::uint16_t, HostLinkValueMessage> m_owned; ///< a message of one value for each state
    std::set<std::uint16_t> m_subscribed;
};
