#include "platform/hostlink/HostLinkValueMessage.h"

#include <algorithm>
#include <array>

#include "platform/hostlink/HostLinkLog.h"
#include "platform/hostlink/HostLinkPrinter.h"

namespace
{

constexpr std::size_t kMaxLength = 0xFFFF;
constexpr std::size_t kMostKept = 64 * 1024;

/// Bytes behind the encoding, where all values of the type have as many.
constexpr std::size_t fixedSize(WireType type)
{
    switch (type) {
    case WireType::None:
    case WireType::Nil:
    case WireType::Str:
    case WireType::Bin: break;
    case WireType::U8:
    case WireType::I8: return 1;
    case WireType::U16: return 2;
    case WireType::U32:
    case WireType::I32: return 4;
    case WireType::I64: return 8;
    }
    return 0;
}

constexpr bool hasLength(std::uint8_t encoding)
{
    return encoding == wireTypeEncoding(WireType::Str) || encoding == wireTypeEncoding(WireType::Bin);
}

/// Bytes of a value with its tag, by encoding; 0 for text, bytes and what is no encoding.
constexpr std::array<std::uint8_t, 256> fixedSizes(std::size_t headSize)
{
    std::array<std::uint8_t, 256> sizes{};
    for (std::size_t encoding = 0; encoding < sizes.size(); ++encoding) {
        const WireType type = wireTypeOfEncoding(std::uint8_t(encoding));
        const bool isFixed = type != WireType::None && !hasLength(std::uint8_t(encoding));
        sizes[encoding] = isFixed ? std::uint8_t(headSize + fixedSize(type)) : 0;
    }
    return sizes;
}

} // namespace

/// On its own, so that what goes on for each of the few stays short.
[[gnu::noinline]] void HostLinkValueMessage::Places::appendMore(std::size_t place)
{
    m_more.push_back(std::uint32_t(place));
}

void HostLinkValueMessage::restart(MessageId id)
{
    keepLittle();
    m_bytes.resize(std::max(m_bytes.size(), kIdSize));
    writeBigEndian<std::uint16_t>(m_bytes.data(), id);
    m_size = m_found = kIdSize;
    m_values.clear();
}

void HostLinkValueMessage::restart(const ByteArray& bytes)
{
    keepLittle();
    m_bytes = bytes;
    m_found = kIdSize;
    m_values.clear();
    parse();
}

/// Gives back the memory of a long message.
void HostLinkValueMessage::keepLittle()
{
    if (m_bytes.capacity() > kMostKept) {
        ByteArray().swap(m_bytes);
    }
}

/// Up to the first value that is cut off or of another format.
void HostLinkValueMessage::findValues() const
{
    constexpr std::uint8_t kByte = wireTypeEncoding(WireType::U8);
    static constexpr std::array<std::uint8_t, 256> kFixedSizes = fixedSizes(kHeadSize);
    const std::uint8_t* const message = m_bytes.data();
    const std::size_t end = m_size;
    std::size_t at = m_found;
    std::size_t count = m_values.size();
    while (end - at >= kHeadSize) {
        const std::uint8_t encoding = message[at + kTagSize];
        // Most are bytes, and a branch that the processor foresees does not wait for the table.
        std::size_t size = encoding == kByte ? kHeadSize + 1 : kFixedSizes[encoding];
        if (size == 0 && end - at >= kHeadSize + kLengthSize && hasLength(encoding)) {
            size = kHeadSize + kLengthSize + readBigEndian<std::uint16_t>(message + at + kHeadSize);
        }
        if (size == 0 || size > end - at) {
            break;
        }
        m_values.put(count++, at);
        at += size;
    }
    m_values.setSize(count);
    m_found = at;
}

/// Off the way of those who read what was received.
bool HostLinkValueMessage::findsAdded(std::size_t index) const
{
    return index < static_cast<std::size_t>(size());
}

MessageId HostLinkValueMessage::id() const
{
    return HostLinkMessage::messageId(m_bytes);
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

/// Makes room for values that come, in few steps: behind a long one there is some for short ones. What was
/// asked for as bytes had none.
void HostLinkValueMessage::grow()
{
    const std::size_t room = m_bytes.capacity();
    m_bytes.resize(m_size <= room ? room : std::max(m_size + kUsualBytes, 2 * room));
}

bool HostLinkValueMessage::addBytes(std::uint16_t tag, WireType type, const std::uint8_t* bytes,
                                    std::size_t size)
{
    if (size > kMaxLength) {
        return addTooLong(tag, size);
    }
    std::uint8_t* content = appendHead(tag, type, kLengthSize + size);
    writeBigEndian(content, static_cast<std::uint16_t>(size));
    std::copy_n(bytes, size, content + kLengthSize);
    return true;
}

bool HostLinkValueMessage::addTooLong(std::uint16_t tag, std::size_t size)
{
    addValueNil(tag);
    HostLinkLog::write(HostLinkLog::Level::Warning, HostLinkPrinter::printMessageId(id()) + ": value "
                                                        + std::to_string(tag) + " of " + std::to_string(size)
                                                        + " bytes is too long, sent as nil");
    return false;
}
