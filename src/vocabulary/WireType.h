#pragma once

#include <array>
#include <cstdint>
#include <string_view>

/// Type of a tagged value on the wire. The encoding byte of each is its MessagePack format.
enum class WireType : std::uint8_t { None, Nil, U8, U16, U32, I8, I32, I64, Str, Bin };

struct WireTypeRow {
    WireType type;
    std::string_view name; ///< as the command line writes it
    std::uint8_t encoding; ///< MessagePack format byte, 0 for None
};

inline constexpr std::array<WireTypeRow, 10> kWireTypes{{
    {WireType::None, "none", 0x00},
    {WireType::Nil, "nil", 0xC0},
    {WireType::U8, "u8", 0xCC},
    {WireType::U16, "u16", 0xCD},
    {WireType::U32, "u32", 0xCE},
    {WireType::I8, "i8", 0xD0},
    {WireType::I32, "i32", 0xD2},
    {WireType::I64, "i64", 0xD3},
    {WireType::Str, "str", 0xDA},
    {WireType::Bin, "bin", 0xC5},
}};

constexpr bool wireTypesInOrder()
{
    for (std::size_t i = 0; i < kWireTypes.size(); ++i) {
        if (static_cast<std::size_t>(kWireTypes[i].type) != i) {
            return false;
        }
    }
    return true;
}
static_assert(wireTypesInOrder(), "a wire type's row stands at its own number");

constexpr std::string_view wireTypeName(WireType type)
{
    return kWireTypes[static_cast<std::size_t>(type)].name;
}

constexpr std::uint8_t wireTypeEncoding(WireType type)
{
    return kWireTypes[static_cast<std::size_t>(type)].encoding;
}

constexpr std::array<WireType, 256> wireTypesByEncoding()
{
    std::array<WireType, 256> types{}; // None where nothing else is said
    for (std::size_t i = 1; i < kWireTypes.size(); ++i) {
        types[kWireTypes[i].encoding] = kWireTypes[i].type;
    }
    return types;
}
inline constexpr std::array<WireType, 256> kWireTypesByEncoding = wireTypesByEncoding();

/// The type with this encoding byte, None where there is no such type.
constexpr WireType wireTypeOfEncoding(std::uint8_t encoding)
{
    return kWireTypesByEncoding[encoding];
}
