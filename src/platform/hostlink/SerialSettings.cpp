#include "platform/hostlink/SerialSettings.h"

#include <termios.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <optional>

#include "platform/hostlink/Problem.h"
#include "platform/hostlink/SerialBitRate.h"

namespace
{

struct StandardRate {
    int bitRate;
    speed_t code;
};

constexpr StandardRate kStandardRates[] = {
    {50, B50},           {75, B75},           {110, B110},         {134, B134},         {150, B150},
    {200, B200},         {300, B300},         {600, B600},         {1200, B1200},       {1800, B1800},
    {2400, B2400},       {4800, B4800},       {9600, B9600},       {19200, B19200},     {38400, B38400},
    {57600, B57600},     {115200, B115200},   {230400, B230400},   {460800, B460800},   {500000, B500000},
    {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000}, {1500000, B1500000},
    {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000}, {3500000, B3500000}, {4000000, B4000000},
};

// Two ends that differ by more do not understand each other.
constexpr int kTolerancePercent = 2;

std::optional<speed_t> standardRate(int bitRate)
{
    const auto* const found = std::find_if(std::begin(kStandardRates), std::end(kStandardRates),
                                           [&](const StandardRate& rate) { return rate.bitRate == bitRate; });
    return found == std::end(kStandardRates) ? std::nullopt : std::optional(found->code);
}

bool isClose(int actual, int wanted)
{
    return std::int64_t(std::abs(actual - wanted)) * 100 <= std::int64_t(wanted) * kTolerancePercent;
}

termios rawLine(const SerialSettings& settings)
{
    termios line{};
    const bool hasParity = settings.parity != SerialSettings::Parity::None;
    line.c_iflag = IGNBRK | (hasParity ? INPCK : 0);
    line.c_cflag = CS8 | CREAD | CLOCAL | (hasParity ? PARENB : 0);
    line.c_cflag |= settings.parity == SerialSettings::Parity::Odd ? PARODD : 0;
    line.c_cflag |= settings.stopBits == 2 ? CSTOPB : 0;
    line.c_cc[VMIN] = 1; // so that a read of nothing means that the device is gone
    return line;
}

/// Emulators know the standard rates only, and nothing about what became of them.
std::string applyRate(const DeviceNode& device, int bitRate)
{
    if (!standardRate(bitRate) && !SerialBitRate::set(device, bitRate)) {
        return problemWith("set " + std::to_string(bitRate) + " bit/s");
    }
    const int actual = SerialBitRate::get(device);
    if (actual == 0 || isClose(actual, bitRate)) {
        return {};
    }
    return "the device does not do " + std::to_string(bitRate) + " bit/s, but " + std::to_string(actual);
}

} // namespace

SerialSettings SerialSettings::from(const HostLinkPhysicalLayer::Properties& properties, std::string* problem)
{
    SerialSettings settings;
    settings.bitRate = properties.integer(HostLinkPhysicalLayer::BitRate).value_or(settings.bitRate);
    settings.stopBits = properties.integer(HostLinkPhysicalLayer::StopBits).value_or(settings.stopBits);
    const std::string parityText = properties.string(HostLinkPhysicalLayer::Parity).value_or("none");
    settings.parity = parityText == "even"  ? SerialSettings::Parity::Even
                      : parityText == "odd" ? SerialSettings::Parity::Odd
                                            : SerialSettings::Parity::None;
    if (settings.bitRate <= 0) {
        *problem = "a bit rate is positive, not " + std::to_string(settings.bitRate);
    } else if (settings.stopBits != 1 && settings.stopBits != 2) {
        *problem = "there are 1 or 2 stop bits, not " + std::to_string(settings.stopBits);
    } else if (settings.parity == SerialSettings::Parity::None && parityText != "none") {
        *problem = "parity is none, even or odd, not '" + parityText + "'";
    }
    return settings;
}

std::string SerialSettings::apply(const DeviceNode& device, std::string* remark) const
{
    termios line = rawLine(*this);
    const speed_t rate = standardRate(bitRate).value_or(B115200);
    ::cfsetispeed(&line, rate);
    ::cfsetospeed(&line, rate);
    if (::tcsetattr(device.descriptor(), TCSANOW, &line) != 0) {
        return errno == ENOTTY ? "it is no serial device" : problemWith("set the line up");
    }
    std::string rateProblem = applyRate(device, bitRate);
    if (!rateProblem.empty()) {
        return rateProblem;
    }
    termios actual{};
    if (::tcgetattr(device.descriptor(), &actual) != 0) {
        return problemWith("read the line's settings");
    }
    constexpr tcflag_t kForm = CSIZE | CSTOPB;
    if ((actual.c_cflag & kForm) != (line.c_cflag & kForm)) {
        return "the device does not do 8 data bits and " + std::to_string(stopBits) + " stop bits";
    }
    constexpr tcflag_t kParity = PARENB | PARODD;
    const bool lacksParity = (actual.c_cflag & kParity) != (line.c_cflag & kParity);
    *remark = lacksParity ? "the device does no parity, goes without" : "";
    return {};
}

HostLinkDuration SerialSettings::duration(std::size_t bytes) const
{
    const int bitsPerByte = 1 + 8 + (parity == Parity::None ? 0 : 1) + stopBits;
    return std::chrono::nanoseconds(std::int64_t(bytes) * bitsPerByte * 1'000'000'000 / bitRate);
}
