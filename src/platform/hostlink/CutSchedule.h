#pragma once

#include <cstdint>
#include <random>

#include "platform/hostlink/FaultSettings.h"

/// When a line is cut, and for how long.
class CutSchedule
{
public:
    CutSchedule(const FaultSettings::Cuts& cuts, std::uint32_t seed);

    /// Goes on to `now`, which never goes back. The first call begins the time to the first cut.
    void advance(HostLinkTime now);

    bool isCut() const { return m_isCut; }

    /// Cuts that have begun so far.
    std::uint64_t cuts() const { return m_count; }

    /// When isCut() changes; max() for never.
    HostLinkTime nextChange() const { return m_nextChange; }

private:
    HostLinkDuration upTo(HostLinkDuration longest);

    FaultSettings::Cuts m_cuts;
    std::mt19937 m_random;
    bool m_begun = false;
    bool m_isCut = false;
    std::uint64_t m_count = 0;
    HostLinkTime m_nextChange = HostLinkTime::max();
};
