#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

/// Bytes of the well-formed UTF-8 sequence (RFC 3629) that `text` begins with; 0 when it does not begin
/// with one: a stray or missing continuation byte, an overlong form, a surrogate, or beyond U+10FFFF.
constexpr std::size_t utf8SequenceLength(std::string_view text)
{
    const auto byte = [&](std::size_t i) {
        return i < text.size() ? static_cast<std::uint8_t>(text[i]) : std::uint8_t(0);
    };
    const std::uint8_t first = byte(0);
    if (first < 0x80) {
        return text.empty() ? 0 : 1;
    }
    if (first < 0xC2 || first > 0xF4) {
        return 0;
    }
    const std::uint8_t lowest = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    const std::uint8_t highest = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    if (byte(1) < lowest || byte(1) > highest) {
        return 0;
    }
    const std::size_t length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    for (std::size_t i = 2; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    return length;
}

/// The character that `text`, which is not empty, begins with; a single byte where that is none in UTF-8.
constexpr std::string_view firstCharacter(std::string_view text)
{
    return text.substr(0, std::max<std::size_t>(utf8SequenceLength(text), 1));
}

/// Whether what firstCharacter() gave is one of U+0000 to U+001F and U+007F to U+009F, which may be commands
/// to a terminal. Those from U+0080 on are two bytes, of which the second has the character's number.
constexpr bool isControl(std::string_view character)
{
    const auto first = static_cast<std::uint8_t>(character.front());
    return first < 0x20 || first == 0x7F
           || (character.size() == 2 && first == 0xC2 && static_cast<std::uint8_t>(character[1]) < 0xA0);
}
