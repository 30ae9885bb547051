#pragma once

#include <endian.h>

#include <cstddef>
#include <cstring>
#include <type_traits>

#include "platform/hostlink/ByteArray.h"

/// An unsigned integer with its bytes as they stand in memory turned from most significant first, or to it.
template <typename Unsigned>
Unsigned swappedBigEndian(Unsigned value)
{
    static_assert(std::is_unsigned_v<Unsigned>);
    if constexpr (sizeof value == 1) {
        return value;
    } else if constexpr (sizeof value == 2) {
        return htobe16(value);
    } else if constexpr (sizeof value == 4) {
        return htobe32(value);
    } else {
        static_assert(sizeof value == 8);
        return htobe64(value);
    }
}

/// The integer whose bytes begin at `bytes`, most significant first.
template <typename Integer>
Integer readBigEndian(const std::uint8_t* bytes)
{
    std::make_unsigned_t<Integer> value;
    std::memcpy(&value, bytes, sizeof value);
    return static_cast<Integer>(swappedBigEndian(value));
}

/// Writes an integer's bytes to sizeof(Integer) bytes at `to`, most significant first.
template <typename Integer>
void writeBigEndian(std::uint8_t* to, Integer value)
{
    const auto swapped = swappedBigEndian(static_cast<std::make_unsigned_t<Integer>>(value));
    std::memcpy(to, &swapped, sizeof swapped);
}

/// Appends an integer's bytes, most significant first.
template <typename Integer>
void appendBigEndian(ByteArray& bytes, Integer value)
{
    std::uint8_t raw[sizeof value];
    writeBigEndian(raw, value);
    bytes.insert(bytes.end(), raw, raw + sizeof raw);
}
