#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "vocabulary/WireType.h"

/// Conversion between the value of a node and a host-link value. Holds unknown numbers too.
enum class CMValueItemProxyConvert : std::uint32_t {
#define CONVERSION(number, name, read, write) name = number,
#include "vocabulary/Conversions.inc"
#undef CONVERSION
};

struct ConversionRow {
    CMValueItemProxyConvert kind;
    std::string_view name;
    WireType read;
    WireType write;
};

inline constexpr std::array kConversions{
#define CONVERSION(number, name, read, write)                                                                \
    ConversionRow{CMValueItemProxyConvert::name, #name, WireType::read, WireType::write},
#include "vocabulary/Conversions.inc"
#undef CONVERSION
};

constexpr bool conversionsInOrder()
{
    for (std::size_t i = 0; i < kConversions.size(); ++i) {
        if (static_cast<std::size_t>(kConversions[i].kind) != i) {
            return false;
        }
    }
    return true;
}
static_assert(conversionsInOrder(), "a conversion's row stands at its own number");

/// The row of a known conversion.
constexpr const ConversionRow& conversionRow(CMValueItemProxyConvert kind)
{
    return kConversions[static_cast<std::size_t>(kind)];
}
