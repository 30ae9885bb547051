#include "platform/hostlink/CutSchedule.h"

#include <algorithm>

CutSchedule::CutSchedule(const FaultSettings::Cuts& cuts, std::uint32_t seed) : m_cuts(cuts), m_random(seed)
{
}

void CutSchedule::advance(HostLinkTime now)
{
    if (m_cuts.interval <= HostLinkDuration::zero()) {
        return;
    }
    if (!m_begun) {
        m_begun = true;
        m_nextChange = now + upTo(2 * m_cuts.interval);
    }
    while (now >= m_nextChange) {
        m_isCut = !m_isCut;
        m_count += m_isCut ? 1 : 0;
        m_nextChange += upTo(m_isCut ? m_cuts.longest : 2 * m_cuts.interval);
    }
}

/// A random length of time above none.
HostLinkDuration CutSchedule::upTo(HostLinkDuration longest)
{
    using Count = HostLinkDuration::rep;
    return HostLinkDuration(
        std::uniform_int_distribution<Count>(1, std::max<Count>(1, longest.count()))(m_random));
}
