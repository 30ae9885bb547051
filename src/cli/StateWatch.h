#pragma once

#include <chrono>
#include <optional>

#include "cli/Commands.h"
#include "host/HostSession.h"

/// Prints what the module tells of states: their values now, and each change. Subscribes in every new session
/// of the link, and unsubscribes when it is destroyed.
class StateWatch
{
public:
    /// Where it ends; nothing: only by an interrupt.
    struct Limits {
        std::optional<unsigned> events;         ///< those after the current values
        std::optional<HostLinkDuration> period; ///< from when the first current values are there
    };

    /// `subscription` is a MSG_Subscribe with the states.
    StateWatch(HostSession& session, const ByteArray& subscription, bool json)
        : m_session(session), m_states(subscription), m_json(json)
    {
    }
    ~StateWatch();

    StateWatch(const StateWatch&) = delete;
    StateWatch& operator=(const StateWatch&) = delete;

    /// Needs an open session. NoLink when it ended before `limits.events`.
    ExitStatus run(const Limits& limits);

private:
    void subscribe();
    bool isWatched(std::uint16_t state) const;
    bool putEvent(const ByteArray& message) const;

    HostSession& m_session;
    const HostLinkUInt16Message m_states;
    const bool m_json;
    HostLinkTime m_replyDeadline{}; ///< of the exchange that asks for the current values
    bool m_current = false;         ///< what comes now are the current values
};
