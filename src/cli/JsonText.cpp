#include "cli/JsonText.h"

#include <cstdio>

#include "platform/hostlink/Utf8.h"

namespace
{

void appendEscape(std::string& json, char character)
{
    char escape[sizeof "\\u0000"];
    std::snprintf(escape, sizeof escape, "\\u%04x", unsigned{static_cast<unsigned char>(character)});
    json += escape;
}

void appendAscii(std::string& json, char character)
{
    switch (character) {
    case '"': json += "\\\""; return;
    case '\\': json += "\\\\"; return;
    case '\n': json += "\\n"; return;
    case '\r': json += "\\r"; return;
    case '\t': json += "\\t"; return;
    default: break;
    }
    if (isControl({&character, 1})) {
        appendEscape(json, character);
    } else {
        json += character;
    }
}

} // namespace

std::string jsonString(std::string_view text)
{
    std::string json = "\"";
    while (!text.empty()) {
        const std::string_view character = firstCharacter(text);
        if (utf8SequenceLength(text) == 0) {
            json += "\\ufffd";
        } else if (character.size() == 1) {
            appendAscii(json, character.front());
        } else if (isControl(character)) {
            appendEscape(json, character.back());
        } else {
            json += character;
        }
        text.remove_prefix(character.size());
    }
    return json + '"';
}
