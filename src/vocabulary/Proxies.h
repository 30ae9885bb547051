#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "vocabulary/Conversions.h"
#include "vocabulary/Nodes.h"
#include "vocabulary/States.h"

enum class ProxyClass : std::uint8_t { ValueItemProxy, HostCommandProxy };

constexpr std::string_view proxyClassName(ProxyClass proxy)
{
    switch (proxy) {
    case ProxyClass::ValueItemProxy: return "ValueItemProxy";
    case ProxyClass::HostCommandProxy: return "HostCommandProxy";
    }
    return {};
}

struct ProxyRow {
    State state;
    ProxyClass proxy;
    Node node;
    CMValueItemProxyConvert convert;
};

/// The value proxies in registration order.
inline constexpr std::array kProxies{
#define PROXY(state, proxy, node, convert)                                                                   \
    ProxyRow{state, ProxyClass::proxy, Node::node, CMValueItemProxyConvert::convert},
#include "vocabulary/Proxies.inc"
#undef PROXY
};

/// What the host may write: commands of the module it can only read.
constexpr WireType writeType(const ProxyRow& row)
{
    return row.proxy == ProxyClass::HostCommandProxy ? WireType::None : conversionRow(row.convert).write;
}

constexpr bool proxyRowsAgreeWithStates()
{
    for (std::size_t i = 0; i < kProxies.size(); ++i) {
        // By index: with -fsanitize=undefined, GCC takes no comparison with nullptr for a constant.
        const std::size_t state = stateIndex(kProxies[i].state);
        if (state == kStates.size() || kStates[state].read != conversionRow(kProxies[i].convert).read
            || kStates[state].write != writeType(kProxies[i])) {
            return false;
        }
        for (std::size_t j = 0; j < i; ++j) {
            if (kProxies[j].state == kProxies[i].state) {
                return false;
            }
        }
    }
    return true;
}
static_assert(proxyRowsAgreeWithStates(), "each state is claimed once, with the types of its conversion");
static_assert(kProxies.size() == 69);

/// The row that owns a state, or nullptr.
constexpr const ProxyRow* findProxy(State state)
{
    for (const ProxyRow& row : kProxies) {
        if (row.state == state) {
            return &row;
        }
    }
    return nullptr;
}
