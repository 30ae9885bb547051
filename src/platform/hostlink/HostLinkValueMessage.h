#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/hostlink/BigEndian.h"
#include "platform/hostlink/HostLinkMessage.h"
#include "vocabulary/WireType.h"

/// A list of tagged values. Behind the message id each value is its tag (16 bits, big-endian) and one
/// MessagePack value in a fixed-width format: nil 0xC0, bin16 0xC5, uint8 0xCC, uint16 0xCD,
/// uint32 0xCE, int8 0xD0, int32 0xD2, int64 0xD3 or str16 0xDA.
///
/// Values stay in the message's bytes; only their places are noted, of those that were added when one is
/// read back. A received message ends before the first value that is cut off or of another format, and so
/// does its serialize(). Not even two readers may share a message between threads.
class HostLinkValueMessage : public HostLinkMessageSerializable
{
public:
    /// An empty message to fill.
    explicit HostLinkValueMessage(MessageId id) : m_bytes(kUsualBytes), m_size(kIdSize)
    {
        writeBigEndian<std::uint16_t>(m_bytes.data(), id);
    }

    /// A received message, parsed in one pass. Without an id it is the empty message with id 0.
    explicit HostLinkValueMessage(ByteArray bytes) : m_bytes(std::move(bytes)) { parse(); }

    /// Makes another message of this one, as the constructors do. Who builds or reads one message after
    /// another keeps the memory so, up to 64 KiB of it.
    void restart(MessageId id);
    void restart(const ByteArray& bytes);

    MessageId id() const;
    int size() const
    {
        if (m_found != m_size) {
            findValues();
        }
        return static_cast<int>(m_values.size());
    }

    /// More bytes than any link carries in a message. Who answers one value after another ends there: the
    /// link refuses the message as a whole anyway, and a request of 64 KiB may ask for gigabytes.
    static constexpr std::size_t kBeyondAnyLink = 1 << 20;
    bool isBeyondAnyLink() const { return m_size > kBeyondAnyLink; }

    /// Tag and encoding byte of value i; 0 with *ok false when there is none.
    std::uint16_t getTag(int i, bool* ok = nullptr) const
    {
        const std::uint8_t* value = valueAt(i, ok);
        return value == nullptr ? 0 : readBigEndian<std::uint16_t>(value);
    }
    std::uint8_t getEnc(int i, bool* ok = nullptr) const
    {
        const std::uint8_t* value = valueAt(i, ok);
        return value == nullptr ? 0 : value[kTagSize];
    }

    /// Readers of value i. Each takes its own encoding only; otherwise, or when there is no value i,
    /// the result is 0 or empty and *ok false.
    std::int8_t getInt8(int i, bool* ok = nullptr) const
    {
        return readInteger<std::int8_t>(i, WireType::I8, ok);
    }
    std::uint8_t getUint8(int i, bool* ok = nullptr) const
    {
        return readInteger<std::uint8_t>(i, WireType::U8, ok);
    }
    std::uint16_t getUint16(int i, bool* ok = nullptr) const
    {
        return readInteger<std::uint16_t>(i, WireType::U16, ok);
    }
    std::int32_t getInt32(int i, bool* ok = nullptr) const
    {
        return readInteger<std::int32_t>(i, WireType::I32, ok);
    }
    std::uint32_t getUint32(int i, bool* ok = nullptr) const
    {
        return readInteger<std::uint32_t>(i, WireType::U32, ok);
    }
    std::int64_t getInt64(int i, bool* ok = nullptr) const
    {
        return readInteger<std::int64_t>(i, WireType::I64, ok);
    }
    std::string getString(int i, bool* ok = nullptr) const { return std::string(getStringView(i, ok)); }
    ByteArray getBin16(int i, bool* ok = nullptr) const;

    /// The same text as getString(), valid until the message is changed or destroyed.
    std::string_view getStringView(int i, bool* ok = nullptr) const
    {
        const std::uint8_t* content = contentOf(i, WireType::Str, ok);
        if (content == nullptr) {
            return "";
        }
        const auto* text = reinterpret_cast<const char*>(content + kLengthSize);
        return {text, readBigEndian<std::uint16_t>(content)};
    }

    /// Writers: each appends one value.
    void addValueNil(std::uint16_t tag) { appendHead(tag, WireType::Nil, 0); }
    void addValueInt8(std::uint16_t tag, std::int8_t value) { addInteger(tag, WireType::I8, value); }
    void addValueUint8(std::uint16_t tag, std::uint8_t value) { addInteger(tag, WireType::U8, value); }
    void addValueUint16(std::uint16_t tag, std::uint16_t value) { addInteger(tag, WireType::U16, value); }
    void addValueInt32(std::uint16_t tag, std::int32_t value) { addInteger(tag, WireType::I32, value); }
    void addValueUint32(std::uint16_t tag, std::uint32_t value) { addInteger(tag, WireType::U32, value); }
    void addValueInt64(std::uint16_t tag, std::int64_t value) { addInteger(tag, WireType::I64, value); }

    /// Text and bytes of at most 65,535 bytes. Longer ones append Nil instead, log a warning and
    /// return false, so that the message still holds exactly one value for the tag.
    bool addValueString(std::uint16_t tag, std::string_view utf8);
    bool addValueBin16(std::uint16_t tag, const ByteArray& bytes);

    /// Appends value i of `other` as it stands, its tag too; nothing when there is none.
    void addValueOf(const HostLinkValueMessage& other, int i);

    const ByteArray& serialize() const override
    {
        if (m_bytes.size() != m_size) {
            m_bytes.resize(m_size);
        }
        return m_bytes;
    }

private:
    static constexpr std::size_t kIdSize = 2;
    static constexpr std::size_t kTagSize = 2;
    static constexpr std::size_t kHeadSize = kTagSize + 1; ///< tag and encoding
    static constexpr std::size_t kLengthSize = 2;          ///< of text and bytes, behind the head

    /// A usual reply, ten small values, does not grow.
    static constexpr std::size_t kUsualBytes = kIdSize + 12 * (kHeadSize + sizeof(std::int64_t));

    /// Where values begin. A few take no memory of the heap.
    class Places
    {
    public:
        std::size_t size() const { return m_size; }
        std::size_t operator[](std::size_t i) const { return i < kFew ? m_few[i] : m_more[i - kFew]; }

        /// Notes the place behind `size` others; setSize() counts it.
        void put(std::size_t size, std::size_t place)
        {
            if (size < kFew) {
                m_few[size] = std::uint32_t(place);
            } else {
                appendMore(place);
            }
        }
        void setSize(std::size_t size) { m_size = size; }

        void clear()
        {
            m_size = 0;
            m_more.clear();
        }

    private:
        static constexpr std::size_t kFew = 16;

        void appendMore(std::size_t place);

        std::size_t m_size = 0;
        std::array<std::uint32_t, kFew> m_few{}; ///< the first ones
        std::vector<std::uint32_t> m_more;
    };

    void parse()
    {
        if (m_bytes.size() < kIdSize) {
            m_bytes.assign(kIdSize, 0);
        }
        m_size = m_bytes.size();
        findValues();
        m_size = m_found;
    }

    static void report(bool* ok, bool result)
    {
        if (ok != nullptr) {
            *ok = result;
        }
    }

    /// Where value i begins, or nullptr when there is none.
    const std::uint8_t* valueAt(int i, bool* ok) const
    {
        const auto index = static_cast<std::size_t>(i); // of one below 0 a large number
        const bool found = index < m_values.size() || findsAdded(index);
        report(ok, found);
        return found ? m_bytes.data() + m_values[index] : nullptr;
    }

    /// What follows the encoding of value i, or nullptr when it is not of this type. Nil has no content.
    const std::uint8_t* contentOf(int i, WireType type, bool* ok) const
    {
        const std::uint8_t* value = valueAt(i, nullptr);
        const bool readable = value != nullptr && value[kTagSize] == wireTypeEncoding(type);
        report(ok, readable);
        return readable ? value + kHeadSize : nullptr;
    }

    template <typename Integer>
    Integer readInteger(int i, WireType type, bool* ok) const
    {
        const std::uint8_t* content = contentOf(i, type, ok);
        return content == nullptr ? Integer(0) : readBigEndian<Integer>(content);
    }

    /// Appends a value of so many bytes; returns where they go.
    std::uint8_t* append(std::size_t size)
    {
        const std::size_t at = m_size;
        m_size += size;
        if (m_size > m_bytes.size()) {
            grow();
        }
        return m_bytes.data() + at;
    }

    /// Appends a value but for its content; returns where that goes.
    std::uint8_t* appendHead(std::uint16_t tag, WireType type, std::size_t contentSize)
    {
        std::uint8_t* value = append(kHeadSize + contentSize);
        writeBigEndian(value, tag);
        value[kTagSize] = wireTypeEncoding(type);
        return value + kHeadSize;
    }

    template <typename Integer>
    void addInteger(std::uint16_t tag, WireType type, Integer value)
    {
        writeBigEndian(appendHead(tag, type, sizeof value), value);
    }

    bool addBytes(std::uint16_t tag, WireType type, const std::uint8_t* bytes, std::size_t size);
    bool addTooLong(std::uint16_t tag, std::size_t size);
    void grow();
    void findValues() const;
    bool findsAdded(std::size_t index) const;
    void keepLittle();

    mutable ByteArray m_bytes; ///< with room behind the message, which goes when somebody asks for the bytes
    std::size_t m_size = 0;    ///< of the message
    mutable std::size_t m_found = kIdSize; ///< how far values have been looked for
    mutable Places m_values;               ///< each value's tag in m_bytes, up to there
};
