#include "platform/hostlink/I2cDevice.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include "platform/hostlink/Problem.h"

namespace
{
constexpr int kTimeoutUnitMs = 10; // of I2C_TIMEOUT
} // namespace

I2cDevice::I2cDevice(std::shared_ptr<DeviceCalls> calls, std::string path, int address, int timeoutMs)
    : m_node(std::move(calls)), m_path(std::move(path)), m_address(static_cast<std::uint16_t>(address)),
      m_timeoutMs(timeoutMs)
{
}

bool I2cDevice::open(std::string* problem)
{
    if (!m_node.open(m_path, O_RDWR)) {
        const bool isGone = errno == ENOENT || errno == ENXIO || errno == ENODEV;
        *problem = isGone ? kDeviceGone : problemWith("open the device");
        return false;
    }
    unsigned long abilities = 0;
    if (m_node.ioctl(I2C_FUNCS, &abilities) >= 0 && (abilities & I2C_FUNC_I2C) == 0) {
        *problem = "the bus does SMBus only, not plain transfers";
        m_node.close();
        return false;
    }
    // Where that is not to be had, the bus has a time-out of its own.
    const auto units = static_cast<std::uintptr_t>((m_timeoutMs + kTimeoutUnitMs - 1) / kTimeoutUnitMs);
    m_node.ioctl(I2C_TIMEOUT, units);
    return true;
}

std::string I2cDevice::transferProblem() const
{
    switch (errno) {
    case ENODEV: return kDeviceGone;
    case ENOTTY: return "the device is no I2C bus";
    default: break;
    }
    char address[sizeof "0x00"];
    std::snprintf(address, sizeof address, "0x%02x", unsigned(m_address) & 0xffU);
    return std::string("no answer from address ") + address + ": " + std::generic_category().message(errno);
}

bool I2cDevice::read(std::uint8_t* to, std::size_t size)
{
    return transfer(to, size, I2C_M_RD);
}

bool I2cDevice::write(const std::uint8_t* from, std::size_t size)
{
    return transfer(const_cast<std::uint8_t*>(from), size, 0); // which the kernel only reads
}

bool I2cDevice::transfer(std::uint8_t* bytes, std::size_t size, std::uint16_t flags)
{
    i2c_msg message{};
    message.addr = m_address;
    message.flags = flags;
    message.len = static_cast<std::uint16_t>(size);
    message.buf = bytes;
    i2c_rdwr_ioctl_data transfer{};
    transfer.msgs = &message;
    transfer.nmsgs = 1;
    errno = EIO; // for a transfer that ends short without another reason
    return m_node.ioctl(I2C_RDWR, &transfer) == 1;
}
