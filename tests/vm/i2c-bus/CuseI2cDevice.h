#pragma once

#include <functional>
#include <map>
#include <string>

#include "vm/i2c-bus/I2cBus.h"

#define FUSE_USE_VERSION 31
#include <fuse3/cuse_lowlevel.h>
#include <fuse3/fuse_lowlevel.h>

/// A device node below /dev through which programs reach a bus as they reach the kernel's i2c-dev: with
/// I2C_RDWR, or with I2C_SLAVE, read() and write(). Its calls come through CUSE.
class CuseI2cDevice
{
public:
    /// `name`: without /dev.
    CuseI2cDevice(I2cBus& bus, std::string name) : m_bus(bus), m_name(std::move(name)) {}
    ~CuseI2cDevice() { vanish(); }
    CuseI2cDevice(const CuseI2cDevice&) = delete;
    CuseI2cDevice& operator=(const CuseI2cDevice&) = delete;

    /// Returns when the node is there; throws std::system_error.
    void appear();

    /// The node goes, also for those who have it open.
    void vanish();

    /// What to poll for calls, -1 for nothing; then to be received, one at a time.
    int descriptor() const;
    void receive();

    /// Ends the transfer that is due.
    void service(HostLinkTime now);
    HostLinkTime nextService() const { return m_busyUntil; }

private:
    struct Calls;

    void open(fuse_req_t request, fuse_file_info* file);
    void release(fuse_req_t request, fuse_file_info* file);
    void control(fuse_req_t request, unsigned command, void* argument, fuse_file_info* file);
    void transferMessages(fuse_req_t request, void* argument);
    void answer(HostLinkDuration after, std::function<void()> reply);

    I2cBus& m_bus;
    const std::string m_name;
    fuse_session* m_session = nullptr;
    bool m_isThere = false;
    std::uint64_t m_files = 0;              ///< opened so far
    std::map<std::uint64_t, int> m_address; ///< of each open file, as I2C_SLAVE set it
    std::function<void()> m_reply;          ///< ends the call whose transfer takes time; empty for none
    HostLinkTime m_busyUntil = HostLinkTime::max();
};
