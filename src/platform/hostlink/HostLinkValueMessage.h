#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/hostlink/HostLinkMessage.h"
#include "vocabulary/WireType.h"

/// A list of tagged values. Behind the message id each value is its tag (16 bits, big-endian) and one
/// MessagePack value in a fixed-width format: nil 0xC0, bin16 0xC5, uint8 0xCC, uint16 0xCD,
/// uint32 0xCE, int8 0xD0, int32 0xD2, int64 0xD3 or str16 0xDA.
///
/// Values stay in the message's bytes; only their places are noted. A received message ends before
/// the first value that is cut off or of another format, and so does its serialize(). Values that were
/// added can be read back.
class HostLinkValueMessage : public HostLinkMessageSerializable
{
public:
    /// An empty message to fill.
    explicit HostLinkValueMessage(MessageId id);

    /// A received message, parsed in one pass. Without an id it is the empty message with id 0.
    explicit HostLinkValueMessage(ByteArray bytes);

    MessageId id() const;
    int size() const;

    /// More bytes than any link carries in a message. Who answers one value after another ends there: the
    /// link refuses the message as a whole anyway, and a request of 64 KiB may ask for gigabytes.
    static constexpr std::size_t kBeyondAnyLink = 1 << 20;
    bool isBeyondAnyLink() const { return m_bytes.size() > kBeyondAnyLink; }

    /// Tag and encoding byte of value i; 0 with *ok false when there is none.
    std::uint16_t getTag(int i, bool* ok = nullptr) const;
    std::uint8_t getEnc(int i, bool* ok = nullptr) const;

    /// Readers of value i. Each takes its own encoding only; otherwise, or when there is no value i,
    /// the result is 0 or empty and *ok false.
    std::int8_t getInt8(int i, bool* ok = nullptr) const;
    std::uint8_t getUint8(int i, bool* ok = nullptr) const;
    std::uint16_t getUint16(int i, bool* ok = nullptr) const;
    std::int32_t getInt32(int i, bool* ok = nullptr) const;
    std::uint32_t getUint32(int i, bool* ok = nullptr) const;
    std::int64_t getInt64(int i, bool* ok = nullptr) const;
    std::string getString(int i, bool* ok = nullptr) const;
    ByteArray getBin16(int i, bool* ok = nullptr) const;

    /// Writers: each appends one value.
    void addValueNil(std::uint16_t tag);
    void addValueInt8(std::uint16_t tag, std::int8_t value);
    void addValueUint8(std::uint16_t tag, std::uint8_t value);
    void addValueUint16(std::uint16_t tag, std::uint16_t value);
    void addValueInt32(std::uint16_t tag, std::int32_t value);
    void addValueUint32(std::uint16_t tag, std::uint32_t value);
    void addValueInt64(std::uint16_t tag, std::int64_t value);

    /// Text and bytes of at most 65,535 bytes. Longer ones append Nil instead, log a warning and
    /// return false, so that the message still holds exactly one value for the tag.
    bool addValueString(std::uint16_t tag, std::string_view utf8);
    bool addValueBin16(std::uint16_t tag, const ByteArray& bytes);

    /// Appends value i of `other` as it stands, its tag too; nothing when there is none.
    void addValueOf(const HostLinkValueMessage& other, int i);

    const ByteArray& serialize() const override;

private:
    const std::uint8_t* valueAt(int i, bool* ok) const;
    const std::uint8_t* contentOf(int i, WireType type, bool* ok) const;
    template <typename Integer>
    Integer readInteger(int i, WireType type, bool* ok) const;
    void beginValue(std::uint16_t tag, WireType type);
    template <typename Integer>
    void addInteger(std::uint16_t tag, WireType type, Integer value);
    bool addBytes(std::uint16_t tag, WireType type, const std::uint8_t* bytes, std::size_t size);

    ByteArray m_bytes;
    std::vector<std::size_t> m_values; ///< where in m_bytes each value's tag begins
};
