#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string_view>

#include "vocabulary/Conversions.h"
#include "vocabulary/Nodes.h"
#include "vocabulary/States.h"

enum class ProxyClass : std::uint8_t {
    ValueItemProxy,
    HostCommandProxy,
    VolumeItemProxy,
    PowerItemProxy,
    PlayControlProxy,
    PlaybackItemProxy,
    NetworkItemProxy,
    RoonSignalPathProxy,
    BluetoothItemProxy,
    PostprocessorItemProxy,
};

constexpr std::string_view proxyClassName(ProxyClass proxy)
{
    switch (proxy) {
    case ProxyClass::ValueItemProxy: return "ValueItemProxy";
    case ProxyClass::HostCommandProxy: return "HostCommandProxy";
    case ProxyClass::VolumeItemProxy: return "VolumeItemProxy";
    case ProxyClass::PowerItemProxy: return "PowerItemProxy";
    case ProxyClass::PlayControlProxy: return "PlayControlProxy";
    case ProxyClass::PlaybackItemProxy: return "PlaybackItemProxy";
    case ProxyClass::NetworkItemProxy: return "NetworkItemProxy";
    case ProxyClass::RoonSignalPathProxy: return "RoonSignalPathProxy";
    case ProxyClass::BluetoothItemProxy: return "BluetoothItemProxy";
    case ProxyClass::PostprocessorItemProxy: return "PostprocessorItemProxy";
    }
    return {};
}

/// The states that one proxy owns, at most 10, in its order.
class ProxyStates
{
public:
    constexpr ProxyStates(std::initializer_list<State> states)
    {
        for (const State state : states) {
            m_states[m_size++] = state;
        }
    }

    constexpr std::size_t size() const { return m_size; }
    constexpr State operator[](std::size_t i) const { return m_states[i]; }
    constexpr State front() const { return m_states[0]; }
    constexpr const State* begin() const { return m_states.data(); }
    constexpr const State* end() const { return m_states.data() + m_size; }

private:
    std::array<State, 10> m_states{};
    std::size_t m_size = 0;
};

struct ProxyRow {
    ProxyStates states;
    ProxyClass proxy{};
    std::optional<Node> node;                       ///< nothing where it uses several
    std::optional<CMValueItemProxyConvert> convert; ///< nothing where the class has its own; else one state
};

/// The value proxies in registration order.
inline constexpr std::array kProxies{
#define PROXY(state, proxy, node, convert)                                                                   \
    ProxyRow{{state}, ProxyClass::proxy, Node::node, CMValueItemProxyConvert::convert},
#define SPECIAL(proxy, node, ...) ProxyRow{{__VA_ARGS__}, ProxyClass::proxy, node, std::nullopt},
#include "vocabulary/Proxies.inc"
#undef SPECIAL
#undef PROXY
};

/// What the host may write to a row with a conversion: commands of the module it can only read.
constexpr WireType writeType(const ProxyRow& row)
{
    return row.proxy == ProxyClass::HostCommandProxy ? WireType::None : conversionRow(*row.convert).write;
}

constexpr std::size_t servedStateCount()
{
    std::size_t count = 0;
    for (std::size_t i = 0; i < kProxies.size(); ++i) {
        count += kProxies[i].states.size();
    }
    return count;
}

constexpr std::size_t claimsOf(State state)
{
    std::size_t claims = 0;
    for (std::size_t i = 0; i < kProxies.size(); ++i) {
        for (std::size_t j = 0; j < kProxies[i].states.size(); ++j) {
            claims += kProxies[i].states[j] == state ? 1 : 0;
        }
    }
    return claims;
}

constexpr bool eachStateIsClaimedOnce()
{
    for (std::size_t i = 0; i < kProxies.size(); ++i) {
        for (std::size_t j = 0; j < kProxies[i].states.size(); ++j) {
            const State state = kProxies[i].states[j];
            if (stateIndex(state) == kStates.size() || claimsOf(state) != 1) {
                return false;
            }
        }
    }
    return true;
}
static_assert(eachStateIsClaimedOnce(), "proxies own states with a name, and no two own the same");

constexpr bool conversionsAgreeWithStates()
{
    for (std::size_t i = 0; i < kProxies.size(); ++i) {
        const ProxyRow& row = kProxies[i];
        if (!row.convert) {
            continue;
        }
        // By index: with -fsanitize=undefined, GCC takes no comparison with nullptr for a constant.
        const StateRow& state = kStates[stateIndex(row.states.front())];
        if (row.states.size() != 1 || state.read != conversionRow(*row.convert).read
            || state.write != writeType(row)) {
            return false;
        }
    }
    return true;
}
static_assert(conversionsAgreeWithStates(), "a converted state has the types of its conversion");
static_assert(kProxies.size() == 77 && servedStateCount() == 97);

/// The row that owns a state, or nullptr.
constexpr const ProxyRow* findProxy(State state)
{
    for (const ProxyRow& row : kProxies) {
        for (const State owned : row.states) {
            if (owned == state) {
                return &row;
            }
        }
    }
    return nullptr;
}
