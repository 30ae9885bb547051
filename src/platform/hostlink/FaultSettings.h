#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/hostlink/HostLinkTime.h"

/// What a faulty line does to the bytes that it carries.
///
/// As text it is "drop=0.001&delay.in=5&seed=7". A name alone is for both directions; with .in it is for what
/// this end receives, with .out for what it sends, and then goes before the name alone.
struct FaultSettings {
    /// Times at which nothing gets through, each of a random length up to `longest`.
    struct Cuts {
        HostLinkDuration interval{}; ///< on average from the end of one to the next, 0 for no cuts
        HostLinkDuration longest = std::chrono::milliseconds(50);
    };

    /// Faults of one direction. Probabilities are 0 to 1; those per byte are of a fault that begins there.
    struct Direction {
        double drop = 0;                  ///< per byte: lost
        double flip = 0;                  ///< per byte: one bit is turned
        double duplicate = 0;             ///< per byte: it arrives twice, or the bytes up to it do
        double insert = 0;                ///< per byte: random bytes come before it
        std::uint32_t burst = 1;          ///< bytes of the longest run that one of these faults hits
        double split = 0;                 ///< per write: its second part comes a little later
        double merge = 0;                 ///< per write: it waits a little, for the next one
        HostLinkDuration delay{};         ///< from when a byte is on the wire until it arrives
        std::uint64_t bytesPerSecond = 0; ///< 0 for no limit
        Cuts cuts;                        ///< in which bytes get lost and neither end is told
    };

    Direction in;
    Direction out;
    Cuts cuts;              ///< in which the line is down, as this end can see
    std::uint32_t seed = 1; ///< of all chance

    /// Reads the text form. Without a result, *error says what is wrong and what would be right.
    static std::optional<FaultSettings> parse(const std::string& text, std::string* error);

    /// All names of the text form.
    static std::vector<std::string> names();
};
