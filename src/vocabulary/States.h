#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "vocabulary/WireType.h"

/// Host-link state identifier and tag of a value in state messages. Holds ids without a name too.
enum State : std::uint16_t {
#define STATE(name, id, read, write, description) name = id,
#include "vocabulary/States.inc"
#undef STATE
};

struct StateRow {
    State id;
    std::string_view name;        ///< with its prefix "STA_"
    WireType read;                ///< what the module answers, None where it is not read
    WireType write;               ///< what the host sends, None where it is not written
    std::string_view description; ///< meaning, unit and range
};

inline constexpr std::array kStates{
#define STATE(name, id, read, write, description)                                                            \
    StateRow{name, #name, WireType::read, WireType::write, description},
#include "vocabulary/States.inc"
#undef STATE
};

constexpr bool statesAscend()
{
    for (std::size_t i = 1; i < kStates.size(); ++i) {
        if (kStates[i - 1].id >= kStates[i].id) {
            return false;
        }
    }
    return true;
}
static_assert(statesAscend(), "each id stands once and in order, so that a row is found by bisection");
static_assert(kStates.size() == 115);

/// Where a state's row stands in kStates; kStates.size() for an id without a name.
constexpr std::size_t stateIndex(State state)
{
    std::size_t low = 0;
    std::size_t high = kStates.size();
    while (low < high) {
        const std::size_t middle = (low + high) / 2;
        if (kStates[middle].id < state) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    return low < kStates.size() && kStates[low].id == state ? low : kStates.size();
}

/// The row of a state, or nullptr for an id without a name.
constexpr const StateRow* findState(State state)
{
    const std::size_t index = stateIndex(state);
    return index < kStates.size() ? &kStates[index] : nullptr;
}
