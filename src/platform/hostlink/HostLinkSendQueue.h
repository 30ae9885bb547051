#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/hostlink/ByteArray.h"

/// Messages of one class that wait to be sent, in one run of memory that grows up to a bound.
class HostLinkSendQueue
{
public:
    /// `bound` in bytes, 4 of which each message costs beside its own.
    explicit HostLinkSendQueue(std::size_t bound) : m_bound(bound) {}

    /// True while a message of this size can be queued now; canHold(): could be queued at all.
    bool fits(std::size_t size) const { return size + kHeader <= m_bound - queuedBytes(); }
    bool canHold(std::size_t size) const { return size + kHeader <= m_bound; }

    /// Queues a message that fits.
    void push(const ByteArray& message);

    bool empty() const { return m_messages == 0; }
    std::size_t messages() const { return m_messages; }
    std::size_t queuedBytes() const { return m_bytes.size() - m_head; }

    /// Of the first message: its size, how much of it is still here, and a way to take that out.
    std::size_t firstSize() const;
    std::size_t firstLeft() const { return firstSize() - m_taken; }
    void takeFirst(std::uint8_t* to, std::size_t size);

    /// Drops the messages of more than `size` bytes, while nothing of the first was taken; returns how many.
    std::size_t dropLongerThan(std::size_t size);
    void clear();

private:
    void dropFirst();

    static constexpr std::size_t kHeader = 4; ///< a message's size stands before it

    std::size_t m_bound;
    ByteArray m_bytes;
    std::size_t m_head = 0;  ///< where the first message's header is
    std::size_t m_taken = 0; ///< bytes of the first message already taken
    std::size_t m_messages = 0;
};
