#include <algorithm>

#include "FuzzInput.h"
#include "platform/hostlink/HostLinkLog.h"
#include "platform/hostlink/HostLinkPrinter.h"
#include "platform/hostlink/HostLinkValueMessage.h"

namespace
{

/// Reads value i by its own reader, checks that it is the only one that accepts it, and writes it again.
void copyValue(const HostLinkValueMessage& from, int i, HostLinkValueMessage* to)
{
    bool int8 = false, uint8 = false, uint16 = false, int32 = false, uint32 = false, int64 = false;
    bool text = false, bin = false;
    const std::int8_t int8Value = from.getInt8(i, &int8);
    const std::uint8_t uint8Value = from.getUint8(i, &uint8);
    const std::uint16_t uint16Value = from.getUint16(i, &uint16);
    const std::int32_t int32Value = from.getInt32(i, &int32);
    const std::uint32_t uint32Value = from.getUint32(i, &uint32);
    const std::int64_t int64Value = from.getInt64(i, &int64);
    const std::string textValue = from.getString(i, &text);
    const ByteArray binValue = from.getBin16(i, &bin);
    const int readers = int8 + uint8 + uint16 + int32 + uint32 + int64 + text + bin;
    const WireType type = wireTypeOfEncoding(from.getEnc(i));
    require(type != WireType::None && readers == (type == WireType::Nil ? 0 : 1));

    const std::uint16_t tag = from.getTag(i);
    switch (type) {
    case WireType::None: break;
    case WireType::Nil: to->addValueNil(tag); break;
    case WireType::I8: to->addValueInt8(tag, int8Value); break;
    case WireType::U8: to->addValueUint8(tag, uint8Value); break;
    case WireType::U16: to->addValueUint16(tag, uint16Value); break;
    case WireType::I32: to->addValueInt32(tag, int32Value); break;
    case WireType::U32: to->addValueUint32(tag, uint32Value); break;
    case WireType::I64: to->addValueInt64(tag, int64Value); break;
    case WireType::Str: require(to->addValueString(tag, textValue)); break;
    case WireType::Bin: require(to->addValueBin16(tag, binValue)); break;
    }
}

/// What the readers find, written again.
ByteArray rewritten(const HostLinkValueMessage& message)
{
    HostLinkValueMessage copy(message.id());
    for (int i = 0; i < message.size(); ++i) {
        copyValue(message, i, &copy);
    }
    return copy.serialize();
}

void parse(const ByteArray& input)
{
    const HostLinkValueMessage parsed(input);
    require(rewritten(parsed) == parsed.serialize());
    if (input.size() >= 2) {
        require(parsed.serialize().size() <= input.size()
                && std::equal(parsed.serialize().begin(), parsed.serialize().end(), input.begin()));
    }
    bool beyond = true;
    require(parsed.getEnc(parsed.size(), &beyond) == 0 && !beyond);
    require(HostLinkPrinter::printMessage(input).find('\n') == std::string::npos);
}

/// Builds message after message in one that keeps its memory, as the script says, beside their values' bytes
/// put together in the plainest way.
class Building
{
public:
    explicit Building(FuzzScript script) : m_script(script) {}

    void play()
    {
        while (!m_script.empty()) {
            act(m_script.byte());
            require(m_message.size() == int(m_values.size()));
            if (m_size > kMuch) {
                restart();
            }
        }
        compare();
    }

private:
    /// Beyond what a message keeps of its memory.
    static constexpr std::size_t kMuch = 256 * 1024;

    void act(std::uint8_t action)
    {
        switch (action & 0x0F) {
        case 0: restart(); break;
        case 1: read(m_script.bytes(m_script.byte())); break;
        case 2: compare(); break; // which takes the room behind the message
        case 3: addLong(WireType::Str, action); break;
        case 4: addLong(WireType::Bin, action); break;
        case 5: addText(m_script.bytes(action >> 4)); break;
        case 6: addBytes(m_script.bytes(action >> 4)); break;
        case 7: m_message.addValueNil(noteHead(WireType::Nil)); break;
        case 8: add(WireType::I8, &HostLinkValueMessage::addValueInt8); break;
        case 9: add(WireType::U8, &HostLinkValueMessage::addValueUint8); break;
        case 10: add(WireType::U16, &HostLinkValueMessage::addValueUint16); break;
        case 11: add(WireType::I32, &HostLinkValueMessage::addValueInt32); break;
        case 12: add(WireType::U32, &HostLinkValueMessage::addValueUint32); break;
        case 13: add(WireType::I64, &HostLinkValueMessage::addValueInt64); break;
        case 14: addAgain(m_message); break;
        case 15: addAgain(HostLinkValueMessage(m_message)); break;
        }
    }

    void compare() const
    {
        ByteArray plain;
        appendBigEndian<std::uint16_t>(plain, m_id);
        for (const ByteArray& value : m_values) {
            plain.insert(plain.end(), value.begin(), value.end());
        }
        require(m_message.serialize() == plain);
        require(rewritten(m_message) == plain);
    }

    void restart()
    {
        compare();
        m_id = MessageId(m_script.number());
        m_message.restart(m_id);
        m_values.clear();
        m_size = 0;
    }

    void read(const ByteArray& bytes)
    {
        compare();
        const HostLinkValueMessage fresh(bytes);
        m_message.restart(bytes);
        m_id = fresh.id();
        m_values.clear();
        m_size = 0;
        for (int i = 0; i < fresh.size(); ++i) {
            HostLinkValueMessage alone(m_id);
            copyValue(fresh, i, &alone);
            note(ByteArray(alone.serialize().begin() + 2, alone.serialize().end()));
        }
    }

    void note(ByteArray value)
    {
        m_size += value.size();
        m_values.push_back(std::move(value));
    }

    /// The head of a value to add; returns its tag.
    std::uint16_t noteHead(WireType type)
    {
        const std::uint16_t tag = m_script.number();
        ByteArray value;
        appendBigEndian(value, tag);
        value.push_back(wireTypeEncoding(type));
        note(value);
        return tag;
    }

    template <typename Integer>
    void add(WireType type, void (HostLinkValueMessage::*adder)(std::uint16_t, Integer))
    {
        const std::uint16_t tag = noteHead(type);
        ByteArray bytes = m_script.bytes(sizeof(Integer));
        bytes.resize(sizeof(Integer));
        m_values.back().insert(m_values.back().end(), bytes.begin(), bytes.end());
        (m_message.*adder)(tag, readBigEndian<Integer>(bytes.data()));
    }

    void noteContent(const ByteArray& content)
    {
        appendBigEndian(m_values.back(), std::uint16_t(content.size()));
        m_values.back().insert(m_values.back().end(), content.begin(), content.end());
        m_size += content.size();
    }

    void addText(const ByteArray& content)
    {
        const std::uint16_t tag = noteHead(WireType::Str);
        noteContent(content);
        require(m_message.addValueString(tag, std::string(content.begin(), content.end())));
    }

    void addBytes(const ByteArray& content)
    {
        const std::uint16_t tag = noteHead(WireType::Bin);
        noteContent(content);
        require(m_message.addValueBin16(tag, content));
    }

    /// About as long as a value can be.
    void addLong(WireType type, std::uint8_t action)
    {
        const ByteArray content(0xFFFF - 8 + (action >> 4), action);
        if (content.size() <= 0xFFFF) {
            type == WireType::Str ? addText(content) : addBytes(content);
        } else if (const std::uint16_t tag = noteHead(WireType::Nil); type == WireType::Str) {
            require(!m_message.addValueString(tag, std::string(content.begin(), content.end())));
        } else {
            require(!m_message.addValueBin16(tag, content));
        }
    }

    /// A value of another message or of its own; nothing where there is none.
    void addAgain(const HostLinkValueMessage& from)
    {
        const int i = std::int8_t(m_script.byte());
        if (i >= 0 && i < from.size()) {
            note(ByteArray(m_values[std::size_t(i)]));
        }
        m_message.addValueOf(from, i);
    }

    FuzzScript m_script;
    MessageId m_id = MessageId(0);
    HostLinkValueMessage m_message{m_id};
    std::vector<ByteArray> m_values; ///< with their tags
    std::size_t m_size = 0;          ///< of the values
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    HostLinkLog::setSink([](HostLinkLog::Level, const std::string&) {}); // of values that are too long
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    parse(ByteArray(data, data + size));
    Building(FuzzScript(data, size)).play();
    return 0;
}
