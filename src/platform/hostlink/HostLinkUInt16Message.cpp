#include "platform/hostlink/HostLinkUInt16Message.h"

#include "platform/hostlink/BigEndian.h"

namespace
{

constexpr std::size_t kIdSize = 2;
constexpr std::size_t kReservedBytes = 64;

} // namespace

HostLinkUInt16Message::HostLinkUInt16Message(MessageId id)
{
    m_bytes.reserve(kReservedBytes);
    appendBigEndian<std::uint16_t>(m_bytes, id);
}

HostLinkUInt16Message::HostLinkUInt16Message(ByteArray bytes) : m_bytes(std::move(bytes))
{
    if (m_bytes.size() < kIdSize) {
        m_bytes.assign(kIdSize, 0);
    }
    m_bytes.resize(m_bytes.size() / 2 * 2);
}

MessageId HostLinkUInt16Message::id() const
{
    return HostLinkMessage::messageId(m_bytes);
}

int HostLinkUInt16Message::size() const
{
    return static_cast<int>((m_bytes.size() - kIdSize) / 2);
}

std::uint16_t HostLinkUInt16Message::get(int i, bool* ok) const
{
    const bool found = i >= 0 && i < size();
    if (ok != nullptr) {
        *ok = found;
    }
    return found ? readBigEndian<std::uint16_t>(&m_bytes[kIdSize + 2 * static_cast<std::size_t>(i)]) : 0;
}

void HostLinkUInt16Message::addValue(std::uint16_t number)
{
    appendBigEndian(m_bytes, number);
}

const ByteArray& HostLinkUInt16Message::serialize() const
{
    return m_bytes;
}
