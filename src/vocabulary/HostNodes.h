#pragma once

#include <array>

#include "vocabulary/Conversions.h"
#include "vocabulary/Nodes.h"
#include "vocabulary/States.h"

struct HostNodeRow {
    State state;
    Node node;
    CMValueItemProxyConvert convert;
};

/// The nodes whose values the host pushes, in order of creation.
inline constexpr std::array kHostNodes{
#define HOST_NODE(state, node, convert) HostNodeRow{state, Node::node, CMValueItemProxyConvert::convert},
#include "vocabulary/HostNodes.inc"
#undef HOST_NODE
};

constexpr bool hostNodesAgreeWithStates()
{
    for (const HostNodeRow& row : kHostNodes) {
        const std::size_t state = stateIndex(row.state);
        if (state == kStates.size() || kStates[state].read != WireType::None
            || kStates[state].write != conversionRow(row.convert).write) {
            return false;
        }
    }
    return true;
}
static_assert(hostNodesAgreeWithStates(), "the host sends these states and never reads them");

/// The row of a state that the host pushes, or nullptr.
constexpr const HostNodeRow* findHostNode(State state)
{
    for (const HostNodeRow& row : kHostNodes) {
        if (row.state == state) {
            return &row;
        }
    }
    return nullptr;
}
