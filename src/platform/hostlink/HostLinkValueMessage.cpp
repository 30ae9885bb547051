#include "platform/hostlink/HostLinkValueMessage.h"

#include <algorithm>

#include "platform/hostlink/BigEndian.h"
#include "platform/hostlink/HostLinkLog.h"
#include "platform/hostlink/HostLinkPrinter.h"

namespace
{

constexpr std::size_t kIdSize = 2;
constexpr std::size_t kTagSize = 2;
constexpr std::size_t kHeadSize = kTagSize + 1; // tag and encoding
constexpr std::size_t kLengthSize = 2;          // of text and bytes
constexpr std::size_t kMaxLength = 0xFFFF;

// A usual reply, ten small values, grows no vector.
constexpr std::size_t kReservedValues = 12;
constexpr std::size_t kReservedBytes = kIdSize + kReservedValues * (kHeadSize + sizeof(std::int64_t));

/// Bytes from the tag to the end of the value; 0 when it is cut off or of another format.
std::size_t valueSize(const std::uint8_t* value, std::size_t left)
{
    if (left < kHeadSize) {
        return 0;
    }
    std::size_t size = kHeadSize;
    switch (wireTypeOfEncoding(value[kTagSize])) {
    case WireType::None: return 0;
    case WireType::Nil: break;
    case WireType::U8:
    case WireType::I8: size += 1; break;
    case WireType::U16: size += 2; break;
    case WireType::U32:
    case WireType::I32: size += 4; break;
    case WireType::I64: size += 8; break;
    case WireType::Str:
    case WireType::Bin:
        size += kLengthSize;
        if (left < size) {
            return 0;
        }
        size += readBigEndian<std::uint16_t>(value + kHeadSize);
        break;
    }
    return size <= left ? size : 0;
}

void report(bool* ok, bool result)
{
    if (ok != nullptr) {
        *ok = result;
    }
}

} // namespace

HostLinkValueMessage::HostLinkValueMessage(MessageId id)
{
    m_bytes.reserve(kReservedBytes);
    m_values.reserve(kReservedValues);
    appendBigEndian<std::uint16_t>(m_bytes, id);
}

HostLinkValueMessage::HostLinkValueMessage(ByteArray bytes) : m_bytes(std::move(bytes))
{
    if (m_bytes.size() < kIdSize) {
        m_bytes.assign(kIdSize, 0);
    }
    m_values.reserve(std::min(kReservedValues, (m_bytes.size() - kIdSize) / kHeadSize));
    std::size_t at = kIdSize;
    while (const std::size_t size = valueSize(m_bytes.data() + at, m_bytes.size() - at)) {
        m_values.push_back(at);
        at += size;
    }
    m_bytes.resize(at);
}

MessageId HostLinkValueMessage::id() const
{
    return HostLinkMessage::messageId(m_bytes);
}

int HostLinkValueMessage::size() const
{
    return static_cast<int>(m_values.size());
}

std::uint16_t HostLinkValueMessage::getTag(int i, bool* ok) const
{
    const std::uint8_t* value = valueAt(i, ok);
    return value == nullptr ? 0 : readBigEndian<std::uint16_t>(value);
}

std::uint8_t HostLinkValueMessage::getEnc(int i, bool* ok) const
{
    const std::uint8_t* value = valueAt(i, ok);
    return value == nullptr ? 0 : value[kTagSize];
}

std::int8_t HostLinkValueMessage::getInt8(int i, bool* ok) const
{
    return readInteger<std::int8_t>(i, WireType::I8, ok);
}

std::uint8_t HostLinkValueMessage::getUint8(int i, bool* ok) const
{
    return readInteger<std::uint8_t>(i, WireType::U8, ok);
}

std::uint16_t HostLinkValueMessage::getUint16(int i, bool* ok) const
{
    return readInteger<std::uint16_t>(i, WireType::U16, ok);
}

std::int32_t HostLinkValueMessage::getInt32(int i, bool* ok) const
{
    return readInteger<std::int32_t>(i, WireType::I32, ok);
}

std::uint32_t HostLinkValueMessage::getUint32(int i, bool* ok) const
{
    return readInteger<std::uint32_t>(i, WireType::U32, ok);
}

std::int64_t HostLinkValueMessage::getInt64(int i, bool* ok) const
{
    return readInteger<std::int64_t>(i, WireType::I64, ok);
}

std::string HostLinkValueMessage::getString(int i, bool* ok) const
{
    const std::uint8_t* content = contentOf(i, WireType::Str, ok);
    if (content == nullptr) {
        return {};
    }
    const std::uint8_t* text = content + kLengthSize;
    return std::string(text, text + readBigEndian<std::uint16_t>(content));
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

void HostLinkValueMessage::addValueNil(std::uint16_t tag)
{
    beginValue(tag, WireType::Nil);
}

void HostLinkValueMessage::addValueInt8(std::uint16_t tag, std::int8_t value)
{
    addInteger(tag, WireType::I8, value);
}

void HostLinkValueMessage::addValueUint8(std::uint16_t tag, std::uint8_t value)
{
    addInteger(tag, WireType::U8, value);
}

void HostLinkValueMessage::addValueUint16(std::uint16_t tag, std::uint16_t value)
{
    addInteger(tag, WireType::U16, value);
}

void HostLinkValueMessage::addValueInt32(std::uint16_t tag, std::int32_t value)
{
    addInteger(tag, WireType::I32, value);
}

void HostLinkValueMessage::addValueUint32(std::uint16_t tag, std::uint32_t value)
{
    addInteger(tag, WireType::U32, value);
}

void HostLinkValueMessage::addValueInt64(std::uint16_t tag, std::int64_t value)
{
    addInteger(tag, WireType::I64, value);
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
    const std::size_t begin = other.m_values[i];
    const std::size_t end = last ? other.m_bytes.size() : other.m_values[i + 1];
    const ByteArray value(other.m_bytes.begin() + begin, other.m_bytes.begin() + end); // other may be this
    m_values.push_back(m_bytes.size());
    m_bytes.insert(m_bytes.end(), value.begin(), value.end());
}

const ByteArray& HostLinkValueMessage::serialize() const
{
    return m_bytes;
}

/// Where value i begins, or nullptr when there is none.
const std::uint8_t* HostLinkValueMessage::valueAt(int i, bool* ok) const
{
    const bool found = i >= 0 && i < size();
    report(ok, found);
    return found ? &m_bytes[m_values[static_cast<std::size_t>(i)]] : nullptr;
}

/// What follows the encoding of value i, or nullptr when it is not of this type. Nil has no content.
const std::uint8_t* HostLinkValueMessage::contentOf(int i, WireType type, bool* ok) const
{
    const std::uint8_t* value = valueAt(i, nullptr);
    const bool readable = value != nullptr && value[kTagSize] == wireTypeEncoding(type);
    report(ok, readable);
    return readable ? value + kHeadSize : nullptr;
}

template <typename Integer>
Integer HostLinkValueMessage::readInteger(int i, WireType type, bool* ok) const
{
    const std::uint8_t* content = contentOf(i, type, ok);
    return content == nullptr ? Integer(0) : readBigEndian<Integer>(content);
}

void HostLinkValueMessage::beginValue(std::uint16_t tag, WireType type)
{
    m_values.push_back(m_bytes.size());
    appendBigEndian(m_bytes, tag);
    m_bytes.push_back(wireTypeEncoding(type));
}

template <typename Integer>
void HostLinkValueMessage::addInteger(std::uint16_t tag, WireType type, Integer value)
{
    beginValue(tag, type);
    appendBigEndian(m_bytes, value);
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
    beginValue(tag, type);
    appendBigEndian(m_bytes, static_cast<std::uint16_t>(size));
    m_bytes.insert(m_bytes.end(), bytes, bytes + size);
    return true;
}
