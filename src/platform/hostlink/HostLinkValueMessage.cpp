#include "platform/hostlink/HostLinkValueMessage.h"

#include <algorithm>
#include <array>

#include "platform/hostlink/HostLinkLog.h"
#include "platform/hostlink/HostLinkPrinter.h"

namespace
{

constexpr std::size_t kLengthSize = 2; // of text and bytes
constexpr std::size_t kMaxLength = 0xFFFF;

/// Bytes behind the encoding, of text and bytes only those that hold the length.
constexpr std::size_t fixedSize(WireType type)
{
    switch (type) {
    case WireType::None:
    case WireType::Nil: break;
    case WireType::U8:
    case WireType::I8: return 1;
    case WireType::U16: return 2;
    case WireType::U32:
    case WireType::I32: return 4;
    case WireType::I64: return 8;
    case WireType::Str:
    case WireType::Bin: return kLengthSize;
    }
    return 0;
}

constexpr std::uint8_t kNoSize = 0xFF;

/// The same by encoding; kNoSize for what is no encoding.
constexpr std::array<std::uint8_t, 256> fixedSizes()
{
    std::array<std::uint8_t, 256> sizes{};
    for (std::size_t encoding = 0; encoding < sizes.size(); ++encoding) {
        const WireType type = wireTypeOfEncoding(std::uint8_t(encoding));
        sizes[encoding] = type == WireType::None ? kNoSize : std::uint8_t(fixedSize(type));
    }
    return sizes;
}
constexpr std::array<std::uint8_t, 256> kFixedSizes = fixedSizes();

} // namespace

/// Bytes from the tag to the end of the value; 0 when it is cut off or of another format.
inline std::size_t HostLinkValueMessage::valueSize(const std::uint8_t* value, std::size_t left)
{
    if (left < kHeadSize) {
        return 0;
    }
    const std::uint8_t encoding = value[kTagSize];
    const std::size_t fixed = kFixedSizes[encoding];
    std::size_t size = kHeadSize + fixed;
    if (fixed == kNoSize || size > left) {
        return 0;
    }
    if (encoding == wireTypeEncoding(WireType::Str) || encoding == wireTypeEncoding(WireType::Bin)) {
        size += readBigEndian<std::uint16_t>(value + kHeadSize);
    }
    return size <= left ? size : 0;
}

HostLinkValueMessage::HostLinkValueMessage(ByteArray bytes) : m_bytes(std::move(bytes))
{
    if (m_bytes.size() < kIdSize) {
        m_bytes.assign(kIdSize, 0);
    }
    const std::uint8_t* const message = m_bytes.data();
    const std::size_t end = m_bytes.size();
    std::size_t at = kIdSize;
    while (const std::size_t size = valueSize(message + at, end - at)) {
        m_values.append(at);
        at += size;
    }
    m_size = at;
}

MessageId HostLinkValueMessage::id() const
{
    return HostLinkMessage::messageId(m_bytes);
}

std::string HostLinkValueMessage::getString(int i, bool* ok) const
{
    const std::uint8_t* content = contentOf(i, WireType::Str, ok);
    if (content == nullptr) {
        return {};
    }
    const auto* text = reinterpret_cast<const char*>(content + kLengthSize);
    return std::string(text, readBigEndian<std::uint16_t>(content));
}

ByteArray HostLinkValueMessage::getBin16(int i, bool* ok) const
{
    const std::uint8_t* content = contentOf(i, WireType::Bin, ok);
    if (content == nullptr) {
        return {};
    }
    const std::uint8_t* bytes = content + kLengthSize;
    return ByteArray(bytes, bytes + readBigEndian<std::uint16_t>(content));
}

bool HostLinkValueMessage::addValueString(std::uint16_t tag, std::string_view utf8)
{
    return addBytes(tag, WireType::Str, reinterpret_cast<const std::uint8_t*>(utf8.data()), utf8.size());
}

bool HostLinkValueMessage::addValueBin16(std::uint16_t tag, const ByteArray& bytes)
{
    return addBytes(tag, WireType::Bin, bytes.data(), bytes.size());
}

void HostLinkValueMessage::addValueOf(const HostLinkValueMessage& other, int i)
{
    if (i < 0 || i >= other.size()) {
        return;
    }
    const bool last = i + 1 == other.size();
    const std::size_t begin = other.m_values[std::size_t(i)];
    const std::size_t end = last ? other.m_size : other.m_values[std::size_t(i) + 1];
    std::uint8_t* const to = append(end - begin); // before the look at other, which may be this
    std::copy_n(other.m_bytes.data() + begin, end - begin, to);
}

/// Makes room for values that come, in few steps; what was asked for as bytes had none.
void HostLinkValueMessage::grow()
{
    const std::size_t room = m_bytes.capacity();
    m_bytes.resize(std::max(m_size, m_size <= room ? room : 2 * room));
}

const ByteArray& HostLinkValueMessage::serialize() const
{
    m_bytes.resize(m_size);
    return m_bytes;
}

bool HostLinkValueMessage::addBytes(std::uint16_t tag, WireType type, const std::uint8_t* bytes,
                                    std::size_t size)
{
    if (size > kMaxLength) {
        addValueNil(tag);
        HostLinkLog::write(HostLinkLog::Level::Warning,
                           HostLinkPrinter::printMessageId(id()) + ": value " + std::to_string(tag) + " of "
                               + std::to_string(size) + " bytes is too long, sent as nil");
        return false;
    }
    std::uint8_t* content = appendHead(tag, type, kLengthSize + size);
    writeBigEndian(content, static_cast<std::uint16_t>(size));
    std::copy_n(bytes, size, content + kLengthSize);
    return true;
}
