#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// Values of a frame's control byte.
namespace HostLinkControl
{
// A sequenced frame: it is numbered, acknowledged and repeated until it arrived. A data frame carries
// one segment of a message; a grant carries credit that no data frame carried.
constexpr std::uint8_t Sequenced = 0x80;
constexpr std::uint8_t Bulk = 0x40;        ///< the segment's class, state when clear
constexpr std::uint8_t First = 0x20;       ///< the segment begins a message
constexpr std::uint8_t Last = 0x10;        ///< the segment ends a message
constexpr std::uint8_t CreditState = 0x08; ///< grants one quantum of credit to the state class
constexpr std::uint8_t CreditBulk = 0x04;  ///< grants one quantum of credit to the bulk class
constexpr std::uint8_t Grant = Sequenced | 0x01;

// Frames without a sequence number of their own.
constexpr std::uint8_t Ack = 0x01;
constexpr std::uint8_t Nak = 0x02; ///< acknowledges, and asks for everything behind it again
constexpr std::uint8_t Hello = 0x03;
constexpr std::uint8_t Goodbye = 0x04;
constexpr std::uint8_t Refusal = 0x05; ///< the line is taken by another peer
} // namespace HostLinkControl

/// One frame of the link. On the wire it is control, sequence, acknowledgement, payload and the CRC-32
/// (IEEE 802.3, big-endian) of them all, COBS-encoded and closed by a zero byte.
struct HostLinkFrame {
    static constexpr std::size_t kMaxPayload = 501; ///< the most for which COBS needs two code bytes
    static constexpr std::size_t kHeader = 3;
    static constexpr std::size_t kCrc = 4;
    static constexpr std::size_t kMaxDecoded = kHeader + kMaxPayload + kCrc;
    static constexpr std::size_t kMaxEncoded = kMaxDecoded + 2; ///< without delimiters

    std::uint8_t control = 0;
    std::uint8_t sequence = 0;        ///< of this frame, or of the sender's next sequenced one
    std::uint8_t acknowledgement = 0; ///< next sequence expected from the other side
    const std::uint8_t* payload = nullptr;
    std::size_t size = 0; ///< of the payload, at most kMaxPayload
};

/// Writes frames into a buffer that is used again and again.
class HostLinkFrameEncoder
{
public:
    /// Encodes one frame with its closing zero; `zeroFirst` also opens it with one, so that garbage
    /// before the frame cannot swallow it. Valid until the next call. A longer payload is cut off.
    void encode(const HostLinkFrame& frame, bool zeroFirst);

    const std::uint8_t* data() const { return m_encoded.data(); }
    std::size_t size() const { return m_size; }

private:
    std::array<std::uint8_t, HostLinkFrame::kMaxEncoded + 2> m_encoded{};
    std::array<std::uint8_t, HostLinkFrame::kMaxDecoded> m_decoded{};
    std::size_t m_size = 0;
};

/// Finds frames in a stream of bytes. After any damage it is in step again at the next zero byte; its
/// memory is that of one frame.
class HostLinkFrameDecoder
{
public:
    enum class Result {
        More,    ///< all bytes are consumed, nothing is complete
        Frame,   ///< frame() is whole and undamaged
        Damaged, ///< something was dropped: too long, badly encoded, or its CRC does not match
    };

    /// Consumes bytes up to the end of the next frame and moves `bytes` behind them. To be called until
    /// it returns More.
    Result next(const std::uint8_t*& bytes, const std::uint8_t* end);

    /// The latest frame; its payload is valid until the next call of next().
    const HostLinkFrame& frame() const { return m_frame; }

    /// Bytes between the zeros around what was dropped as damaged.
    std::size_t damagedSize() const { return m_damagedSize; }

    /// Forgets a frame that has begun.
    void reset() { m_size = 0; }

private:
    void keep(const std::uint8_t* bytes, std::size_t size);
    bool decode(const std::uint8_t* bytes, std::size_t size);

    std::array<std::uint8_t, HostLinkFrame::kMaxEncoded> m_encoded{}; ///< of a frame that came in parts
    std::size_t m_size = 0; ///< bytes of it seen; above the buffer's size when it is too long
    std::array<std::uint8_t, HostLinkFrame::kMaxDecoded> m_decoded{};
    HostLinkFrame m_frame;
    std::size_t m_damagedSize = 0;
};
