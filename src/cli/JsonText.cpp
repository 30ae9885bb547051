#include "cli/JsonText.h"

#include <cstdio>

#include "platform/hostlink/Utf8.h"

namespace
{

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
    if (character >= ' ' && character != 0x7F) {
        json += character;
        return;
    }
    char escape[sizeof "\\u0000"];
    std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(character));
    json += escape;
}

} // namespace

std::string jsonString(std::string_view text)
{
    std::string json = "\"";
    while (!text.empty()) {
        const std::size_t length = utf8SequenceLength(text);
        if (length == 0) {
            json += "\\ufffd";
        } else if (length == 1) {
            appendAscii(json, text.front());
        } else {
            json += text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return json + '"';
}
