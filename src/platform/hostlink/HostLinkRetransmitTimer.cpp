#include "platform/hostlink/HostLinkRetransmitTimer.h"

#include <algorithm>

void HostLinkRetransmitTimer::sample(HostLinkDuration roundTrip)
{
    if (!m_sampled) {
        m_sampled = true;
        m_smoothed = roundTrip;
        m_variation = roundTrip / 2;
    } else {
        const HostLinkDuration error =
            m_smoothed > roundTrip ? m_smoothed - roundTrip : roundTrip - m_smoothed;
        m_variation = (3 * m_variation + error) / 4;
        m_smoothed = (7 * m_smoothed + roundTrip) / 8;
    }
    m_timeout = std::max(m_floor, m_smoothed + 4 * m_variation);
}

bool HostLinkRetransmitTimer::expire()
{
    ++m_tries;
    return m_tries < kMaxTries;
}

HostLinkDuration HostLinkRetransmitTimer::backedOff() const
{
    return std::min(std::max(kCeiling, m_floor), m_timeout * (1 << std::min(m_tries, kMaxTries)));
}
