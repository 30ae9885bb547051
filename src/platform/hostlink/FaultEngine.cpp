#include "platform/hostlink/FaultEngine.h"

#include <algorithm>
#include <cmath>

using namespace std::chrono_literals;

namespace
{

// A slow line has a transmit buffer of this size before it, and what arrives is read in such portions.
constexpr std::size_t kTransmitBuffer = 256;
constexpr std::size_t kPortion = 32;

// The line holds no more than this, so that a long delay costs no more memory.
constexpr std::size_t kMostOnTheWay = 64 * 1024;

// How long the second part of a split write stays behind, and how long a write waits to be merged.
constexpr HostLinkDuration kPause = 1ms;

constexpr std::size_t kForgetAbove = 4096;

std::size_t below(std::size_t bound, std::mt19937& random)
{
    return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random);
}

double unit(std::mt19937& random)
{
    return std::uniform_real_distribution<double>(0, 1)(random);
}

} // namespace

FaultEngine::FaultEngine(const FaultSettings::Direction& faults, std::uint32_t seed)
    : m_cuts(faults.cuts, seed), m_random(seed), m_timing(seed)
{
    setFaults(faults);
}

void FaultEngine::setFaults(const FaultSettings::Direction& faults)
{
    m_faults = faults;
    m_drop.begin(faults.drop, m_random);
    m_flip.begin(faults.flip, m_random);
    m_duplicate.begin(faults.duplicate, m_random);
    m_insert.begin(faults.insert, m_random);
}

void FaultEngine::Countdown::begin(double probability, std::mt19937& random)
{
    constexpr double kNever = 1e18;
    m_probability = probability;
    const double spared =
        probability > 0 ? std::floor(std::log1p(-unit(random)) / std::log1p(-probability)) : kNever;
    m_left = static_cast<std::uint64_t>(std::min(spared, kNever));
}

bool FaultEngine::Countdown::hits(std::mt19937& random)
{
    if (m_left > 0) {
        --m_left;
        return false;
    }
    begin(m_probability, random);
    return true;
}

void FaultEngine::put(const std::uint8_t* bytes, std::size_t size, HostLinkTime now)
{
    const HostLinkDuration pause = timingChance(m_faults.merge) ? kPause : 0ms;
    std::size_t first = size;
    if (size > 1 && timingChance(m_faults.split)) {
        first = 1 + below(size - 1, m_timing);
    }
    carry(bytes, first, now, pause);
    carry(bytes + first, size - first, now, pause + kPause);
}

void FaultEngine::carry(const std::uint8_t* bytes, std::size_t size, HostLinkTime now, HostLinkDuration pause)
{
    const std::size_t largest = m_faults.bytesPerSecond == 0 ? size : kPortion;
    for (std::size_t at = 0; at < size;) {
        const std::size_t portion = std::min(largest, size - at);
        m_sentAt = std::max(m_sentAt, now) + wireTime(portion);
        m_lastArrival = std::max(m_lastArrival, m_sentAt + m_faults.delay + pause);
        const std::size_t before = m_bytes.size();
        damage(bytes + at, portion);
        m_cuts.advance(m_lastArrival);
        if (m_cuts.isCut()) {
            m_bytes.resize(before);
        }
        if (m_bytes.size() > before) {
            m_portions.push_back({m_lastArrival, m_bytes.size() - before});
        }
        at += portion;
    }
}

void FaultEngine::damage(const std::uint8_t* bytes, std::size_t size)
{
    while (size > 0) {
        const std::size_t spared = sparedBytes(size);
        if (spared == 0) {
            damageByte(*bytes);
        } else {
            append(bytes, spared);
            remember(bytes, spared);
            for (Countdown* each : {&m_drop, &m_flip, &m_duplicate, &m_insert}) {
                each->pass(spared);
            }
        }
        const std::size_t done = std::max<std::size_t>(spared, 1);
        bytes += done;
        size -= done;
    }
}

std::size_t FaultEngine::sparedBytes(std::size_t most) const
{
    if (m_dropping > 0 || m_flipping > 0) {
        return 0;
    }
    return static_cast<std::size_t>(
        std::min<std::uint64_t>({most, m_drop.left(), m_flip.left(), m_duplicate.left(), m_insert.left()}));
}

void FaultEngine::damageByte(std::uint8_t byte)
{
    if (m_insert.hits(m_random)) {
        for (std::size_t left = burst(); left > 0; --left) {
            m_bytes.push_back(static_cast<std::uint8_t>(below(256, m_random)));
        }
    }
    if (m_flip.hits(m_random)) {
        m_flipping = burst();
    }
    if (m_flipping > 0) {
        --m_flipping;
        byte = static_cast<std::uint8_t>(byte ^ 1U << below(8, m_random));
    }
    if (m_drop.hits(m_random)) {
        m_dropping = burst();
    }
    if (m_dropping > 0) {
        --m_dropping;
    } else {
        m_bytes.push_back(byte);
    }
    remember(&byte, 1);
    if (m_duplicate.hits(m_random)) {
        const std::size_t size = std::min(burst(), m_recent.size());
        append(m_recent.data() + m_recent.size() - size, size);
    }
}

void FaultEngine::append(const std::uint8_t* bytes, std::size_t size)
{
    m_bytes.insert(m_bytes.end(), bytes, bytes + size);
}

void FaultEngine::remember(const std::uint8_t* bytes, std::size_t size)
{
    if (m_faults.duplicate <= 0) {
        return;
    }
    const std::size_t kept = std::min<std::size_t>(size, m_faults.burst);
    m_recent.insert(m_recent.end(), bytes + size - kept, bytes + size);
    if (m_recent.size() > 2 * std::size_t(m_faults.burst)) {
        m_recent.erase(m_recent.begin(), m_recent.end() - std::ptrdiff_t(m_faults.burst));
    }
}

std::size_t FaultEngine::burst()
{
    return 1 + below(std::max<std::size_t>(1, m_faults.burst), m_random);
}

bool FaultEngine::timingChance(double probability)
{
    return probability > 0 && unit(m_timing) < probability;
}

HostLinkDuration FaultEngine::wireTime(std::size_t bytes) const
{
    return m_faults.bytesPerSecond == 0
               ? 0ns
               : std::chrono::nanoseconds(bytes * 1'000'000'000 / m_faults.bytesPerSecond);
}

std::size_t FaultEngine::unsent(HostLinkTime now) const
{
    if (m_faults.bytesPerSecond == 0 || m_sentAt <= now) {
        return 0;
    }
    const double seconds = std::chrono::duration<double>(m_sentAt - now).count();
    return static_cast<std::size_t>(std::ceil(seconds * static_cast<double>(m_faults.bytesPerSecond)));
}

std::size_t FaultEngine::room(HostLinkTime now) const
{
    const std::size_t onLine = kMostOnTheWay - std::min(kMostOnTheWay, onTheWay());
    const std::size_t waiting = std::min(kTransmitBuffer, unsent(now));
    return m_faults.bytesPerSecond == 0 ? onLine : std::min(onLine, kTransmitBuffer - waiting);
}

HostLinkTime FaultEngine::roomAt() const
{
    if (onTheWay() >= kMostOnTheWay) {
        return nextArrival();
    }
    return m_sentAt == HostLinkTime::min() ? m_sentAt : m_sentAt - wireTime(kTransmitBuffer / 2);
}

FaultEngine::Bytes FaultEngine::arrived(HostLinkTime now)
{
    for (; !m_portions.empty() && m_portions.front().arrival <= now; m_portions.pop_front()) {
        m_arrived += m_portions.front().size;
    }
    return {m_bytes.data() + m_head, m_arrived};
}

void FaultEngine::consume(std::size_t size)
{
    m_head += size;
    m_arrived -= size;
    if (m_head == m_bytes.size()) {
        m_bytes.clear();
        m_head = 0;
    } else if (m_head > kForgetAbove && m_head > m_bytes.size() / 2) {
        m_bytes.erase(m_bytes.begin(), m_bytes.begin() + std::ptrdiff_t(m_head));
        m_head = 0;
    }
}

HostLinkTime FaultEngine::nextArrival() const
{
    return m_portions.empty() ? HostLinkTime::max() : m_portions.front().arrival;
}

void FaultEngine::clear()
{
    m_bytes.clear();
    m_portions.clear();
    m_head = 0;
    m_arrived = 0;
    m_sentAt = HostLinkTime::min();
    m_lastArrival = HostLinkTime::min();
}
