#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <random>

#include "platform/hostlink/ByteArray.h"
#include "platform/hostlink/CutSchedule.h"
#include "platform/hostlink/FaultSettings.h"

/// One direction of a faulty line, without a descriptor or a clock: takes bytes, and gives out what is left
/// of them when it arrives. All chance comes from the seed. Faults of bytes hit the same bytes in whichever
/// portions these are put on the line.
class FaultEngine
{
public:
    /// A run of bytes owned by the engine, valid until its next call.
    struct Bytes {
        const std::uint8_t* data;
        std::size_t size;
    };

    FaultEngine(const FaultSettings::Direction& faults, std::uint32_t seed);

    /// Puts bytes on the line, behind those that wait there; also more than there is room() for.
    void put(const std::uint8_t* bytes, std::size_t size, HostLinkTime now);

    /// Bytes after which the line pushes back. roomAt() is when it takes a good many again; max() when that
    /// depends on consume() only.
    std::size_t room(HostLinkTime now) const;
    HostLinkTime roomAt() const;

    /// Bytes that are not on the wire yet, and when all are.
    std::size_t unsent(HostLinkTime now) const;
    HostLinkTime sentAt() const { return m_sentAt; }

    /// What has arrived by `now` and was not consumed; waiting() is its size at the latest call.
    Bytes arrived(HostLinkTime now);
    std::size_t waiting() const { return m_arrived; }
    void consume(std::size_t size);

    /// When the next bytes arrive that were not given out by arrived(); max() for none.
    HostLinkTime nextArrival() const;

    /// True when nothing is on its way or waits to be consumed.
    bool empty() const { return onTheWay() == 0; }

    /// Loses all that is on its way.
    void clear();

    /// Goes on with other faults. What is on its way stays as it is.
    void setFaults(const FaultSettings::Direction& faults);

private:
    /// How many bytes a kind of fault spares until it hits one.
    class Countdown
    {
    public:
        void begin(double probability, std::mt19937& random);
        std::uint64_t left() const { return m_left; }
        void pass(std::uint64_t bytes) { m_left -= bytes; }

        /// Whether the next byte, which is passed with that, is hit.
        bool hits(std::mt19937& random);

    private:
        double m_probability = 0;
        std::uint64_t m_left = 0;
    };

    struct Portion {
        HostLinkTime arrival;
        std::size_t size = 0;
    };

    void carry(const std::uint8_t* bytes, std::size_t size, HostLinkTime now, HostLinkDuration pause);
    void damage(const std::uint8_t* bytes, std::size_t size);
    void damageByte(std::uint8_t byte);
    void append(const std::uint8_t* bytes, std::size_t size);
    void remember(const std::uint8_t* bytes, std::size_t size);
    std::size_t sparedBytes(std::size_t most) const;
    std::size_t burst();
    bool timingChance(double probability);
    HostLinkDuration wireTime(std::size_t bytes) const;
    std::size_t onTheWay() const { return m_bytes.size() - m_head; }

    FaultSettings::Direction m_faults;
    CutSchedule m_cuts;
    std::mt19937 m_random; ///< for the bytes
    std::mt19937 m_timing; ///< for the writes
    Countdown m_drop;
    Countdown m_flip;
    Countdown m_duplicate;
    Countdown m_insert;
    std::size_t m_dropping = 0; ///< bytes that a fault which has begun still hits
    std::size_t m_flipping = 0;
    ByteArray m_recent; ///< the latest bytes put on the line, for duplicates

    ByteArray m_bytes;      ///< from m_head on: what has arrived, then what is on its way
    std::size_t m_head = 0; ///< first one not consumed
    std::size_t m_arrived = 0;
    std::deque<Portion> m_portions; ///< of what is on its way, in order
    HostLinkTime m_sentAt = HostLinkTime::min();
    HostLinkTime m_lastArrival = HostLinkTime::min();
};
