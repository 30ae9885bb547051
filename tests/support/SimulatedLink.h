#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/hostlink/HostLinkCore.h"
#include "platform/hostlink/HostLinkMessage.h"

/// Both real ends of a link in one process on simulated time, joined by a line with faults. All chance
/// comes from one seed.
class SimulatedLink
{
public:
    /// What the line does to each frame: probabilities of 0 to 1.
    struct Faults {
        double drop = 0;      ///< the whole frame is lost
        double cutOut = 0;    ///< a run of its bytes is lost
        double flip = 0;      ///< one bit is turned
        double duplicate = 0; ///< it arrives twice
        double insert = 0;    ///< garbage arrives before it
        double split = 0;     ///< it arrives in parts at different times
        double merge = 0;     ///< it arrives together with the next one
        double cut = 0;       ///< the line goes down with all that is on it, for up to 50 ms
        HostLinkDuration delay = std::chrono::microseconds(100);
        std::uint64_t bytesPerSecond = 0; ///< 0 for no limit
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
        : m_faults(faults), m_random(seed)
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

    void setFaults(Faults faults) { m_faults = faults; }
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
            m_wires[i] = {};
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

    /// Puts bytes on the line as if `from` had sent them.
    void inject(int from, ByteArray bytes) { m_wires[from].chunks.push_back({now, std::move(bytes)}); }

    /// Handles a message that an end received while it did not handle any.
    void handle(End& end, const ByteArray& message)
    {
        end->handled(messageClass(HostLinkMessage::messageId(message)), message.size(), now);
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
        restoreLine();
        bool any = false;
        for (bool moved = true; moved; any = any || moved) {
            const bool first = step(0);
            moved = step(1) || first;
        }
        return any;
    }

private:
    struct Chunk {
        HostLinkTime arrival;
        ByteArray bytes;
    };
    struct Wire {
        std::deque<Chunk> chunks;
        HostLinkTime freeAt = HostLinkTime::min();
    };

    bool chance(double probability) { return probability > 0 && m_chance(m_random) < probability; }
    std::size_t below(std::size_t bound)
    {
        return std::uniform_int_distribution<std::size_t>(0, bound - 1)(m_random);
    }

    /// Delivers to one end what has arrived and puts on the line what it has to say.
    bool step(int i)
    {
        End& end = ends[i];
        if (!m_up || end.stuck) {
            return false;
        }
        bool busy = false;
        Wire& in = m_wires[1 - i];
        while (m_up && !in.chunks.empty() && in.chunks.front().arrival <= now) {
            const ByteArray bytes = std::move(in.chunks.front().bytes);
            in.chunks.pop_front();
            end->receive(bytes.data(), bytes.size(), now);
            deliver(end);
            busy = true;
        }
        while (m_up && m_wires[i].freeAt <= now) {
            const HostLinkCore::Bytes frame = end->transmit(now);
            if (frame.size == 0) {
                break;
            }
            put(i, ByteArray(frame.data, frame.data + frame.size));
            busy = true;
        }
        if (busy && end.lastWakeUp != now) {
            end.lastWakeUp = now;
            ++end.wakeUps;
        }
        return busy;
    }

    void deliver(End& end)
    {
        ByteArray message;
        while (end->take(message)) {
            end.received.push_back(message);
            end.receivedIn.push_back(end->sessionNumber());
            if (end.handles) {
                end->handled(messageClass(HostLinkMessage::messageId(message)), message.size(), now);
            }
        }
    }

    void put(int from, ByteArray bytes)
    {
        ++ends[from].frames;
        ends[from].bytes += bytes.size();
        Wire& wire = m_wires[from];
        HostLinkTime arrival = now + m_faults.delay;
        if (!wire.chunks.empty()) {
            arrival = std::max(arrival, wire.chunks.back().arrival);
        }
        wire.freeAt = now + onWire(bytes.size());
        if ((filter && !filter(from, bytes)) || chance(m_faults.drop)) {
            return;
        }
        damage(bytes);
        if (chance(m_faults.merge)) {
            arrival += m_faults.delay;
        }
        if (chance(m_faults.split) && bytes.size() > 1) {
            const auto middle = bytes.begin() + std::ptrdiff_t(1 + below(bytes.size() - 1));
            arrival = carry(wire, ByteArray(bytes.begin(), middle), arrival) + m_faults.delay;
            bytes.erase(bytes.begin(), middle);
        }
        arrival = carry(wire, bytes, arrival);
        if (chance(m_faults.duplicate)) {
            carry(wire, bytes, arrival);
        }
        if (chance(m_faults.cut)) {
            lineDown();
            m_upAt = now + std::chrono::milliseconds(below(50));
        }
    }

    HostLinkDuration onWire(std::size_t bytes) const
    {
        return m_faults.bytesPerSecond == 0
                   ? HostLinkDuration::zero()
                   : std::chrono::nanoseconds(bytes * 1'000'000'000ULL / m_faults.bytesPerSecond);
    }

    /// Puts bytes on the wire, on a slow line in the small portions in which a receiver gets them.
    HostLinkTime carry(Wire& wire, const ByteArray& bytes, HostLinkTime arrival)
    {
        const std::size_t portion = m_faults.bytesPerSecond == 0 ? bytes.size() : 32;
        for (std::size_t at = 0; at < bytes.size(); at += portion) {
            const std::size_t size = std::min(portion, bytes.size() - at);
            const auto begin = bytes.begin() + std::ptrdiff_t(at);
            arrival += onWire(size);
            wire.chunks.push_back({arrival, ByteArray(begin, begin + std::ptrdiff_t(size))});
        }
        return arrival;
    }

    void damage(ByteArray& bytes)
    {
        if (chance(m_faults.cutOut)) {
            const std::size_t at = below(bytes.size());
            const std::size_t size = 1 + below(bytes.size() - at);
            const auto begin = bytes.begin() + std::ptrdiff_t(at);
            bytes.erase(begin, begin + std::ptrdiff_t(size));
        }
        if (chance(m_faults.flip) && !bytes.empty()) {
            bytes[below(bytes.size())] ^= std::uint8_t(1U << below(8));
        }
        if (chance(m_faults.insert)) {
            ByteArray garbage(1 + below(40));
            for (std::uint8_t& byte : garbage) {
                byte = std::uint8_t(below(256));
            }
            bytes.insert(bytes.begin(), garbage.begin(), garbage.end());
        }
    }

    void restoreLine()
    {
        if (!m_up && m_upAt <= now) {
            m_upAt = HostLinkTime::max();
            m_up = true;
            for (End& each : ends) {
                each->lineUp(now);
            }
        }
    }

    HostLinkTime nextEvent()
    {
        if (!m_up) {
            return m_upAt;
        }
        HostLinkTime next = HostLinkTime::max();
        for (int i = 0; i < 2; ++i) {
            const Wire& in = m_wires[1 - i];
            if (ends[i].stuck) {
                continue;
            }
            if (!in.chunks.empty()) {
                next = std::min(next, in.chunks.front().arrival);
            }
            next = std::min(next, std::max(ends[i]->deadline(), m_wires[i].freeAt));
            if (m_wires[i].freeAt > now) {
                next = std::min(next, m_wires[i].freeAt);
            }
        }
        return next;
    }

    Faults m_faults;
    std::mt19937 m_random;
    std::uniform_real_distribution<double> m_chance{0, 1};
    Wire m_wires[2]; ///< by the end that sends on it
    bool m_up = false;
    HostLinkTime m_upAt = HostLinkTime::max();
    std::uint64_t m_instances = 100;
};
