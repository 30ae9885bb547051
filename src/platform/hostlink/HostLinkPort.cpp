#include "platform/hostlink/HostLinkPort.h"

#include <algorithm>
#include <array>
#include <utility>

using namespace std::chrono_literals;

namespace
{

using Lock = std::unique_lock<std::mutex>;

constexpr std::size_t kPortReadSize = 8 * 1024;

// A peer that never stops sending must not keep step() from returning.
constexpr int kReadsPerStep = 16;

// While bytes come in, newcomers and the like are looked at this often.
constexpr HostLinkDuration kServiceInterval = 10ms;

/// Runs a transfer of the layer, without the lock where the layer blocks; then `now` has gone on.
template <typename Transfer>
std::size_t transfer(Lock* released, HostLinkTime& now, Transfer work)
{
    if (!released) {
        return work();
    }
    released->unlock();
    const std::size_t size = work();
    released->lock();
    now = HostLinkClock::now();
    return size;
}

HostLinkCore::Settings withPollTime(HostLinkCore::Settings settings, const HostLinkPhysicalLayer& layer)
{
    settings.pollTime = std::max(settings.pollTime, layer.pollTime());
    return settings;
}

} // namespace

HostLinkPort::HostLinkPort(std::unique_ptr<HostLinkPhysicalLayer> layer, HostLinkCore::Settings settings)
    : m_layer(std::move(layer)), m_core(withPollTime(std::move(settings), *m_layer))
{
}

HostLinkPort::~HostLinkPort() = default;

void HostLinkPort::open(HostLinkTime now)
{
    m_layer->open(now);
    followLine(now);
}

void HostLinkPort::close()
{
    m_layer->close();
}

void HostLinkPort::step(HostLinkTime now)
{
    receive(now);
    flush(now);
}

void HostLinkPort::receive(HostLinkTime now, Lock* released)
{
    Lock* const lock = m_layer->blocks() ? released : nullptr;
    followLine(now);
    const std::size_t size = readAll(now, lock);
    followLine(now);
    if (size > 0 && now < std::min(m_serviceAt, m_layer->nextService())) {
        return;
    }
    transfer(lock, now, [&] {
        m_layer->service(now);
        return std::size_t(0);
    });
    m_serviceAt = now + kServiceInterval;
    const bool sameLine = m_lineNumber == m_layer->lineNumber();
    followLine(now);
    if (!sameLine) {
        readAll(now, lock);
        followLine(now);
    }
}

std::size_t HostLinkPort::readAll(HostLinkTime& now, Lock* released)
{
    // Only what was read is looked at, and each step would have to fill all of it.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
    std::array<std::uint8_t, kPortReadSize> bytes;
    std::size_t total = 0;
    for (int i = 0; i < kReadsPerStep; ++i) {
        const std::size_t size =
            transfer(released, now, [&] { return m_layer->read(bytes.data(), bytes.size(), now); });
        if (size > 0) {
            m_core.receive(bytes.data(), size, now);
        }
        total += size;
        if (size < bytes.size()) {
            break;
        }
    }
    return total;
}

/// Tells the core when the line went down or came up; a frame that was cut off is not resumed.
void HostLinkPort::followLine(HostLinkTime now)
{
    const std::uint64_t lineNumber = m_layer->lineNumber();
    if (lineNumber == m_lineNumber) {
        return;
    }
    m_rest.clear();
    m_held = false;
    m_paused = false;
    if (m_lineNumber != 0) {
        m_core.lineDown(now);
    }
    m_lineNumber = lineNumber;
    if (m_lineNumber != 0) {
        m_core.lineUp(now);
    }
}

void HostLinkPort::flush(HostLinkTime now, Lock* released)
{
    Lock* const lock = m_layer->blocks() ? released : nullptr;
    followLine(now);
    m_paused = false;
    while (m_lineNumber != 0 && writeFrame(now, lock)) {
        if (m_layer->blocks()) {
            m_paused = true; // the line carries one direction at a time, and the other may have to answer
            break;
        }
    }
    followLine(now);
}

/// False when there is nothing more to write now.
bool HostLinkPort::writeFrame(HostLinkTime& now, Lock* released)
{
    m_held = false;
    if (m_rest.empty()) {
        m_held = m_layer->unsent() > 0;
        const HostLinkCore::Bytes frame = m_held ? HostLinkCore::Bytes{} : nextFrames(now);
        if (frame.size == 0) {
            return false;
        }
        if (!released) {
            const std::size_t taken = m_layer->write(frame.data, frame.size, now);
            m_rest.assign(frame.data + taken, frame.data + frame.size);
            return m_rest.empty();
        }
        m_rest.assign(frame.data, frame.data + frame.size);
    }
    const ByteArray rest = std::exchange(m_rest, {});
    const std::size_t taken =
        transfer(released, now, [&] { return m_layer->write(rest.data(), rest.size(), now); });
    m_rest.assign(rest.begin() + std::ptrdiff_t(taken), rest.end());
    return m_rest.empty();
}

/// The next frame, together with those behind it as the layer likes it.
HostLinkCore::Bytes HostLinkPort::nextFrames(HostLinkTime now)
{
    HostLinkCore::Bytes frame = m_core.transmit(now);
    const std::size_t most = m_layer->batchSize();
    if (frame.size == 0 || most == 0) {
        return frame;
    }
    m_batch.clear();
    for (; frame.size > 0; frame = m_core.transmit(now)) {
        m_batch.insert(m_batch.end(), frame.data, frame.data + frame.size);
        if (m_batch.size() >= most) {
            break;
        }
    }
    return {m_batch.data(), m_batch.size()};
}

void HostLinkPort::waitOn(std::vector<pollfd>& descriptors) const
{
    m_layer->waitOn(descriptors, writing());
}

HostLinkTime HostLinkPort::deadline() const
{
    if (m_paused) {
        return HostLinkTime::min();
    }
    const bool stuck = m_lineNumber == 0 || writing() || m_held;
    return stuck ? m_layer->nextService() : std::min(m_layer->nextService(), m_core.deadline());
}
