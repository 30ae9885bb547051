#pragma once

#include "platform/hostlink/HostLinkMessage.h"

/// A list of unsigned 16-bit numbers, big-endian behind the message id.
class HostLinkUInt16Message : public HostLinkMessageSerializable
{
public:
    /// An empty list to fill.
    explicit HostLinkUInt16Message(MessageId id);

    /// A received list. It ends at the last whole number, and so does serialize(); without an id it is
    /// the empty list with id 0.
    explicit HostLinkUInt16Message(ByteArray bytes);

    MessageId id() const;
    int size() const;

    /// Number i, or 0 with *ok false when there is none.
    std::uint16_t get(int i, bool* ok = nullptr) const;

    void addValue(std::uint16_t number);

    const ByteArray& serialize() const override;

private:
    ByteArray m_bytes;
};
