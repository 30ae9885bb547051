#include "support/ServedNodes.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <stdexcept>

namespace
{

using Kind = CMValueItemProxyConvert;

constexpr int kLoudest = 100;

/// How a row shows its one node, nothing where it has none or a way of its own.
std::optional<Kind> kindOf(const ProxyRow& row)
{
    return row.proxy == ProxyClass::VolumeItemProxy ? Kind::Uint8VornI32 : row.convert;
}

/// False for what can only be set, and for the rate of a sound card that may not be there.
bool hasAValue(State state)
{
    return kStates[stateIndex(state)].read != WireType::None && state != STA_TarkoSampleRate;
}

void appendReadable(std::vector<State>& states, const ProxyRow& row)
{
    std::copy_if(row.states.begin(), row.states.end(), std::back_inserter(states), hasAValue);
}

int randomNumber(std::mt19937& random)
{
    using Limits = std::numeric_limits<int>;
    return std::uniform_int_distribution(Limits::min(), Limits::max())(random);
}

QString randomText(std::mt19937& random)
{
    static const QStringList pieces{"a", "bc", "D", " ", "7", "\"", "\u00e4", "\u20ac", "\U0001f3b5"};
    QString text;
    for (auto left = random() % 20; left > 0; --left) {
        text += pieces[int(random() % unsigned(pieces.size()))];
    }
    return text;
}

} // namespace

ServedNode::ServedNode(const ProxyRow& row, Kind kind)
    : m_path(*row.node),
      m_isCommand(row.proxy == ProxyClass::HostCommandProxy), m_shown{{row.states.front(), kind}}
{
}

std::vector<ServedNode> ServedNode::all()
{
    std::vector<ServedNode> nodes;
    for (const ProxyRow& row : kProxies) {
        const std::optional<Kind> kind = kindOf(row);
        if (!kind) {
            continue;
        }
        const auto same = [&](const ServedNode& node) { return node.m_path == CMPath(*row.node); };
        const auto known = std::find_if(nodes.begin(), nodes.end(), same);
        if (known == nodes.end()) {
            nodes.push_back(ServedNode(row, *kind));
        } else {
            known->m_shown.push_back({row.states.front(), *kind});
        }
    }
    return nodes;
}

std::vector<State> ServedNode::statesWithout()
{
    std::vector<State> states;
    for (const ProxyRow& row : kProxies) {
        if (!kindOf(row)) {
            appendReadable(states, row);
        }
    }
    return states;
}

std::vector<State> ServedNode::states() const
{
    std::vector<State> states;
    for (const Shown& shown : m_shown) {
        states.push_back(shown.state);
    }
    return states;
}

VornValue ServedNode::randomValue(std::mt19937& random) const
{
    if (m_path == CMPath(Node::VornPlayerVolumePath)) {
        return VornValue().setI32(std::uniform_int_distribution(0, kLoudest)(random));
    }
    switch (kind()) {
    case Kind::Uint8VornBool: return VornValue().setBool(random() % 2 == 0);
    case Kind::Uint8VornI32:
    case Kind::Int32VornI32:
    case Kind::Uint32VornI32: return VornValue().setI32(randomNumber(random));
    case Kind::Int64VornI64: return VornValue().setI64(qint64(random()) << 32 | random());
    case Kind::Bin16VornString: return VornValue().setString(randomText(random));
    case Kind::Bin16VornValueJson: return VornHash{{"number", randomNumber(random)}, {"id", "x"}};
    case Kind::Uint8InputState:
        return VornValue().setInputState(VornHostLinkdInputStateType::Enum(random() % 256));
    default: throw std::logic_error("no random values for this conversion yet");
    }
}

std::string ServedNode::shown(State state, const VornValue& value) const
{
    const auto found = std::find_if(m_shown.begin(), m_shown.end(),
                                    [state](const Shown& shown) { return shown.state == state; });
    switch (found->kind) {
    case Kind::Uint8VornBool: return value.bool_() ? "u8:1" : "u8:0";
    case Kind::Uint8VornI32: return "u8:" + std::to_string(value.i32() & 0xFF);
    case Kind::Int32VornI32: return "i32:" + std::to_string(value.i32());
    case Kind::Uint32VornI32: return "u32:" + std::to_string(quint32(value.i32()));
    case Kind::Int64VornI64: return "i64:" + std::to_string(value.i64());
    case Kind::Bin16VornString: return "str:" + value.string().toStdString();
    case Kind::Bin16VornValueJson:
        return R"(str:{"id":"x","number":)" + value["number"].toString().toStdString() + "}";
    case Kind::Uint8InputState: return "u8:" + std::to_string(int(value.inputState()) & 0xFF);
    default: throw std::logic_error("no text for this conversion yet");
    }
}

std::vector<State> servedStates()
{
    std::vector<State> states;
    for (const ProxyRow& row : kProxies) {
        appendReadable(states, row);
    }
    return states;
}

std::string valueText(const HostLinkValueMessage& message, int i)
{
    switch (wireTypeOfEncoding(message.getEnc(i))) {
    case WireType::None: return "none";
    case WireType::Nil: return "nil";
    case WireType::U8: return "u8:" + std::to_string(message.getUint8(i));
    case WireType::U16: return "u16:" + std::to_string(message.getUint16(i));
    case WireType::U32: return "u32:" + std::to_string(message.getUint32(i));
    case WireType::I8: return "i8:" + std::to_string(message.getInt8(i));
    case WireType::I32: return "i32:" + std::to_string(message.getInt32(i));
    case WireType::I64: return "i64:" + std::to_string(message.getInt64(i));
    case WireType::Str: return "str:" + message.getString(i);
    case WireType::Bin: return "bin of " + std::to_string(message.getBin16(i).size());
    }
    return {};
}

std::uint32_t testSeed()
{
    const char* given = std::getenv("HOSTLINK_TEST_SEED");
    return given != nullptr ? std::uint32_t(std::strtoul(given, nullptr, 10)) : 1;
}
