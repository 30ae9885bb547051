#pragma once

#include <algorithm>

#include "platform/hostlink/HostLinkTime.h"

/// When to send again what was not acknowledged, as RFC 6298 has it, with these departures: time-outs
/// are 200 ms at first, and from the floor to 1 s later on; and they run from the latest transmission,
/// since gaps are noticed by the peer and only the end of a burst has to wait for this timer.
class HostLinkRetransmitTimer
{
public:
    static constexpr HostLinkDuration kFirst = std::chrono::milliseconds(200);
    static constexpr HostLinkDuration kFloor = std::chrono::milliseconds(20);
    static constexpr HostLinkDuration kCeiling = std::chrono::seconds(1);
    static constexpr int kMaxTries = 8; ///< time-outs in a row before the line is greeted again

    /// `pollTime` is added to the floor.
    explicit HostLinkRetransmitTimer(HostLinkDuration pollTime)
        : m_floor(kFloor + pollTime), m_timeout(std::max(kFirst, m_floor))
    {
    }

    /// The time from a frame's transmission to its acknowledgement, of a frame that was sent once.
    void sample(HostLinkDuration roundTrip);

    /// The smoothed round trip, zero before the first sample.
    HostLinkDuration smoothed() const { return m_smoothed; }

    /// Something was transmitted or newly acknowledged: the time-out counts from now.
    void start(HostLinkTime now) { m_deadline = now + backedOff(); }
    void stop() { m_deadline = HostLinkTime::max(); }
    HostLinkTime deadline() const { return m_deadline; }

    /// The time-out has come: the next one is twice as long. False when the tries are used up.
    bool expire();

    /// The peer made progress.
    void progress() { m_tries = 0; }

private:
    HostLinkDuration backedOff() const;

    HostLinkDuration m_floor;
    HostLinkDuration m_timeout; ///< before it backs off and is bounded
    HostLinkDuration m_smoothed{};
    HostLinkDuration m_variation{};
    bool m_sampled = false;
    int m_tries = 0;
    HostLinkTime m_deadline = HostLinkTime::max();
};
