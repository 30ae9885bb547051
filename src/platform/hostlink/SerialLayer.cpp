#include "platform/hostlink/SerialLayer.h"

#include <fcntl.h>
#include <linux/major.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/hostlink/HostLinkLog.h"
#include "platform/hostlink/Problem.h"

using namespace std::chrono_literals;

namespace
{

constexpr HostLinkDuration kFirstReopenPause = 20ms;
constexpr HostLinkDuration kLongestReopenPause = 1s;

// So few bytes are as good as on the wire: a device hides as many in itself anyway. So the line does not run
// dry between two frames, and a keep-alive needs no look after it.
constexpr std::size_t kNearlySent = 16;

// Between two looks at what the kernel has not sent.
constexpr HostLinkDuration kShortestDrain = 200us;

constexpr HostLinkDuration kLongestLinger = 20ms;

// Of a device number as TIOCGDEV gives it.
constexpr unsigned kMajorShift = 8;
constexpr unsigned kMajorMask = 0xfff;

constexpr const char* kOccupied = "the device is held by another program; waits for it";

} // namespace

SerialLayer::SerialLayer(const Properties& properties, std::shared_ptr<DeviceCalls> calls)
    : m_path(properties.string(Device).value_or("")), m_settings(SerialSettings::from(properties, &m_misuse)),
      m_device(std::move(calls)), m_retry("serial:" + m_path)
{
    if (m_path.empty()) {
        m_misuse = "no device is given";
    }
}

void SerialLayer::open(HostLinkTime now)
{
    if (!m_misuse.empty()) {
        m_retry.say(m_misuse);
        return;
    }
    if (!m_device) {
        m_retry.schedule(now);
        service(now);
    }
}

void SerialLayer::close()
{
    m_retry.cancel();
    if (m_device) {
        linger();
        release();
    }
}

/// Closing a terminal waits for what was written, half a minute if need be. The last bytes get their time,
/// but no device keeps us that is stuck.
void SerialLayer::linger()
{
    const std::size_t left = queued();
    if (left > 0) {
        std::this_thread::sleep_for(std::min(m_settings.duration(left), kLongestLinger));
        m_device.ioctl(TCFLSH, std::uintptr_t(TCOFLUSH));
    }
}

void SerialLayer::release()
{
    m_device.ioctl(TIOCNXCL, std::uintptr_t(0));
    m_device.close();
    m_drainAt = HostLinkTime::max();
}

void SerialLayer::service(HostLinkTime now)
{
    if (m_device) {
        scheduleDrain(now);
        return;
    }
    if (!m_retry.take(now)) {
        return;
    }
    const std::string problem = tryOpen();
    if (!problem.empty()) {
        m_device.close();
        m_retry.say(problem);
        m_retry.backOff(now, kFirstReopenPause, kLongestReopenPause);
        return;
    }
    m_broken = false;
    m_upSince = now;
    ++m_lines;
    HostLinkLog::write(HostLinkLog::Level::Info, m_retry.name() + ": opened");
}

/// Returns why the device is not to be had; empty when it is.
std::string SerialLayer::tryOpen()
{
    if (!m_device.open(m_path, O_RDWR | O_NOCTTY | O_NONBLOCK)) {
        const bool isGone = errno == ENOENT || errno == ENXIO || errno == ENODEV || errno == EIO;
        return isGone ? kDeviceGone : errno == EBUSY ? kOccupied : problemWith("open the device");
    }
    if (::isatty(m_device.descriptor()) == 0) {
        return "it is no serial device";
    }
    if (!lock()) {
        return kOccupied;
    }
    std::string remark;
    std::string problem = m_settings.apply(m_device, &remark);
    if (!problem.empty()) {
        return problem;
    }
    if (!remark.empty()) {
        m_retry.say(remark);
    }
    if (!isPseudoTerminal()) {
        m_device.ioctl(TIOCEXCL, std::uintptr_t(0));
    }
    return {};
}

/// Takes a lock, which goes with the descriptor; false when another program holds the device. The lock is for
/// those who ask for it, and TIOCEXCL for the others; a privileged program has to ask for that too.
bool SerialLayer::lock()
{
    if (::flock(m_device.descriptor(), LOCK_EX | LOCK_NB) != 0) {
        return false;
    }
    int isExclusive = 0;
    return isPseudoTerminal() || m_device.ioctl(TIOCGEXCL, &isExclusive) != 0 || isExclusive == 0;
}

/// One end of it may stay open for ever, and so long TIOCEXCL outlives a program that was killed.
bool SerialLayer::isPseudoTerminal()
{
    unsigned device = 0;
    if (m_device.ioctl(TIOCGDEV, &device) != 0) {
        return false;
    }
    const unsigned number = device >> kMajorShift & kMajorMask;
    return number >= UNIX98_PTY_SLAVE_MAJOR && number < UNIX98_PTY_SLAVE_MAJOR + UNIX98_PTY_MAJOR_COUNT;
}

std::size_t SerialLayer::read(std::uint8_t* to, std::size_t max, HostLinkTime now)
{
    if (!m_device) {
        return 0;
    }
    const ssize_t size = ::read(m_device.descriptor(), to, max);
    if (size > 0) {
        return std::size_t(size);
    }
    const bool nothingNow = size < 0 && (errno == EAGAIN || errno == EINTR);
    if (!nothingNow || m_broken) {
        drop(now);
    }
    return 0;
}

/// A device that comes and goes at once keeps its pauses and is not talked about each time.
void SerialLayer::drop(HostLinkTime now)
{
    release();
    if (now - m_upSince >= kLongestReopenPause) {
        m_retry.resetPause();
        m_retry.forget();
    }
    m_retry.say(kDeviceGone);
    m_retry.backOff(now, kFirstReopenPause, kLongestReopenPause);
}

std::size_t SerialLayer::write(const std::uint8_t* from, std::size_t size, HostLinkTime now)
{
    if (!m_device || m_broken) {
        return 0;
    }
    const ssize_t taken = ::write(m_device.descriptor(), from, size);
    if (taken < 0) {
        m_broken = errno != EAGAIN && errno != EINTR;
        return 0;
    }
    scheduleDrain(now);
    return std::size_t(taken);
}

std::size_t SerialLayer::unsent() const
{
    const std::size_t bytes = m_device ? queued() : 0;
    return bytes > kNearlySent ? bytes - kNearlySent : 0;
}

/// Bytes that the kernel has, as far as the device's driver tells.
std::size_t SerialLayer::queued() const
{
    int bytes = 0;
    return m_device.ioctl(TIOCOUTQ, &bytes) == 0 && bytes > 0 ? std::size_t(bytes) : 0;
}

void SerialLayer::scheduleDrain(HostLinkTime now)
{
    const std::size_t bytes = unsent();
    m_drainAt = bytes > 0 ? now + std::max(m_settings.duration(bytes), kShortestDrain) : HostLinkTime::max();
}

void SerialLayer::waitOn(std::vector<pollfd>& descriptors, bool writing) const
{
    if (m_device) {
        const bool wantsOut = writing && !m_broken;
        descriptors.push_back({m_device.descriptor(), short(POLLIN | (wantsOut ? POLLOUT : 0)), 0});
    }
}

HostLinkTime SerialLayer::nextService() const
{
    return std::min(m_retry.at(), m_drainAt);
}
