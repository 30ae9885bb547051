#include "platform/hostlink/HexText.h"

#include <charconv>
#include <cstdio>

#include "platform/hostlink/Utf8.h"

std::string hexText(const ByteArray& bytes)
{
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const std::uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0x0F];
    }
    return text;
}

std::string escapedBytes(std::string_view bytes)
{
    std::string text;
    for (const char byte : bytes) {
        text += "\\x" + hexText({static_cast<std::uint8_t>(byte)});
    }
    return text;
}

std::string withoutControls(std::string_view text, std::string_view kept)
{
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const std::string_view character = firstCharacter(text);
        if (isControl(character) && kept.find(character) == std::string_view::npos) {
            result += escapedBytes(character);
        } else {
            result += character;
        }
        text.remove_prefix(character.size());
    }
    return result;
}

std::optional<ByteArray> parseHex(std::string_view text)
{
    if (text.size() % 2 != 0) {
        return std::nullopt;
    }
    ByteArray bytes(text.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const char* pair = text.data() + 2 * i;
        const auto result = std::from_chars(pair, pair + 2, bytes[i], 16);
        if (result.ec != std::errc() || result.ptr != pair + 2) {
            return std::nullopt;
        }
    }
    return bytes;
}

std::string hexNumber(std::uint16_t number)
{
    char text[sizeof "0xFFFF"];
    std::snprintf(text, sizeof text, "0x%04X", number);
    return text;
}
