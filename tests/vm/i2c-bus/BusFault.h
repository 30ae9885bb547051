#pragma once

#include <string>

/// How a bus misbehaves, and on which transfers.
struct BusFault {
    enum class Kind {
        None,
        Refuse, ///< the address is not acknowledged
        Stall,  ///< the clock is held low for `amount` ms
        Cut,    ///< the host does not acknowledge more than `amount` bytes
        Float   ///< nobody drives the data line while the master reads
    };

    Kind kind = Kind::None;
    unsigned amount = 0;
    unsigned every = 1; ///< 3: each third transfer has it

    /// From "refuse", "stall MS", "cut BYTES" or "float", with "every N" behind it or not, or "heal"; throws
    /// std::invalid_argument.
    static BusFault parse(const std::string& text);
};
