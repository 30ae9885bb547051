#include "platform/hostlink/I2cLayer.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "platform/hostlink/HostLinkFrame.h"
#include "platform/hostlink/HostLinkLog.h"

using namespace std::chrono_literals;

namespace
{

constexpr int kDefaultAddress = 0x77;
constexpr int kFirstAddress = 0x08; // those around these are reserved by the I2C specification
constexpr int kLastAddress = 0x77;
constexpr int kDefaultTimeoutMs = 1000;
constexpr int kDefaultMaxTransfer = 64;
constexpr int kLeastTransfer = 2;   // a count, or a zero, and one byte
constexpr int kMostTransfer = 8192; // the most that i2c-dev takes
constexpr std::uint8_t kNobodyDrives = 0xff;

// The bus is asked at the shortest interval for so long after traffic.
constexpr HostLinkDuration kBusy = 1s;

// An acknowledgement on its own, opened by a zero. It is no traffic: an idle link has such keep-alives.
constexpr std::size_t kKeepAliveSize = HostLinkFrame::kHeader + HostLinkFrame::kCrc + 3;

constexpr HostLinkDuration kFirstPause = 5ms;
constexpr HostLinkDuration kLongestPause = 1s;

// A host may refuse a transfer while it is busy; one that does so for this long is not there.
constexpr HostLinkDuration kPatience = 250ms;

constexpr HostLinkDuration kResetPulse = 10ms;

std::string misuseOf(const HostLinkPhysicalLayer::Properties& properties)
{
    using Layer = HostLinkPhysicalLayer;
    const auto outside = [&](int property, int least, int most) {
        const int value = properties.integer(property).value_or(least);
        return value < least || value > most;
    };
    if (properties.string(Layer::Device).value_or("").empty()) {
        return "no device is given";
    }
    if (outside(Layer::Address, kFirstAddress, kLastAddress)) {
        return "an address is " + std::to_string(kFirstAddress) + " to " + std::to_string(kLastAddress)
               + ", not " + std::to_string(*properties.integer(Layer::Address));
    }
    if (outside(Layer::MaxTransfer, kLeastTransfer, kMostTransfer)) {
        return "the largest transfer is " + std::to_string(kLeastTransfer) + " to "
               + std::to_string(kMostTransfer) + " bytes, not "
               + std::to_string(*properties.integer(Layer::MaxTransfer));
    }
    if (outside(Layer::BusTimeout, 1, 1'000'000)) {
        return "the bus time-out is 1 to 1000000 ms, not "
               + std::to_string(*properties.integer(Layer::BusTimeout));
    }
    if (outside(Layer::InterruptLine, 0, 1'000'000) || outside(Layer::ResetLine, 0, 1'000'000)) {
        return "the number of a GPIO line is not negative";
    }
    return {};
}

} // namespace

I2cLayer::I2cLayer(const Properties& properties, std::shared_ptr<DeviceCalls> calls,
                   std::shared_ptr<Gpio> gpio)
    : m_maxTransfer(std::size_t(properties.integer(MaxTransfer).value_or(kDefaultMaxTransfer))),
      m_interruptNumber(properties.integer(HostLinkPhysicalLayer::InterruptLine).value_or(-1)),
      m_resetNumber(properties.integer(HostLinkPhysicalLayer::ResetLine).value_or(-1)),
      m_misuse(misuseOf(properties)), m_gpio(std::move(gpio)),
      m_device(std::move(calls), properties.string(Device).value_or(""),
               properties.integer(Address).value_or(kDefaultAddress),
               properties.integer(BusTimeout).value_or(kDefaultTimeoutMs)),
      m_retry("i2c:" + properties.string(Device).value_or(""))
{
}

/// The device is left to service(): who opens a line holds the link's lock.
void I2cLayer::open(HostLinkTime now)
{
    if (!m_misuse.empty()) {
        m_retry.say(m_misuse);
        return;
    }
    m_interruptTried = false;
    m_resetDue = m_resetNumber >= 0;
    m_silentSince = now;
    m_retry.schedule(now);
}

void I2cLayer::close()
{
    m_device.close();
    m_interrupt.reset();
    m_reset.reset();
    m_up = false;
    m_answers = false;
    m_ready = 0;
    m_retry.cancel();
}

void I2cLayer::service(HostLinkTime now)
{
    if (m_retry.take(now) && resetIsOver(now)) {
        takeInterruptLine();
        recover(now);
    }
}

bool I2cLayer::resetIsOver(HostLinkTime now)
{
    if (!m_resetDue) {
        return true;
    }
    if (m_reset) {
        m_reset->setActive(false);
        m_resetDue = false;
        return true;
    }
    std::string problem;
    m_reset = m_gpio->reset(m_resetNumber, &problem);
    if (!m_reset) {
        m_retry.say("cannot reset the host: " + (problem.empty() ? "there is no GPIO chip" : problem));
        m_resetDue = false;
        return true;
    }
    m_reset->setActive(true);
    m_retry.schedule(now + kResetPulse);
    return false;
}

void I2cLayer::takeInterruptLine()
{
    if (m_interruptNumber < 0 || std::exchange(m_interruptTried, true)) {
        return;
    }
    std::string problem;
    m_interrupt = m_gpio->interrupt(m_interruptNumber, &problem);
    if (!problem.empty()) {
        m_retry.say("polls, since it cannot have the interrupt line: " + problem);
    }
}

/// Opens the bus anew, so that an adapter that was unplugged meanwhile is let go of, and asks the host.
void I2cLayer::recover(HostLinkTime now)
{
    std::string problem;
    if (!m_device.open(&problem)) {
        fail(problem, now);
        return;
    }
    if (!poll(now)) {
        return;
    }
    m_answers = true;
    m_retry.resetPause();
    if (m_up) {
        return;
    }
    m_up = true;
    ++m_lines;
    m_trafficAt = now;
    m_retry.forget();
    HostLinkLog::write(HostLinkLog::Level::Info, m_retry.name() + ": the host answers");
}

std::size_t I2cLayer::read(std::uint8_t* to, std::size_t max, HostLinkTime now)
{
    if (!m_up || !m_answers || max == 0) {
        return 0;
    }
    if (m_interrupt) {
        m_interrupt->clear(); // before the host is asked: what it has later makes a new edge
    }
    if (m_ready == 0 && (!poll(now) || m_ready == 0)) {
        return 0;
    }
    noteTraffic(m_ready, now);
    m_transfer.resize(std::min({m_ready + 1, m_maxTransfer, max + 1}));
    if (!readTransfer(now)) {
        return 0;
    }
    const std::size_t count = m_transfer.front();
    const std::size_t size = std::min(count, m_transfer.size() - 1);
    std::copy_n(m_transfer.begin() + 1, size, to);
    m_ready = count - size;
    m_pollAt = now; // until the host says that it has nothing more
    return size;
}

/// Asks how many bytes the host has. False when it does not answer.
bool I2cLayer::poll(HostLinkTime now)
{
    m_transfer.resize(1);
    if (!readTransfer(now)) {
        return false;
    }
    m_ready = m_transfer.front();
    schedulePoll(now);
    return true;
}

/// Fills m_transfer, whose first byte is the host's count. False when it does not answer.
bool I2cLayer::readTransfer(HostLinkTime now)
{
    if (!m_device.read(m_transfer.data(), m_transfer.size())) {
        fail(m_device.transferProblem(), now);
        return false;
    }
    if (m_transfer.front() == kNobodyDrives) {
        fail("the host's address answers, but nobody drives the bus", now);
        return false;
    }
    return true;
}

std::size_t I2cLayer::write(const std::uint8_t* from, std::size_t size, HostLinkTime now)
{
    if (!m_up || !m_answers) {
        return 0;
    }
    for (std::size_t done = 0; done < size;) {
        m_transfer.assign(m_zeroDue ? 1 : 0, 0);
        const std::size_t part = std::min(size - done, m_maxTransfer - m_transfer.size());
        m_transfer.insert(m_transfer.end(), from + done, from + done + part);
        if (!m_device.write(m_transfer.data(), m_transfer.size())) {
            fail(m_device.transferProblem(), now);
            return size; // the rest is lost with what may have been sent of it
        }
        m_zeroDue = false;
        done += part;
    }
    noteTraffic(size, now);
    return size;
}

void I2cLayer::fail(const std::string& problem, HostLinkTime now)
{
    m_retry.say(problem);
    m_retry.backOff(now, kFirstPause, kLongestPause);
    m_device.close();
    m_ready = 0;
    m_zeroDue = true;
    if (std::exchange(m_answers, false)) {
        m_silentSince = now;
    }
    m_up = m_up && now - m_silentSince < kPatience;
}

void I2cLayer::noteTraffic(std::size_t bytes, HostLinkTime now)
{
    if (bytes <= kKeepAliveSize) {
        return;
    }
    m_trafficAt = now;
    if (!m_interrupt) {
        m_pollAt = std::min(m_pollAt, now + kShortestPoll);
    }
}

void I2cLayer::schedulePoll(HostLinkTime now)
{
    if (m_ready > 0) {
        m_pollAt = now;
        return;
    }
    if (m_interrupt && !m_interrupt->isActive()) {
        m_pollAt = HostLinkTime::max();
        return;
    }
    const bool busy = now < m_trafficAt + kBusy;
    m_pollPause = busy ? kShortestPoll : std::min(2 * m_pollPause, kLongestPoll);
    m_pollAt = now + m_pollPause;
}

void I2cLayer::waitOn(std::vector<pollfd>& descriptors, bool) const
{
    if (m_interrupt && m_up && m_answers) {
        descriptors.push_back({m_interrupt->descriptor(), POLLIN, 0});
    }
}

HostLinkTime I2cLayer::nextService() const
{
    return m_up && m_answers ? m_pollAt : m_retry.at();
}
