#include "platform/hostlink/FaultLayer.h"

#include <algorithm>
#include <array>
#include <utility>

namespace
{

constexpr std::size_t kReadSize = 4096;

// A peer that never stops sending must not keep read() from returning.
constexpr int kReadsAtOnce = 16;

enum Chance : std::uint32_t { kChanceOfCuts, kChanceIn, kChanceOut };

/// Numbers drawn from one seed that have nothing to do with each other.
std::uint32_t seedOf(Chance chance, const FaultSettings& settings)
{
    std::seed_seq sequence{settings.seed, std::uint32_t(chance)};
    std::uint32_t seed[1];
    sequence.generate(std::begin(seed), std::end(seed));
    return seed[0];
}

} // namespace

FaultLayer::FaultLayer(std::unique_ptr<HostLinkPhysicalLayer> layer, const FaultSettings& settings)
    : m_layer(std::move(layer)), m_cuts(settings.cuts, seedOf(kChanceOfCuts, settings)),
      m_in(settings.in, seedOf(kChanceIn, settings)), m_out(settings.out, seedOf(kChanceOut, settings))
{
}

void FaultLayer::open(HostLinkTime now)
{
    m_layer->open(now);
    advance(now);
}

void FaultLayer::close()
{
    const FaultEngine::Bytes rest = m_out.arrived(HostLinkTime::max());
    if (rest.size > 0 && m_layer->lineNumber() == m_lineBelow) {
        m_layer->write(rest.data, rest.size, m_now);
    }
    m_layer->close();
    goDown();
}

void FaultLayer::service(HostLinkTime now)
{
    m_layer->service(now);
    advance(now);
    push();
}

/// Goes on in time: cuts begin and end, and the line below comes and goes.
void FaultLayer::advance(HostLinkTime now)
{
    m_now = now;
    m_cuts.advance(now);
    if (std::exchange(m_cutsSeen, m_cuts.cuts()) != m_cuts.cuts()) {
        goDown();
    }
    followLine();
}

void FaultLayer::followLine()
{
    const std::uint64_t below = m_layer->lineNumber();
    const bool allRead = m_in.empty(); // what the other side sent last is read before the line goes down
    if (m_up && below != m_lineBelow && allRead) {
        goDown();
    }
    if (!m_up && below != 0 && !m_cuts.isCut()) {
        m_up = true;
        m_lineBelow = below;
        ++m_lines;
    }
}

void FaultLayer::goDown()
{
    m_up = false;
    m_blocked = false;
    m_awaitsRoom = false;
    m_in.clear();
    m_out.clear();
}

std::size_t FaultLayer::read(std::uint8_t* to, std::size_t max, HostLinkTime now)
{
    advance(now);
    pull();
    push();
    const FaultEngine::Bytes arrived = m_in.arrived(now);
    const std::size_t size = std::min(max, arrived.size);
    std::copy_n(arrived.data, size, to);
    m_in.consume(size);
    followLine();
    return size;
}

/// Takes over what the layer below has, as far as the line takes it. A line that is cut loses all of it.
void FaultLayer::pull()
{
    std::array<std::uint8_t, kReadSize> bytes{};
    for (int i = 0; i < kReadsAtOnce && (!m_up || m_layer->lineNumber() == m_lineBelow); ++i) {
        const std::size_t most = m_up ? std::min(bytes.size(), m_in.room(m_now)) : bytes.size();
        const std::size_t size = most == 0 ? 0 : m_layer->read(bytes.data(), most, m_now);
        if (size == 0) {
            return;
        }
        if (m_up) {
            m_in.put(bytes.data(), size, m_now);
        }
    }
}

/// Hands what has come through the line to the layer below.
void FaultLayer::push()
{
    const FaultEngine::Bytes arrived = m_out.arrived(m_now);
    if (arrived.size > 0 && m_layer->lineNumber() == m_lineBelow) {
        const std::size_t taken = m_layer->write(arrived.data, arrived.size, m_now);
        m_out.consume(taken);
    }
    m_blocked = m_out.waiting() > 0;
}

std::size_t FaultLayer::write(const std::uint8_t* from, std::size_t size, HostLinkTime now)
{
    advance(now);
    push();
    if (!m_up || m_blocked) {
        return 0;
    }
    const std::size_t taken = std::min(size, m_out.room(now));
    if (taken > 0) {
        m_out.put(from, taken, now);
    }
    m_awaitsRoom = taken < size;
    push();
    return taken;
}

std::size_t FaultLayer::unsent() const
{
    return m_out.unsent(m_now) + m_out.waiting() + m_layer->unsent();
}

void FaultLayer::waitOn(std::vector<pollfd>& descriptors, bool writing) const
{
    const bool hasRoom = m_now >= m_out.roomAt(); // else room comes with the time
    if (mayPull()) {
        m_layer->waitOn(descriptors, m_blocked || (writing && hasRoom));
    }
}

/// While the line takes no more from below, what is ready there must not wake anybody.
bool FaultLayer::mayPull() const
{
    return !m_up || m_now >= m_in.roomAt();
}

HostLinkTime FaultLayer::nextService() const
{
    HostLinkTime next = std::min({m_layer->nextService(), m_cuts.nextChange(), m_in.nextArrival()});
    if (m_in.waiting() > 0) {
        return std::min(next, m_now);
    }
    if (!mayPull()) {
        next = std::min(next, m_in.roomAt());
    }
    if (m_blocked) {
        return next;
    }
    if (m_awaitsRoom) {
        next = std::min(next, m_out.roomAt());
    } else if (m_out.unsent(m_now) > 0) {
        next = std::min(next, m_out.sentAt());
    }
    return std::min(next, m_out.nextArrival());
}
