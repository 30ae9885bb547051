#include "cli/KeyNames.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <string_view>
#include <vector>

#include "cli/Suggestions.h"

namespace
{
struct KeyRow {
    std::string_view name;
    std::uint16_t code;
};

constexpr KeyRow kKeys[] = {
#define KEY(name, code) {#name, code},
#include "cli/KeyNames.inc"
#undef KEY
};

std::optional<std::uint16_t> number(std::string_view text)
{
    const bool hexadecimal = text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X";
    text.remove_prefix(hexadecimal ? 2 : 0);
    std::uint16_t value = 0;
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), value, hexadecimal ? 16 : 10);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    return whole ? std::optional(value) : std::nullopt;
}
} // namespace

std::optional<std::uint16_t> keyCode(const std::string& text)
{
    if (const std::optional<std::uint16_t> code = number(text)) {
        return code;
    }
    std::string name = text;
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char character) { return static_cast<char>(std::toupper(character)); });
    for (const KeyRow& row : kKeys) {
        if (row.name == name || row.name == "KEY_" + name) {
            return row.code;
        }
    }
    return std::nullopt;
}

std::string similarKeys(const std::string& text)
{
    std::vector<std::string_view> names;
    for (const KeyRow& row : kKeys) {
        names.push_back(row.name);
    }
    return suggestions(text, names);
}
