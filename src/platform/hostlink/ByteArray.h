#pragma once

#include <cstdint>
#include <vector>

/// The raw bytes of one message.
using ByteArray = std::vector<std::uint8_t>;
