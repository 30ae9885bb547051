#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMPath.h"
#include "platform/sdk/VornValue.h"
#include "vocabulary/Proxies.h"

/// A node that changes what the host sees: values for it, and how each of its states shows them. What is
/// shown is worked out here without the worker's own conversions.
class ServedNode
{
public:
    using Kind = CMValueItemProxyConvert;

    /// One for each node that one or more rows of the proxy table convert, rows of known special proxies
    /// included.
    static std::vector<ServedNode> all();

    /// The states of the other rows that have a value, which nothing here changes.
    static std::vector<State> statesWithout();

    const CMPath& path() const { return m_path; }

    /// Commands are given by invoking the node with the value, and read once.
    bool isCommand() const { return m_isCommand; }

    /// The states that show the node.
    std::vector<State> states() const;

    VornValue randomValue(std::mt19937& random) const;

    /// What a state of this node shows of a value, as valueText() writes it.
    std::string shown(State state, const VornValue& value) const;

private:
    struct Shown {
        State state;
        Kind kind;
    };

    ServedNode(const ProxyRow& row, Kind kind);
    Kind kind() const { return m_shown.front().kind; }

    CMPath m_path;
    bool m_isCommand;
    std::vector<Shown> m_shown;
};

/// The states of all rows that have a value to get and to subscribe: not those that can only be set, nor
/// the sample rate.
std::vector<State> servedStates();

/// Value i of a message with its type, "u8:5".
std::string valueText(const HostLinkValueMessage& message, int i);

/// The seed of tests with chance: HOSTLINK_TEST_SEED, or 1.
std::uint32_t testSeed();
