#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <vector>

#include "platform/hostlink/BigEndian.h"
#include "platform/hostlink/HostLinkMessage.h"
#include "platform/hostlink/HostLinkUInt16Message.h"
#include "vocabulary/States.h"

inline constexpr MessageClass kState = MessageClass::State;
inline constexpr MessageClass kBulk = MessageClass::Bulk;

/// A message of `size` bytes that begins with its id and its number, so that no two are alike.
inline ByteArray message(MessageId id, std::uint32_t number, std::size_t size = 6)
{
    ByteArray bytes;
    appendBigEndian(bytes, static_cast<std::uint16_t>(id));
    appendBigEndian(bytes, number);
    bytes.resize(std::max(size, bytes.size()), static_cast<std::uint8_t>(number | 1));
    return bytes;
}

inline ByteArray state(std::uint32_t number, std::size_t size = 6)
{
    return message(MSG_StateChanged, number, size);
}

inline ByteArray bulk(std::uint32_t number, std::size_t size = 6)
{
    return message(MSG_DataTransfer, number, size);
}

/// A host's question for the volume.
inline ByteArray volumeRequest()
{
    HostLinkUInt16Message request(MSG_GetState);
    request.addValue(STA_Volume);
    return request.serialize();
}

inline std::vector<ByteArray> ofClass(const std::vector<ByteArray>& messages, MessageClass wanted)
{
    std::vector<ByteArray> found;
    std::copy_if(messages.begin(), messages.end(), std::back_inserter(found),
                 [wanted](const ByteArray& bytes) {
                     return messageClass(HostLinkMessage::messageId(bytes)) == wanted;
                 });
    return found;
}
