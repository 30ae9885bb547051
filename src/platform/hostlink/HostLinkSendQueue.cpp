#include "platform/hostlink/HostLinkSendQueue.h"

#include <cstring>

#include "platform/hostlink/BigEndian.h"

void HostLinkSendQueue::push(const ByteArray& message)
{
    std::uint8_t header[kHeader];
    writeBigEndian(header, static_cast<std::uint32_t>(message.size()));
    m_bytes.insert(m_bytes.end(), header, header + kHeader);
    m_bytes.insert(m_bytes.end(), message.begin(), message.end());
    ++m_messages;
}

std::size_t HostLinkSendQueue::firstSize() const
{
    return readBigEndian<std::uint32_t>(m_bytes.data() + m_head);
}

void HostLinkSendQueue::takeFirst(std::uint8_t* to, std::size_t size)
{
    std::memcpy(to, m_bytes.data() + m_head + kHeader + m_taken, size);
    m_taken += size;
    if (firstLeft() == 0) {
        dropFirst();
    }
}

void HostLinkSendQueue::dropFirst()
{
    m_head += kHeader + firstSize();
    m_taken = 0;
    --m_messages;
    if (m_messages == 0) {
        m_bytes.clear();
        m_head = 0;
    } else if (m_head > m_bytes.size() / 2) {
        m_bytes.erase(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(m_head));
        m_head = 0;
    }
}

std::size_t HostLinkSendQueue::dropLongerThan(std::size_t size)
{
    ByteArray kept;
    std::size_t dropped = 0;
    for (std::size_t at = m_head; at != m_bytes.size();) {
        const std::size_t length = readBigEndian<std::uint32_t>(m_bytes.data() + at);
        const auto begin = m_bytes.begin() + static_cast<std::ptrdiff_t>(at);
        const auto end = begin + static_cast<std::ptrdiff_t>(kHeader + length);
        if (length > size) {
            ++dropped;
        } else {
            kept.insert(kept.end(), begin, end);
        }
        at += kHeader + length;
    }
    m_bytes.swap(kept);
    m_head = 0;
    m_messages -= dropped;
    return dropped;
}

void HostLinkSendQueue::clear()
{
    m_bytes.clear();
    m_head = 0;
    m_taken = 0;
    m_messages = 0;
}
