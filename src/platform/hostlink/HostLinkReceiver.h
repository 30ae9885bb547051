#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/hostlink/ByteArray.h"
#include "platform/hostlink/HostLinkFrame.h"
#include "platform/hostlink/HostLinkReceiveWindow.h"
#include "platform/hostlink/HostLinkRetransmitTimer.h"
#include "platform/hostlink/HostLinkTime.h"
#include "vocabulary/MessageIds.h"

/// The receiving half of a session: takes numbered frames in order, puts messages together, decides when
/// an acknowledgement has to go on its own, and keeps account of the peer's credit.
class HostLinkReceiver
{
public:
    /// How long an acknowledgement waits for a frame that can carry it: well below the smallest time-out.
    static constexpr HostLinkDuration kAckDelay = std::chrono::milliseconds(5);

    /// Frames after which it waits no longer: a quarter of what the peer may have in flight.
    static constexpr std::uint32_t kAckEvery = 16;

    enum class Verdict {
        Accepted,
        Repeated, ///< arrived before
        Gap,      ///< a frame before it is missing
        Ignored,  ///< outside any window
        Breach,   ///< the next one, but of an unknown kind or beyond the peer's credit
    };

    /// Bytes of the windows, by MessageClass; `pollTime` as in HostLinkRetransmitTimer.
    HostLinkReceiver(const std::size_t (&windowBytes)[2], HostLinkDuration pollTime);

    /// Begins a session at frame 0; the peer's credit is what unhandled messages leave.
    void beginSession();

    /// The session is over: what it delivered stays to be handled, but its peer gets no answers.
    void endSession() { m_formerMessages = unhandledMessages(); }

    /// True while messages of a former session are not handled. What is sent meanwhile may answer them,
    /// and must not reach a peer that did not ask.
    bool answersFormerPeer() const { return m_formerMessages > 0; }

    /// The line was greeted again: gaps and acknowledgements of before mean nothing.
    void resume();

    /// Takes a sequenced frame.
    Verdict accept(const HostLinkFrame& frame, HostLinkTime now);

    /// An unnumbered frame said which number comes next: frames before it are lost when it is ahead.
    void expectNext(std::uint8_t sequence, HostLinkTime now);

    /// Something arrived that could have been a sequenced frame.
    void damaged(HostLinkTime now);

    bool take(ByteArray& message);

    /// The first of those that were taken and not handled yet has been.
    void handled();

    /// Sequenced frames received in this session (modulo 2^32); the acknowledgement is its low byte.
    std::uint32_t received() const { return m_expected; }
    std::uint8_t acknowledgement() const { return static_cast<std::uint8_t>(m_expected); }

    bool nakDue() const { return m_nakDue; }
    bool ackDue(HostLinkTime now) const { return now >= m_ackDeadline; }
    HostLinkTime ackDeadline() const { return m_ackDeadline; }

    /// A frame with the acknowledgement goes out; `nak` when it asks for the missing frames.
    void acknowledgementSent(bool nak, HostLinkTime now);

    /// While held, the peer gets no more credit of this class.
    void holdCredit(MessageClass messageClass, bool held) { window(messageClass).hold(held); }

    /// Credit bits for a data frame about to be numbered; the credit is then granted.
    std::uint8_t takeCreditBits();
    bool grantDue() const { return m_windows[0].grantDue() || m_windows[1].grantDue(); }
    std::uint32_t takeGrant(MessageClass messageClass) { return window(messageClass).takeGrant(); }
    std::size_t credit(MessageClass messageClass) { return window(messageClass).credit(); }

    /// Messages that were dropped because their parts did not fit together.
    std::uint64_t brokenMessages() const { return m_brokenMessages; }
    std::uint64_t messages() const { return m_messages; }

    /// Messages put together that were not handled yet.
    std::uint64_t unhandledMessages() const { return m_unhandled.size() - m_handled; }

private:
    /// What a message used of the window of the class in which it came, whatever class its id is of.
    struct Unhandled {
        MessageClass messageClass;
        std::uint32_t size;
    };

    HostLinkReceiveWindow& window(MessageClass messageClass)
    {
        return m_windows[static_cast<std::size_t>(messageClass)];
    }
    std::size_t waiting() const { return m_inbox.size() - m_taken; }
    Verdict judge(const HostLinkFrame& frame, HostLinkTime now);
    void deliver(const HostLinkFrame& frame);
    /// Not while what was asked for can still be on its way.
    bool mayAsk(HostLinkTime now) const { return !m_asked || now >= m_nakTimer.deadline(); }
    void askAgain(std::uint32_t reach);
    void noteRepair(HostLinkTime now);
    void endGap();

    HostLinkReceiveWindow m_windows[2];
    std::uint32_t m_expected = 0; ///< number of the next frame
    std::uint32_t m_acknowledgedTo = 0;
    HostLinkTime m_ackDeadline = HostLinkTime::max(); ///< min() for at once

    bool m_nakDue = false;
    bool m_asked = false;      ///< for frame m_expected, again
    std::uint32_t m_reach = 0; ///< how far behind it the frames came that the peer sent before it knew
    int m_naks = 0;            ///< sent for it
    HostLinkTime m_nakAt;      ///< when the first one was sent
    HostLinkRetransmitTimer m_nakTimer; ///< until when the frame should have come

    std::vector<ByteArray> m_inbox; ///< messages put together, the first m_taken of them taken already
    std::size_t m_taken = 0;
    ByteArray m_spare; ///< memory of a message that was taken
    std::vector<Unhandled>
        m_unhandled; ///< in the order of m_inbox, the first m_handled of them handled already
    std::size_t m_handled = 0;
    std::uint64_t m_formerMessages = 0;
    std::uint64_t m_brokenMessages = 0;
    std::uint64_t m_messages = 0;
};
