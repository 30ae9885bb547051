#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "platform/hostlink/ByteArray.h"
#include "platform/hostlink/HostLinkCounters.h"
#include "platform/hostlink/HostLinkTime.h"
#include "vocabulary/MessageIds.h"

/// One end of a link: sessions and acknowledged delivery of messages in two classes, over a line that
/// may lose, damage or cut bytes. It has no descriptor, no thread and no clock: bytes and the time are
/// handed in, so that two ends run joined on simulated time. Not thread-safe.
class HostLinkCore
{
public:
    struct Settings {
        std::function<std::uint64_t()> drawInstance;          ///< default: the system's random device
        HostLinkDuration pollTime{};                          ///< see HostLinkPhysicalLayer::pollTime()
        std::size_t queueBytes[2] = {256 * 1024, 256 * 1024}; ///< send queue bound, by MessageClass
        std::size_t creditBytes[2] = {64 * 1024 + 64, 64 * 1024 + 64}; ///< receive window, by MessageClass

        /// Bytes of the bulk queue for messages that have to go whatever writable() says, as answers do.
        /// While less is free the peer gets no more bulk credit, so that answers stay bounded by its window.
        /// For one side of a link only: two that wait for each other would wait for ever.
        std::size_t bulkReserve = 0;
    };

    /// A peer that lives is never silent for so long: each end says at shorter intervals that it is there.
    static constexpr HostLinkDuration kSilence = std::chrono::milliseconds(2800);

    /// A run of bytes owned by the core, valid until its next call.
    struct Bytes {
        const std::uint8_t* data;
        std::size_t size;
    };

    using Counters = HostLinkCounters;

    enum class Session {
        Never,       ///< no session yet since construction
        Established, ///< messages flow; a cut line does not end it
        Ended,       ///< ended for good, none followed yet
    };

    explicit HostLinkCore(Settings settings);
    ~HostLinkCore();

    /// The line came up: what was on the wire is gone, both sides greet again.
    void lineUp(HostLinkTime now);
    void lineDown(HostLinkTime now);

    /// Takes received bytes in any portions.
    void receive(const std::uint8_t* bytes, std::size_t size, HostLinkTime now);

    /// The next whole frame to put on the line; size 0 when there is nothing to say now. To be called
    /// until then after each call that hands something in, as far as the line takes frames.
    Bytes transmit(HostLinkTime now);

    /// When transmit() must be called although nothing was handed in; max() for never. It may lie in
    /// the past while the line takes nothing.
    HostLinkTime deadline() const;

    /// Queues a message. False, and counted, when the message cannot be taken: no session any more,
    /// goodbye said, bulk queue full, empty, or longer than the peer or this side can ever hold; also
    /// while messages of a former session are not handled, since it might answer one of them. A full
    /// state queue of a session ends that session.
    bool send(const ByteArray& message, HostLinkTime now);

    /// True while send() takes a message of this class and size and leaves Settings::bulkReserve free.
    bool writable(MessageClass messageClass, std::size_t size) const;

    /// Bytes of this class in the send queue, of at most Settings::queueBytes.
    std::size_t queuedBytes(MessageClass messageClass) const;

    /// Moves the next delivered message out, in order within its class; false when there is none.
    /// Its bytes count against the window until handled() is called for it.
    bool take(ByteArray& message);

    /// Gives the window of the first taken message that it was not called for back to the peer. To be called
    /// once for each message that was taken, after everything that answers it was sent.
    void handled();

    Session session() const;

    /// Sessions established so far; it grows when messages may have been lost.
    std::uint64_t sessionNumber() const;

    /// True when nothing of the class waits or is unacknowledged.
    bool allAcknowledged(MessageClass messageClass) const;

    /// Ends the session for good: transmit() yields a goodbye, later sends return false.
    void goodbye(HostLinkTime now);

    /// True when the peer refused this end because another one holds the link.
    bool refused() const;

    Counters counters() const;

    /// The frame that tells a newcomer on an occupied line to go away.
    static const ByteArray& refusalFrame();

private:
    struct Private;
    std::unique_ptr<Private> d;
};
