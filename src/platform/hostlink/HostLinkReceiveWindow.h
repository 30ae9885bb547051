#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/hostlink/ByteArray.h"

/// The receiving side of one class: how much the peer may send, and the message that is coming in.
/// Payload bytes are credit of the peer, then in use from their arrival until the message is handled,
/// then free until they are granted again; the three always add up to the window.
class HostLinkReceiveWindow
{
public:
    /// Credit that one bit of a data frame's control byte grants.
    static constexpr std::size_t kQuantum = 2048;

    explicit HostLinkReceiveWindow(std::size_t bytes) : m_window(bytes), m_credit(bytes) {}

    /// What a new session's peer may send: everything that no unhandled message uses.
    void beginSession();

    /// Credit of the peer now.
    std::size_t credit() const { return m_credit; }

    /// Takes one segment that the credit covers. True when it completes a message, which `message` then is.
    /// A part of a message without its beginning is dropped, and *dropped set, as it is for an empty message.
    /// Nothing is longer than the window: the peer has no credit for it.
    bool add(const std::uint8_t* segment, std::size_t size, bool first, bool last, ByteArray& message,
             bool* dropped);

    /// A message of so many bytes has been handled: they are free to be granted again.
    void handled(std::size_t size);

    /// While held, nothing is granted; what becomes free stays free.
    void hold(bool held) { m_held = held; }

    /// Takes one quantum out of what is free, when there is one.
    bool takeQuantum();

    /// True when the peer should get credit even if nothing else is to be sent; takeGrant() gives all.
    bool grantDue() const;
    std::uint32_t takeGrant();

private:
    std::size_t m_window;
    std::size_t m_credit;
    std::size_t m_inUse = 0; ///< bytes of m_partial and of delivered messages
    std::size_t m_free = 0;
    ByteArray m_partial; ///< the beginning of a message
    bool m_collecting = false;
    bool m_held = false;
};
