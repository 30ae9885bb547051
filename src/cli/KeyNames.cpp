#include "cli/KeyNames.h"

#include <algorithm>
#include <cctype>
#include <string_view>
#include <vector>

#include "cli/Suggestions.h"
#include "platform/hostlink/NumberText.h"

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
    return wholeNumber<std::uint16_t>(std::string(text), hexadecimal ? 16 : 10);
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
