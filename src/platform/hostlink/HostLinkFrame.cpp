#include "platform/hostlink/HostLinkFrame.h"

#include <libdeflate.h>

#include <algorithm>
#include <cstring>

#include "platform/hostlink/BigEndian.h"

namespace
{
constexpr std::size_t kMaxBlock = 254; ///< bytes behind one COBS code

/// COBS: each code byte says how many bytes follow up to the next zero, which it stands for. Returns
/// the end of what it wrote.
std::uint8_t* stuff(const std::uint8_t* from, std::size_t size, std::uint8_t* to)
{
    const std::uint8_t* const end = from + size;
    for (;;) {
        const std::size_t reach = std::min<std::size_t>(kMaxBlock, end - from);
        const void* zero = std::memchr(from, 0, reach);
        const std::size_t block = zero ? static_cast<const std::uint8_t*>(zero) - from : reach;
        *to++ = static_cast<std::uint8_t>(block + 1);
        std::memcpy(to, from, block);
        to += block;
        from += block;
        if (from == end) {
            return to;
        }
        if (zero) {
            ++from;
        }
    }
}

/// The inverse of stuff(); the number of bytes, or 0 when `from` is not COBS or does not fit.
std::size_t unstuff(const std::uint8_t* from, std::size_t size, std::uint8_t* to, std::size_t room)
{
    const std::uint8_t* const end = from + size;
    std::size_t used = 0;
    while (from != end) {
        const std::size_t block = *from++ - 1U;
        if (block > static_cast<std::size_t>(end - from) || block > room - used) {
            return 0;
        }
        std::memcpy(to + used, from, block);
        used += block;
        from += block;
        if (block == kMaxBlock || from == end) {
            continue;
        }
        if (used == room) {
            return 0;
        }
        to[used++] = 0;
    }
    return used;
}
} // namespace

void HostLinkFrameEncoder::encode(const HostLinkFrame& frame, bool zeroFirst)
{
    const std::size_t size = std::min(frame.size, HostLinkFrame::kMaxPayload);
    std::uint8_t* raw = m_decoded.data();
    raw[0] = frame.control;
    raw[1] = frame.sequence;
    raw[2] = frame.acknowledgement;
    if (size > 0) {
        std::memcpy(raw + HostLinkFrame::kHeader, frame.payload, size);
    }
    const std::size_t covered = HostLinkFrame::kHeader + size;
    writeBigEndian<std::uint32_t>(raw + covered, libdeflate_crc32(0, raw, covered));

    std::uint8_t* to = m_encoded.data();
    if (zeroFirst) {
        *to++ = 0;
    }
    to = stuff(raw, covered + HostLinkFrame::kCrc, to);
    *to++ = 0;
    m_size = static_cast<std::size_t>(to - m_encoded.data());
}

HostLinkFrameDecoder::Result HostLinkFrameDecoder::next(const std::uint8_t*& bytes, const std::uint8_t* end)
{
    while (bytes != end) {
        const auto* zero = static_cast<const std::uint8_t*>(std::memchr(bytes, 0, end - bytes));
        const std::uint8_t* const part = bytes;
        const std::size_t partSize = (zero ? zero : end) - part;
        bytes = zero ? zero + 1 : end;
        if (!zero) {
            keep(part, partSize);
            return Result::More;
        }
        if (m_size + partSize == 0) {
            continue;
        }
        m_damagedSize = m_size + partSize;
        bool whole = false;
        if (m_damagedSize <= m_encoded.size()) {
            const bool inOnePart = m_size == 0;
            keep(part, inOnePart ? 0 : partSize);
            whole = decode(inOnePart ? part : m_encoded.data(), m_damagedSize);
        }
        m_size = 0;
        return whole ? Result::Frame : Result::Damaged;
    }
    return Result::More;
}

void HostLinkFrameDecoder::keep(const std::uint8_t* bytes, std::size_t size)
{
    if (m_size + size > m_encoded.size()) {
        m_size = m_encoded.size() + 1;
        return;
    }
    std::memcpy(m_encoded.data() + m_size, bytes, size);
    m_size += size;
}

bool HostLinkFrameDecoder::decode(const std::uint8_t* bytes, std::size_t size)
{
    const std::size_t decoded = unstuff(bytes, size, m_decoded.data(), m_decoded.size());
    if (decoded < HostLinkFrame::kHeader + HostLinkFrame::kCrc) {
        return false;
    }
    const std::size_t covered = decoded - HostLinkFrame::kCrc;
    const auto crc = readBigEndian<std::uint32_t>(m_decoded.data() + covered);
    if (libdeflate_crc32(0, m_decoded.data(), covered) != crc) {
        return false;
    }
    m_frame.control = m_decoded[0];
    m_frame.sequence = m_decoded[1];
    m_frame.acknowledgement = m_decoded[2];
    m_frame.payload = m_decoded.data() + HostLinkFrame::kHeader;
    m_frame.size = covered - HostLinkFrame::kHeader;
    return true;
}
