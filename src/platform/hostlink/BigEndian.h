#pragma once

#include <cstddef>
#include <type_traits>

#include "platform/hostlink/ByteArray.h"

/// The integer whose bytes begin at `bytes`, most significant first.
template <typename Integer>
Integer readBigEndian(const std::uint8_t* bytes)
{
    std::make_unsigned_t<Integer> value = 0;
    for (std::size_t i = 0; i < sizeof(Integer); ++i) {
        value = static_cast<std::make_unsigned_t<Integer>>(static_cast<std::uint64_t>(value) << 8 | bytes[i]);
    }
    return static_cast<Integer>(value);
}

/// Writes an integer's bytes to sizeof(Integer) bytes at `to`, most significant first.
template <typename Integer>
void writeBigEndian(std::uint8_t* to, Integer value)
{
    for (std::size_t i = 0; i < sizeof(Integer); ++i) {
        to[i] = static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> 8 * (sizeof(Integer) - 1 - i));
    }
}

/// Appends an integer's bytes, most significant first.
template <typename Integer>
void appendBigEndian(ByteArray& bytes, Integer value)
{
    for (std::size_t shift = 8 * sizeof(Integer); shift > 0; shift -= 8) {
        bytes.push_back(static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> (shift - 8)));
    }
}
