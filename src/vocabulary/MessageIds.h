#pragma once

#include <array>
#include <cstdint>
#include <string_view>

/// Host-link message identifier. Holds ids without a name too.
enum MessageId : std::uint16_t {
#define MESSAGE(name, id, body) name = id,
#include "vocabulary/MessageIds.inc"
#undef MESSAGE
};

enum class MessageBody : std::uint8_t { Values, Numbers };

/// How a message queues: state messages go before waiting bulk messages.
enum class MessageClass : std::uint8_t { State, Bulk };

struct MessageRow {
    MessageId id;
    std::string_view name;
    MessageBody body;
};

inline constexpr std::array kMessages{
#define MESSAGE(name, id, body) MessageRow{name, #name, MessageBody::body},
#include "vocabulary/MessageIds.inc"
#undef MESSAGE
};

/// The row of a message id, or nullptr for an id without a name.
constexpr const MessageRow* findMessage(MessageId id)
{
    for (const MessageRow& row : kMessages) {
        if (row.id == id) {
            return &row;
        }
    }
    return nullptr;
}

/// Bulk is data transfer and tunnelling, requests and responses; everything else is state.
constexpr MessageClass messageClass(MessageId id)
{
    return id == MSG_DataTransfer || id == MSG_TcpTunnel || id == MSG_DataTransferResponse
                   || id == MSG_TcpTunnelReply
               ? MessageClass::Bulk
               : MessageClass::State;
}
