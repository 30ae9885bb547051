#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/hostlink/DeviceCalls.h"

/// Transfers between the master of an I2C bus, which this side is, and one address, through Linux's
/// i2c-dev. Every transfer is one message between a start and a stop condition, and blocks.
class I2cDevice
{
public:
    /// `address` has 7 bits; `timeoutMs` is when the kernel gives up on a bus that hangs.
    I2cDevice(std::shared_ptr<DeviceCalls> calls, std::string path, int address, int timeoutMs);

    /// False and *problem when there is no such bus. What was open is closed.
    bool open(std::string* problem);
    void close() { m_node.close(); }

    /// One transfer of `size` bytes. False and errno when it failed: how far it came is not known then.
    bool read(std::uint8_t* to, std::size_t size);
    bool write(const std::uint8_t* from, std::size_t size);

    /// What errno means after one that failed.
    std::string transferProblem() const;

private:
    bool transfer(std::uint8_t* bytes, std::size_t size, std::uint16_t flags);

    DeviceNode m_node;
    const std::string m_path;
    const std::uint16_t m_address;
    const int m_timeoutMs;
};
