#pragma once

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

#include "platform/hostlink/ByteArray.h"
#include "platform/hostlink/FileDescriptor.h"

/// A pseudo-terminal as a serial device; the test has its other end.
class Terminal
{
public:
    Terminal() : m_master(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK))
    {
        char name[64];
        if (!m_master || ::grantpt(m_master.get()) != 0 || ::unlockpt(m_master.get()) != 0
            || ::ptsname_r(m_master.get(), name, sizeof name) != 0) {
            throw std::runtime_error("no pseudo-terminal");
        }
        m_path = name;
    }

    const std::string& path() const { return m_path; }
    int master() const { return m_master.get(); }
    void hangUp() { m_master.reset(); }

    /// The device as another program opens it.
    FileDescriptor openDevice() const
    {
        return FileDescriptor(::open(m_path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    }

    /// What was written to the device and not read here.
    ByteArray read()
    {
        ByteArray bytes(4096);
        const ssize_t size = ::read(m_master.get(), bytes.data(), bytes.size());
        bytes.resize(size > 0 ? std::size_t(size) : 0);
        return bytes;
    }

    /// False when not all of it was taken.
    bool write(const ByteArray& bytes)
    {
        return ::write(m_master.get(), bytes.data(), bytes.size()) == ssize_t(bytes.size());
    }

private:
    FileDescriptor m_master;
    std::string m_path;
};
