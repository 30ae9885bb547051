#pragma once

#include <numeric>

#include "platform/hostlink/ByteArray.h"

/// Bytes of which each is one more than the one before it.
inline ByteArray countingBytes(std::size_t size, std::uint8_t first = 1)
{
    ByteArray bytes(size);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}
