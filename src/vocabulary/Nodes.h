#pragma once

#include <array>
#include <cstdint>
#include <string_view>

/// A node with a well-known path, named as its path accessor.
enum class Node : std::uint16_t {
#define NODE(accessor, path) accessor,
#include "vocabulary/Paths.inc"
#undef NODE
};

struct NodeRow {
    Node node;
    std::string_view accessor;
    std::string_view path; ///< relative to the player instance where it lacks a leading slash
};

inline constexpr std::array kNodes{
#define NODE(accessor, path) NodeRow{Node::accessor, #accessor, path},
#include "vocabulary/Paths.inc"
#undef NODE
};

inline constexpr std::string_view kPlayerInstancePath = "/player/instance";

constexpr const NodeRow& nodeRow(Node node)
{
    return kNodes[static_cast<std::size_t>(node)];
}

constexpr bool isBelowPlayerInstance(Node node)
{
    return nodeRow(node).path.front() != '/';
}

constexpr bool nodePathsDiffer()
{
    for (std::size_t i = 0; i < kNodes.size(); ++i) {
        for (std::size_t j = i + 1; j < kNodes.size(); ++j) {
            if (kNodes[i].path == kNodes[j].path) {
                return false;
            }
        }
    }
    return true;
}
static_assert(nodePathsDiffer(), "each accessor has a path of its own");
