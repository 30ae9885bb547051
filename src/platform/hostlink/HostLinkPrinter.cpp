#include "platform/hostlink/HostLinkPrinter.h"

#include "platform/hostlink/BigEndian.h"
#include "platform/hostlink/HexText.h"
#include "platform/hostlink/HostLinkUInt16Message.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/hostlink/Utf8.h"

namespace
{

/// Whether tags and numbers of a message are states; its response carries the same as its request.
bool namesStates(MessageId id)
{
    switch (id & 0x7FFF) {
    case MSG_SetState:
    case MSG_GetState:
    case MSG_Subscribe:
    case MSG_StateChanged:
    case MSG_Unsubscribe: return true;
    default: return false;
    }
}

std::string tagText(MessageId id, std::uint16_t tag)
{
    if (namesStates(id)) {
        return HostLinkPrinter::printHostLinkState(State(tag));
    }
    return id == MSG_ErrorResponse ? HostLinkPrinter::printMessageId(MessageId(tag)) : std::to_string(tag);
}

/// Text between quotes that stays on its line and does nothing to a terminal: control characters and
/// bytes that are not UTF-8 become \xNN.
void appendQuoted(std::string& line, std::string_view text)
{
    line += '"';
    while (!text.empty()) {
        const std::string_view character = firstCharacter(text);
        if (utf8SequenceLength(text) == 0 || isControl(character)) {
            line += escapedBytes(character);
        } else {
            if (text[0] == '"' || text[0] == '\\') {
                line += '\\';
            }
            line += character;
        }
        text.remove_prefix(character.size());
    }
    line += '"';
}

void appendValue(std::string& line, const HostLinkValueMessage& message, int i)
{
    const WireType type = wireTypeOfEncoding(message.getEnc(i));
    line += wireTypeName(type);
    if (type != WireType::Nil) {
        line += ':';
    }
    switch (type) {
    case WireType::None:
    case WireType::Nil: break;
    case WireType::U8: line += std::to_string(message.getUint8(i)); break;
    case WireType::U16: line += std::to_string(message.getUint16(i)); break;
    case WireType::U32: line += std::to_string(message.getUint32(i)); break;
    case WireType::I8: line += std::to_string(message.getInt8(i)); break;
    case WireType::I32: line += std::to_string(message.getInt32(i)); break;
    case WireType::I64: line += std::to_string(message.getInt64(i)); break;
    case WireType::Str: appendQuoted(line, message.getString(i)); break;
    case WireType::Bin: line += hexText(message.getBin16(i)); break;
    }
}

/// Appends the values; returns how many bytes they and the id take.
std::size_t appendValues(std::string& line, const ByteArray& bytes)
{
    const HostLinkValueMessage message(bytes);
    for (int i = 0; i < message.size(); ++i) {
        line += ' ' + tagText(message.id(), message.getTag(i)) + '=';
        appendValue(line, message, i);
    }
    return message.serialize().size();
}

/// Appends the numbers; returns how many bytes they and the id take.
std::size_t appendNumbers(std::string& line, const ByteArray& bytes)
{
    const HostLinkUInt16Message message(bytes);
    for (int i = 0; i < message.size(); ++i) {
        line += ' ' + tagText(message.id(), message.get(i));
    }
    return message.serialize().size();
}

} // namespace

std::string HostLinkPrinter::printHostLinkState(State state)
{
    const StateRow* row = findState(state);
    return row == nullptr ? hexNumber(state) : std::string(row->name);
}

std::string HostLinkPrinter::printMessageId(MessageId id)
{
    const MessageRow* row = findMessage(id);
    return row == nullptr ? hexNumber(id) : std::string(row->name);
}

std::string HostLinkPrinter::printMessage(const ByteArray& message)
{
    if (message.size() < 2) {
        return "no message, " + std::to_string(message.size()) + " bytes";
    }
    const MessageId id = HostLinkMessage::messageId(message);
    std::string line = printMessageId(id);
    const MessageRow* row = findMessage(id);
    std::size_t read = 2;
    if (row != nullptr) {
        read = row->body == MessageBody::Values ? appendValues(line, message) : appendNumbers(line, message);
    } else if (message.size() > read) {
        line += " body:" + hexText({message.begin() + 2, message.end()});
        read = message.size();
    }
    if (read < message.size()) {
        line += " + " + std::to_string(message.size() - read) + " unread bytes";
    }
    return line;
}
