#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/hostlink/CutSchedule.h"
#include "platform/hostlink/FaultEngine.h"
#include "platform/hostlink/HostLinkCore.h"
#include "platform/hostlink/HostLinkMessage.h"

/// Both real ends of a link in one process on simulated time, joined by a line with faults. All chance
/// comes from one seed.
class SimulatedLink
{
public:
    /// What the line does in each direction. In its cuts it goes down with all that is on it.
    struct Faults : FaultSettings::Direction {
        Faults() { delay = std::chrono::microseconds(100); }
    };

    /// One end, with what its application received.
    struct End {
        HostLinkCore::Settings settings;
        std::unique_ptr<HostLinkCore> core;
        std::vector<ByteArray> received;
        std::vector<std::uint64_t> receivedIn; ///< the session of each
        bool handles = true;                   ///< messages are handled as they come
        bool stuck = false;                    ///< the process does nothing at all
        std::uint64_t wakeUps = 0;             ///< points in time at which it had something to do
        HostLinkTime lastWakeUp;
        std::uint64_t frames = 0; ///< that it put on the line
        std::uint64_t bytes = 0;

        HostLinkCore* operator->() { return core.get(); }
    };

    explicit SimulatedLink(Faults faults, std::uint32_t seed = 1, HostLinkCore::Settings settings = {})
        : m_seed(seed), m_cuts(faults.cuts, seed), m_wires{Wire(ofWire(faults), 2 * seed),
                                                           Wire(ofWire(faults), 2 * seed + 1)}
    {
        for (End& each : ends) {
            each.settings = settings;
            each.settings.drawInstance = [this] { return ++m_instances; };
            each.core = std::make_unique<HostLinkCore>(each.settings);
        }
    }

    SimulatedLink() : SimulatedLink(Faults{}) {}

    End ends[2];
    End& a = ends[0];
    End& b = ends[1];
    HostLinkTime now{std::chrono::hours(1)};

    /// Sees each frame before the line's faults: true lets it pass.
    std::function<bool(int from, const ByteArray& frame)> filter;

    void setFaults(Faults faults)
    {
        m_cuts = CutSchedule(faults.cuts, m_seed);
        m_cutsSeen = 0;
        for (Wire& wire : m_wires) {
            wire.line.setFaults(ofWire(faults));
        }
    }

    bool isUp() const { return m_up; }

    void lineUp()
    {
        m_up = true;
        for (End& each : ends) {
            each->lineUp(now);
        }
        settle();
    }

    /// The line goes down and loses what is on it.
    void lineDown()
    {
        m_up = false;
        for (int i = 0; i < 2; ++i) {
            m_wires[i].line.clear();
            m_wires[i].injected.clear();
            ends[i]->lineDown(now);
        }
    }

    /// The end's process dies and starts anew. Where the line shows that (a socket), it goes down and up
    /// again; elsewhere (a bus) the other end notices nothing.
    void restart(End& end, bool lineShowsIt)
    {
        const bool wasUp = m_up;
        if (lineShowsIt && m_up) {
            lineDown();
        }
        end.core = std::make_unique<HostLinkCore>(end.settings);
        if (lineShowsIt && wasUp) {
            lineUp();
        } else if (m_up) {
            end->lineUp(now);
        }
        settle();
    }

    /// Lets bytes arrive now as if `from` had sent them.
    void inject(int from, const ByteArray& bytes)
    {
        ByteArray& injected = m_wires[from].injected;
        injected.insert(injected.end(), bytes.begin(), bytes.end());
    }

    /// Lets time pass; settle() only does what is due now, and says whether there was anything.
    void run(HostLinkDuration duration)
    {
        runUntil([] { return false; }, duration);
    }

    /// Lets time pass until `done`, at most for `limit`. Returns whether it was done.
    bool runUntil(const std::function<bool()>& done, HostLinkDuration limit)
    {
        const HostLinkTime end = now + limit;
        for (int idle = 0;; ++idle) {
            idle = settle() ? 0 : idle;
            if (idle > 1000) {
                throw std::logic_error("a deadline has come, but nothing happens");
            }
            if (done()) {
                return true;
            }
            const HostLinkTime next = std::max(now, nextEvent());
            if (next > end) {
                now = end;
                return false;
            }
            idle = next > now ? 0 : idle;
            now = next;
        }
    }

    bool settle()
    {
        followCuts();
        bool any = false;
        for (bool moved = true; moved; any = any || moved) {
            const bool first = step(0);
            moved = step(1) || first;
        }
        return any;
    }

private:
    struct Wire {
        Wire(const FaultSettings::Direction& faults, std::uint32_t seed) : line(faults, seed) {}

        FaultEngine line;
        ByteArray injected;
    };

    /// Cuts are the line's as a whole here.
    static FaultSettings::Direction ofWire(FaultSettings::Direction faults)
    {
        faults.cuts = {};
        return faults;
    }

    /// Delivers to one end what has arrived and puts on the line what it has to say.
    bool step(int i)
    {
        End& end = ends[i];
        if (!m_up || end.stuck) {
            return false;
        }
        bool busy = receive(end, m_wires[1 - i]);
        FaultEngine& line = m_wires[i].line;
        while (line.sentAt() <= now) {
            const HostLinkCore::Bytes frame = end->transmit(now);
            if (frame.size == 0) {
                break;
            }
            ++end.frames;
            end.bytes += frame.size;
            if (!filter || filter(i, ByteArray(frame.data, frame.data + frame.size))) {
                line.put(frame.data, frame.size, now);
            }
            busy = true;
        }
        if (busy && end.lastWakeUp != now) {
            end.lastWakeUp = now;
            ++end.wakeUps;
        }
        return busy;
    }

    bool receive(End& end, Wire& wire)
    {
        const ByteArray injected = std::exchange(wire.injected, {});
        const FaultEngine::Bytes arrived = wire.line.arrived(now);
        if (injected.empty() && arrived.size == 0) {
            return false;
        }
        end->receive(injected.data(), injected.size(), now);
        end->receive(arrived.data, arrived.size, now);
        wire.line.consume(arrived.size);
        deliver(end);
        return true;
    }

    void deliver(End& end)
    {
        ByteArray message;
        while (end->take(message)) {
            end.received.push_back(message);
            end.receivedIn.push_back(end->sessionNumber());
            if (end.handles) {
                end->handled();
            }
        }
    }

    void followCuts()
    {
        m_cuts.advance(now);
        if (std::exchange(m_cutsSeen, m_cuts.cuts()) != m_cuts.cuts() && m_up) {
            lineDown();
            m_isCut = true;
        }
        if (m_isCut && !m_cuts.isCut()) {
            m_isCut = false;
            lineUp();
        }
    }

    HostLinkTime nextEvent()
    {
        HostLinkTime next = m_cuts.nextChange();
        for (int i = 0; m_up && i < 2; ++i) {
            const FaultEngine& line = m_wires[i].line;
            if (!ends[i].stuck) {
                next = std::min(next, std::max(ends[i]->deadline(), line.sentAt()));
                next = line.sentAt() > now ? std::min(next, line.sentAt()) : next;
            }
            if (!ends[1 - i].stuck) {
                next = std::min(next, line.nextArrival());
            }
        }
        return next;
    }

    std::uint32_t m_seed;
    CutSchedule m_cuts;
    std::uint64_t m_cutsSeen = 0;
    bool m_isCut = false; ///< the line is down because of a cut
    Wire m_wires[2];      ///< by the end that sends on it
    bool m_up = false;
    std::uint64_t m_instances = 100;
};
