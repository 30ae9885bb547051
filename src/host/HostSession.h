#pragma once

#include <functional>
#include <stdexcept>
#include <string>

#include "host/Host.h"
#include "host/HostAnswers.h"
#include "host/HostChannel.h"

/// Why work on a link could not be done.
class HostError : public std::runtime_error
{
public:
    enum class Cause {
        NoSession,   ///< no line or no session within the time-out
        NoReply,     ///< the module did not answer within the time-out
        Occupied,    ///< another host holds the link
        SessionLost, ///< the module or the link began anew while a request was under way
        Interrupted, ///< the caller's interrupt descriptor became readable
        TooLong,     ///< the message is longer than the link can carry
        Refused,     ///< the module has no handler for the request
    };

    HostError(Cause cause, const std::string& text) : std::runtime_error(text), m_cause(cause) {}

    Cause cause() const { return m_cause; }

private:
    Cause m_cause;
};

/// The conduct of a host on its link: it answers the module's own requests, whatever it is waiting for.
/// Where nothing else is said, functions throw a HostError when the link does not let them finish.
class HostSession
{
public:
    /// Whether a request may go out a second time when a new session has begun before its reply.
    enum class Repeat { Never, Once };

    /// Who sent a message.
    enum class Side { Host, Module };

    /// `timeout` bounds open(), each request and waitAcknowledged().
    HostSession(Host& host, HostLinkDuration timeout) : m_host(host), m_timeout(timeout) {}

    /// Waits for a session, sends a MSG_GetState without states and drops everything up to its empty
    /// reply: what the module said before it knew this host.
    void open();

    /// Sends a request and returns its response. Responses are matched to requests in order.
    ByteArray request(const ByteArray& request, Repeat repeat);

    /// A MSG_GetState without states: its reply says that all sent before it has been handled.
    static ByteArray emptyRequest();
    static bool isEmptyReply(const ByteArray& message);

    /// Queues one message without waiting; false when there is no session for it. That it was lost with
    /// its session is told by receive().
    bool send(const ByteArray& message);

    /// The next event of the link (see Host::receive), but Refused, which is thrown. A
    /// request of the module has been answered when it is returned, and channels have had their turn.
    Host::Event receive(ByteArray* message, HostLinkTime deadline);

    /// What this host answers; it owns no states until it is given some.
    HostAnswers& answers() { return m_answers; }

    /// Asks `channel` too from now on, which has to live as long as messages are received here.
    void addChannel(HostChannel& channel) { m_channels.push_back(&channel); }

    /// Is told every message that goes out or has come in, before a received one is answered.
    void observe(std::function<void(Side, const ByteArray&)> observer) { m_observer = std::move(observer); }

    /// See Host.
    void ignoreInterrupts() { m_host.ignoreInterrupts(); }
    void setInput(int descriptor) { m_host.setInput(descriptor); }

    /// True while the line to the module stands.
    bool isLineUp() const { return m_host.isLineUp(); }

    HostLinkCounters counters() const { return m_host.counters(); }

    /// Waits until the module's end of the link has everything; false when it did not get it, and then at
    /// once until something more is sent.
    bool waitAcknowledged();

    HostLinkDuration timeout() const { return m_timeout; }
    HostLinkTime now() const { return m_host.now(); }

private:
    bool trySend(const ByteArray& message);
    bool takenByChannel(const ByteArray& message);
    void sendOfChannels();
    HostLinkTime channelDeadline() const;
    void exchangeOpening(HostLinkTime deadline);
    HostError noSession() const;

    Host& m_host;
    HostLinkDuration m_timeout;
    bool m_waitedInVain = false; ///< for what was sent last to be acknowledged
    HostAnswers m_answers;
    std::vector<HostChannel*> m_channels;
    std::function<void(Side, const ByteArray&)> m_observer = [](Side, const ByteArray&) {};
};
