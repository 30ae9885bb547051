#pragma once

#include <cstdint>
#include <string>

/// What a link has done so far, of both ends' mistakes too, and how it stands now. Its rows are the one place
/// for names: whoever shows counters walks through them.
struct HostLinkCounters {
    std::uint64_t bytesSent = 0;
    std::uint64_t bytesReceived = 0;
    std::uint64_t framesSent = 0;
    std::uint64_t framesRepeated = 0;
    std::uint64_t framesReceived = 0;
    std::uint64_t framesDamaged = 0;
    std::uint64_t framesDuplicate = 0;
    std::uint64_t framesIgnored = 0;
    std::uint64_t resyncs = 0;
    std::uint64_t timeouts = 0;
    std::uint64_t messagesSent = 0;
    std::uint64_t messagesReceived = 0;
    std::uint64_t messagesRefused = 0;
    std::uint64_t messagesDiscarded = 0;
    std::uint64_t messagesBroken = 0;
    std::uint64_t sessions = 0;
    std::uint64_t greetings = 0;
    std::uint64_t refusals = 0;
    std::uint64_t stateQueued = 0;
    std::uint64_t bulkQueued = 0;
    std::uint64_t framesUnacknowledged = 0;
    std::uint64_t messagesUnhandled = 0;
    std::uint64_t roundTrip = 0;

    struct Row {
        const char* name;
        std::uint64_t HostLinkCounters::*value;
        bool onlyGrows; ///< else it shows how the link stands now
        const char* meaning;
    };

    static constexpr int kSize = 23;
    static const Row kRows[kSize]; ///< in the order of the members

    /// NAME=VALUE for each, with a blank between two.
    std::string text() const;
};
