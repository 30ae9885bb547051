#include "cli/ValueText.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <limits>
#include <optional>
#include <vector>

#include "cli/JsonText.h"
#include "cli/Suggestions.h"
#include "platform/hostlink/HexText.h"
#include "platform/hostlink/HostLinkPrinter.h"

namespace
{

constexpr std::string_view kStatePrefix = "STA_";
constexpr std::size_t kMaxLength = 0xFFFF; // bytes of text or bin

[[noreturn]] void refuse(const std::string& reason)
{
    throw CLI::ValidationError(reason);
}

bool startsWith(std::string_view text, std::string_view start)
{
    return text.substr(0, start.size()) == start;
}

/// A number in decimal, or in hexadecimal behind 0x; empty when the whole text is none or its value is
/// not in lowest to highest.
template <typename Integer>
std::optional<Integer> parseNumber(std::string_view text)
{
    using Limits = std::numeric_limits<Integer>;
    const bool negative = Limits::is_signed && startsWith(text, "-");
    text.remove_prefix(negative ? 1 : 0);
    const bool hexadecimal = startsWith(text, "0x") || startsWith(text, "0X");
    text.remove_prefix(hexadecimal ? 2 : 0);

    std::uint64_t magnitude = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, magnitude, hexadecimal ? 16 : 10);
    const std::uint64_t largest = static_cast<std::uint64_t>(Limits::max()) + (negative ? 1 : 0);
    if (result.ec != std::errc() || result.ptr != end || magnitude > largest) {
        return std::nullopt;
    }
    return static_cast<Integer>(negative ? 0 - magnitude : magnitude);
}

std::string_view withoutPrefix(std::string_view name)
{
    return startsWith(name, kStatePrefix) ? name.substr(kStatePrefix.size()) : name;
}

std::vector<std::string_view> stateNames()
{
    std::vector<std::string_view> names;
    names.reserve(kStates.size());
    for (const StateRow& row : kStates) {
        names.push_back(row.name);
    }
    return names;
}

/// What an assignment says: a type and the value's text behind it.
struct TypedText {
    WireType type;
    std::string text;
};

/// The type in front of a value; empty where the value is plain.
std::optional<TypedText> splitType(const std::string& value)
{
    if (value == wireTypeName(WireType::Nil)) {
        return TypedText{WireType::Nil, {}};
    }
    const std::string_view word = std::string_view(value).substr(0, value.find(':'));
    if (word.size() == value.size()) {
        return std::nullopt;
    }
    for (const WireTypeRow& row : kWireTypes) {
        if (row.name == word && row.type != WireType::None && row.type != WireType::Nil) {
            return TypedText{row.type, value.substr(word.size() + 1)};
        }
    }
    return std::nullopt;
}

TypedText typedText(State state, const std::string& value)
{
    if (std::optional<TypedText> typed = splitType(value)) {
        return *typed;
    }
    const StateRow* row = findState(state);
    if (row == nullptr || row->write == WireType::None) {
        refuse(HostLinkPrinter::printHostLinkState(state)
               + " has no type that a host writes; put one in front of the value, as in u8:5");
    }
    return {row->write, value};
}

[[noreturn]] void refuseValue(State state, const TypedText& value, const std::string& reason)
{
    refuse(HostLinkPrinter::printHostLinkState(state) + ": '" + value.text + "' " + reason);
}

template <typename Integer>
Integer numberOf(State state, const TypedText& value)
{
    if (const std::optional<Integer> number = parseNumber<Integer>(value.text)) {
        return *number;
    }
    using Limits = std::numeric_limits<Integer>;
    refuseValue(state, value,
                "is no " + std::string(wireTypeName(value.type)) + ", a number from "
                    + std::to_string(Limits::min()) + " to " + std::to_string(Limits::max()));
}

void checkLength(State state, std::size_t size)
{
    if (size > kMaxLength) {
        refuse(HostLinkPrinter::printHostLinkState(state) + ": a value of " + std::to_string(size)
               + " bytes is longer than " + std::to_string(kMaxLength));
    }
}

ByteArray bytesOf(State state, const TypedText& value)
{
    const std::optional<ByteArray> bytes = parseHex(value.text);
    if (!bytes) {
        refuseValue(state, value, "is no bin, pairs of hexadecimal digits");
    }
    checkLength(state, bytes->size());
    return *bytes;
}

void appendValue(State state, const TypedText& value, HostLinkValueMessage* message)
{
    switch (value.type) {
    case WireType::None:
    case WireType::Nil: message->addValueNil(state); break;
    case WireType::U8: message->addValueUint8(state, numberOf<std::uint8_t>(state, value)); break;
    case WireType::U16: message->addValueUint16(state, numberOf<std::uint16_t>(state, value)); break;
    case WireType::U32: message->addValueUint32(state, numberOf<std::uint32_t>(state, value)); break;
    case WireType::I8: message->addValueInt8(state, numberOf<std::int8_t>(state, value)); break;
    case WireType::I32: message->addValueInt32(state, numberOf<std::int32_t>(state, value)); break;
    case WireType::I64: message->addValueInt64(state, numberOf<std::int64_t>(state, value)); break;
    case WireType::Str:
        checkLength(state, value.text.size());
        message->addValueString(state, value.text);
        break;
    case WireType::Bin: message->addValueBin16(state, bytesOf(state, value)); break;
    }
}

std::string escaped(const std::string& text)
{
    std::string line;
    line.reserve(text.size());
    for (const char character : text) {
        switch (character) {
        case '\t': line += "\\t"; break;
        case '\n': line += "\\n"; break;
        case '\r': line += "\\r"; break;
        case '\\': line += "\\\\"; break;
        default: line += character; break;
        }
    }
    return line;
}

WireType typeOf(const HostLinkValueMessage& message, int index)
{
    return wireTypeOfEncoding(message.getEnc(index));
}

/// A number in decimal; empty for values that are no numbers.
std::string numberText(const HostLinkValueMessage& message, int index)
{
    switch (typeOf(message, index)) {
    case WireType::U8: return std::to_string(message.getUint8(index));
    case WireType::U16: return std::to_string(message.getUint16(index));
    case WireType::U32: return std::to_string(message.getUint32(index));
    case WireType::I8: return std::to_string(message.getInt8(index));
    case WireType::I32: return std::to_string(message.getInt32(index));
    case WireType::I64: return std::to_string(message.getInt64(index));
    case WireType::None:
    case WireType::Nil:
    case WireType::Str:
    case WireType::Bin: break;
    }
    return {};
}

std::string line(State state, WireType type, const std::string& value)
{
    return HostLinkPrinter::printHostLinkState(state) + '\t' + std::string(wireTypeName(type)) + '\t' + value;
}

std::string json(State state, WireType type, const std::string& value)
{
    return "{\"name\":" + jsonString(HostLinkPrinter::printHostLinkState(state))
           + ",\"state\":" + std::to_string(state) + ",\"type\":" + jsonString(wireTypeName(type))
           + ",\"value\":" + (value.empty() ? "null" : value) + '}';
}

} // namespace

State parseState(const std::string& text)
{
    if (!text.empty() && text[0] >= '0' && text[0] <= '9') {
        const std::optional<std::uint16_t> number = parseNumber<std::uint16_t>(text);
        if (!number) {
            refuse("'" + text + "' is no state, a number from 0 to 65535");
        }
        return State(*number);
    }
    const std::string_view name = withoutPrefix(text);
    for (const StateRow& row : kStates) {
        if (withoutPrefix(row.name) == name) {
            return row.id;
        }
    }
    refuse("there is no state '" + text + "'"
           + suggestions(std::string(kStatePrefix) + std::string(name), stateNames()));
}

State appendAssignment(const std::string& text, HostLinkValueMessage* message)
{
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) {
        refuse("'" + text + "' is no assignment, STATE=VALUE");
    }
    const State state = parseState(text.substr(0, equals));
    appendValue(state, typedText(state, text.substr(equals + 1)), message);
    return state;
}

std::string valueLine(const HostLinkValueMessage& message, int index)
{
    const State state = State(message.getTag(index));
    const WireType type = typeOf(message, index);
    switch (type) {
    case WireType::Str: return line(state, type, escaped(message.getString(index)));
    case WireType::Bin: return line(state, type, hexText(message.getBin16(index)));
    default: return line(state, type, numberText(message, index));
    }
}

std::string noneLine(State state)
{
    return line(state, WireType::None, {});
}

std::string valueJson(const HostLinkValueMessage& message, int index)
{
    const State state = State(message.getTag(index));
    const WireType type = typeOf(message, index);
    switch (type) {
    case WireType::Str: return json(state, type, jsonString(message.getString(index)));
    case WireType::Bin: return json(state, type, jsonString(hexText(message.getBin16(index))));
    default: return json(state, type, numberText(message, index));
    }
}

std::string noneJson(State state)
{
    return json(state, WireType::None, {});
}
