#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "platform/hostlink/ByteArray.h"
#include "platform/hostlink/HostLinkFrame.h"
#include "platform/hostlink/HostLinkRetransmitTimer.h"
#include "platform/hostlink/HostLinkSendQueue.h"
#include "platform/hostlink/HostLinkTime.h"
#include "vocabulary/MessageIds.h"

/// The sending half of a session: queues messages of two classes, cuts them into numbered segments when
/// they are transmitted, and keeps each segment until it is acknowledged.
class HostLinkSender
{
public:
    /// Segments that may be unacknowledged at a time.
    static constexpr std::uint32_t kMaxInFlight = 64;

    /// State segments that go before a bulk segment which could go too.
    static constexpr int kStateRun = 8;

    /// Bounds of the queues by MessageClass; `pollTime` as in HostLinkRetransmitTimer.
    HostLinkSender(const std::size_t (&queueBytes)[2], HostLinkDuration pollTime);

    /// True when the queue has room for a message now; canHold(): when it could ever be sent.
    bool fits(MessageClass messageClass, std::size_t size) const;
    bool canHold(MessageClass messageClass, std::size_t size) const;
    void queue(MessageClass messageClass, const ByteArray& message) { queueOf(messageClass).push(message); }
    std::size_t queuedBytes(MessageClass messageClass) const
    {
        return m_queues[index(messageClass)].queuedBytes();
    }

    /// Begins a session from nothing transmitted, with what was queued. Returns the number of messages
    /// that the peer can never hold; they are dropped.
    std::size_t beginSession(const std::uint32_t (&credit)[2], const std::uint32_t (&largest)[2]);

    /// Ends the session: drops all messages that were not acknowledged and returns their number.
    std::size_t endSession();

    /// Goes on behind the frames that the peer has received (modulo 2^32). False when it cannot have
    /// received so many, or too few.
    bool resume(std::uint32_t received);

    /// Takes an acknowledgement; true when it is for something new. One for what was never sent is ignored.
    bool acknowledged(std::uint8_t nextExpected, HostLinkTime now);

    /// The peer misses this frame: sends it and everything behind it again. One that was acknowledged
    /// or never sent is not to be had; the time-out finds out whether the two ends disagree.
    void askedFor(std::uint8_t sequence);

    /// The peer grants more credit.
    void grant(MessageClass messageClass, std::uint32_t bytes) { m_credit[index(messageClass)] += bytes; }

    /// Whether the next frame is one to send again, whether there is a number free for a new one, and
    /// whether a segment waits for which there is credit.
    bool repeating() const { return m_cursor != m_next; }
    bool canNumber() const { return m_next - m_acknowledged < kMaxInFlight; }
    bool hasSegment() const { return canSend(MessageClass::State) || canSend(MessageClass::Bulk); }

    /// The next frame to repeat.
    HostLinkFrame repeat(HostLinkTime now);

    /// A new numbered frame: the next segment, with `credit` bits; or a grant.
    HostLinkFrame nextSegment(std::uint8_t credit, HostLinkTime now);
    HostLinkFrame numberGrant(const std::uint8_t (&payload)[8], HostLinkTime now);

    /// Number of the next sequenced frame on the wire.
    std::uint8_t sequence() const { return static_cast<std::uint8_t>(m_cursor); }

    bool allAcknowledged(MessageClass messageClass) const;

    /// Frames that were sent and not acknowledged, and how long that takes; zero before it was measured.
    std::uint32_t unacknowledged() const { return m_next - m_acknowledged; }
    HostLinkDuration roundTrip() const { return m_timer.smoothed(); }

    /// The line can take a frame: what was transmitted before is on the wire by now.
    void lineFree(HostLinkTime now);

    /// Bytes came in. What the peer was sending when a frame reached it, and the frame behind that, are
    /// on the wire before its acknowledgement.
    void heard(std::size_t bytes, HostLinkTime now);

    /// When the peer should have acknowledged; expired() then goes back, or is false when that was tried
    /// often enough.
    HostLinkTime deadline() const { return m_timer.deadline(); }
    bool expired();

private:
    struct Segment {
        std::uint8_t control;
        std::uint16_t size;
        std::array<std::uint8_t, HostLinkFrame::kMaxPayload> payload;
    };

    static std::size_t index(MessageClass messageClass) { return static_cast<std::size_t>(messageClass); }
    HostLinkSendQueue& queueOf(MessageClass messageClass) { return m_queues[index(messageClass)]; }
    Segment& segment(std::uint32_t number) { return m_segments[number % kMaxInFlight]; }

    std::size_t segmentSize(MessageClass messageClass) const;
    bool canSend(MessageClass messageClass) const;
    MessageClass pickClass();
    HostLinkFrame number(HostLinkTime now);
    HostLinkFrame frameOf(std::uint32_t number);
    void release(std::uint32_t count);
    void startTimer(HostLinkTime now);
    void goBack();
    void restartNumbers();

    HostLinkSendQueue m_queues[2];
    std::uint64_t m_credit[2] = {};
    std::uint32_t m_largest[2] = {std::numeric_limits<std::uint32_t>::max(),
                                  std::numeric_limits<std::uint32_t>::max()};
    std::uint32_t m_unacknowledged[2] = {}; ///< segments of each class
    int m_stateRun = 0;

    // Frames of the session counted from 0; on the wire modulo 256.
    std::uint32_t m_acknowledged = 0; ///< first one not acknowledged
    std::uint32_t m_cursor = 0;       ///< next one to transmit
    std::uint32_t m_next = 0;         ///< next one to number
    std::array<Segment, kMaxInFlight> m_segments;

    HostLinkRetransmitTimer m_timer;
    bool m_timing = false; ///< m_timed, sent once at m_timedAt, measures the round trip
    std::uint32_t m_timed = 0;
    HostLinkTime m_timedAt;
    bool m_onWire = true;         ///< the latest frame was transmitted before the line was free again
    std::size_t m_heardBytes = 0; ///< since then, or since the peer made progress
};
