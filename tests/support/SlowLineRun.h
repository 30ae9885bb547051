#pragma once

#include <algorithm>
#include <chrono>
#include <random>
#include <vector>

#include "support/LinkMessages.h"
#include "support/SimulatedLink.h"

/// A host that pushes bulk messages over a line of 115,200 bit/s to its module without a pause, and asks for
/// one state now and then meanwhile. On simulated time.
class SlowLineRun
{
public:
    static constexpr double kLineRate = 11520; ///< bytes/s

    /// `delay` is the line's, in each direction.
    explicit SlowLineRun(HostLinkDuration delay) : m_link(line(delay))
    {
        m_link.lineUp();
        m_link.run(std::chrono::seconds(1));
    }

    void run(int gets)
    {
        std::mt19937 random(1);
        const HostLinkTime begin = m_link.now;
        for (int i = 0; i < gets; ++i) {
            pass(std::chrono::microseconds(500'000 + random() % 100'000)); // at any moment of a segment
            ask();
        }
        m_seconds = std::chrono::duration<double>(m_link.now - begin).count();
    }

    /// Bytes of bulk messages that arrived, per second.
    double bulkRate() const { return double(m_bulkBytes) / m_seconds; }

    /// What 99 of 100 gets took at most.
    HostLinkDuration slowGet() const
    {
        std::vector<HostLinkDuration> sorted = m_gets;
        std::sort(sorted.begin(), sorted.end());
        return sorted[sorted.size() * 99 / 100];
    }

    std::uint64_t repeated() const
    {
        return m_link.ends[0].core->counters().framesRepeated
               + m_link.ends[1].core->counters().framesRepeated;
    }

private:
    static constexpr std::size_t kMessage = 4 * 501;

    static SimulatedLink::Faults line(HostLinkDuration delay)
    {
        SimulatedLink::Faults faults;
        faults.bytesPerSecond = std::uint64_t(kLineRate);
        faults.delay = delay;
        return faults;
    }

    void ask()
    {
        const HostLinkTime asked = m_link.now;
        m_answered = false;
        m_link.a->send(message(MSG_GetState, 1, 4), m_link.now);
        const HostLinkTime giveUp = asked + std::chrono::seconds(2);
        while (!m_answered && m_link.now < giveUp) {
            pass(std::chrono::microseconds(100));
        }
        m_gets.push_back(m_link.now - asked);
    }

    /// Keeps bulk waiting for the line while time passes, and answers what is asked.
    void pass(HostLinkDuration time)
    {
        const HostLinkTime end = m_link.now + time;
        while (m_link.now < end) {
            while (m_link.a->queuedBytes(MessageClass::Bulk) < 2 * kMessage) {
                m_link.a->send(bulk(m_number++, kMessage), m_link.now);
            }
            m_link.runUntil([this] { return !m_link.a.received.empty() || !m_link.b.received.empty(); },
                            std::min<HostLinkDuration>(end - m_link.now, std::chrono::milliseconds(20)));
            handle();
        }
    }

    void handle()
    {
        for (const ByteArray& each : std::exchange(m_link.b.received, {})) {
            if (messageClass(HostLinkMessage::messageId(each)) == MessageClass::Bulk) {
                m_bulkBytes += each.size();
            } else {
                m_link.b->send(message(MSG_GetStateResponse, 1, 6), m_link.now);
                m_link.settle();
            }
        }
        m_answered = m_answered || !std::exchange(m_link.a.received, {}).empty();
    }

    SimulatedLink m_link;
    std::uint32_t m_number = 0;
    std::uint64_t m_bulkBytes = 0;
    double m_seconds = 0;
    bool m_answered = false;
    std::vector<HostLinkDuration> m_gets;
};
