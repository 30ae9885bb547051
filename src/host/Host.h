#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "host/HostSystem.h"
#include "platform/hostlink/HostLinkPort.h"

/// The host's end of a link, without a thread: the link is stepped inside receive() and the other
/// waits, on the caller's thread.
class Host
{
public:
    /// What a wait ended with.
    enum class Event {
        Message,     ///< a message came
        NewSession,  ///< a session was established; what was under way in an earlier one may be lost
        Ended,       ///< the session was ended for good, none followed yet
        Refused,     ///< another host holds the link
        TimedOut,    ///< the deadline has come
        Interrupted, ///< the interrupt descriptor is readable; stays so until somebody reads it
        Input,       ///< the input descriptor is readable, and there is nothing else to tell
        Acknowledged ///< the module's end has everything that was sent (waitAcknowledged() only)
    };

    /// Begins to connect. `interrupt` is a descriptor whose readability ends every wait, or -1.
    explicit Host(std::unique_ptr<HostLinkPhysicalLayer> layer, int interrupt = -1,
                  HostSystem& system = HostSystem::real());

    /// Says goodbye if nobody did.
    ~Host();

    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// From now on nothing but the link ends a wait.
    void ignoreInterrupts() { m_interrupt = -1; }

    /// From now on receive() tells that this descriptor is readable, as long as there is room to send; -1 for
    /// none.
    void setInput(int descriptor) { m_input = descriptor; }

    HostLinkTime now() const { return m_system.now(); }

    /// True while the line to the module stands, with or without a session.
    bool isLineUp() const { return m_port.layer().lineNumber() != 0; }

    /// True while messages flow, also over a line that is cut for the moment.
    bool isInSession() const { return m_port.core().session() == HostLinkCore::Session::Established; }

    /// What the link has done so far.
    HostLinkCounters counters() const { return m_port.core().counters(); }

    /// The next event; a message goes into `message`. Each new session and each end is told once,
    /// between the messages before it and those after it. A deadline that has passed still looks once:
    /// calls with it hand out what that look has found, then they time out, whatever else has come since.
    ///
    /// The module's window for the message opens with the next wait, so answers to it are to be sent
    /// before that; an answer that belongs to a former session is not taken by send().
    Event receive(ByteArray* message, HostLinkTime deadline);

    /// Queues and writes one message; false when it cannot be taken (see HostLinkCore::send).
    bool send(const ByteArray& message);

    /// Waits until the module's end of the link has everything. Messages that come meanwhile stay for
    /// receive(), and so does what is returned of sessions. An interrupt that comes when all is
    /// acknowledged is left to others.
    Event waitAcknowledged(HostLinkTime deadline);

    /// Ends the session for good, within 100 ms, and closes the line. What the module sends
    /// afterwards is lost. A second goodbye is harmless.
    void goodbye();

private:
    std::optional<Event> obstacle();
    std::optional<Event> sessionChange() const;
    bool mayTake() const;
    void giveBack();
    bool isInterrupted() { return isReadable(m_interrupt); }
    bool isReadable(int descriptor);
    int inputNow() const;
    void wait(HostLinkTime deadline, int input = -1);

    HostSystem& m_system;
    int m_interrupt;
    int m_input = -1;
    bool m_open = true;
    std::uint64_t m_sessionTold = 0;        ///< number of the session that the caller knows
    std::uint64_t m_endTold = 0;            ///< number of the last session whose end it knows
    std::optional<HostLinkTime> m_lastLook; ///< a deadline that has had its look, until it timed out
    bool m_isTaken = false;                 ///< the message handed out last is not given back yet
    std::vector<pollfd> m_descriptors;
    HostLinkPort m_port;
};
