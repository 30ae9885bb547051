#pragma once

#include <cstdint>

// The side channels' parts of messages, which both ends of the link agree on. States and message ids have
// tables of their own.

/// Tags of the values in MSG_DataTransfer.
namespace FileTag
{
enum : std::uint16_t {
    Name = 0,      ///< text, of the first chunk only
    Index = 1,     ///< u32, of the chunk, from 0
    Data = 2,      ///< bytes
    LastChunk = 3, ///< nil
    Crc = 4,       ///< u32, of the bytes, where asked for
    Abort = 5,     ///< nil, alone: the transfer was stopped
};
}

/// What a host answers to a chunk, an i32, other than the index of one that it has taken.
namespace FileAnswer
{
enum : std::int32_t { BlockFailed = -1, SendAgain = -2 };
}

/// Tags of the values in MSG_TcpTunnel.
namespace TunnelTag
{
enum : std::uint16_t {
    Closed = 0,  ///< u16, the connection that is gone
    Data = 1,    ///< bytes, the first of them the connection
    Command = 2, ///< u16, the command in the high byte and the connection in the low one
};
}

/// The only command of a tunnel: ends a connection.
constexpr std::uint8_t kTunnelClose = 0;

/// What became of a value in the host's MSG_TcpTunnel, a u8 in the reply under its tag.
enum class TunnelResult : std::uint8_t {
    Done = 0,
    Invalid = 1,
    NoConnection = 2,
    NotWritten = 3, ///< none of it, since the client does not read
    UnknownCommand = 4,
};

/// The tag of a key in MSG_InputEvent that is pressed; under any other it is released.
constexpr std::uint16_t kKeyPressed = 1;
