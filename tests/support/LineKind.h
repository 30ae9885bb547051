#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <sys/socket.h>

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/hostlink/FileDescriptor.h"
#include "platform/hostlink/HostLinkPhysicalLayer.h"
#include "support/I2cBus.h"
#include "support/MemoryLayer.h"
#include "support/NullModem.h"

/// A directory that goes away with what is in it.
class TemporaryDirectory
{
public:
    TemporaryDirectory() : m_path((std::filesystem::temp_directory_path() / "hostlink-XXXXXX").string())
    {
        if (!::mkdtemp(m_path.data())) {
            throw std::runtime_error("cannot make a temporary directory");
        }
    }
    ~TemporaryDirectory() { std::filesystem::remove_all(m_path); }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    std::string file(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

/// A TCP port of 127.0.0.1 that was free a moment ago.
inline int freePort()
{
    const FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), size) != 0
        || ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        throw std::runtime_error("no free port");
    }
    return ::ntohs(address.sin_port);
}

inline std::unique_ptr<HostLinkPhysicalLayer> makeLayer(const std::string& type, const std::string& device,
                                                        bool listens, const std::string& faults = {})
{
    HostLinkPhysicalLayer::Properties properties;
    if (!faults.empty()) {
        properties.setString(HostLinkPhysicalLayer::Faults, faults);
    }
    properties.setString(HostLinkPhysicalLayer::Device, device);
    properties.setInt(HostLinkPhysicalLayer::Listen, listens ? 1 : 0);
    return HostLinkPhysicalLayer::create(type, properties);
}

/// One line of some kind, and new ends of it.
class LineKind
{
public:
    virtual ~LineKind() = default;
    virtual std::unique_ptr<HostLinkPhysicalLayer> listening() = 0;
    virtual std::unique_ptr<HostLinkPhysicalLayer> connecting() = 0;

    /// Cuts the line, which is up, for some moments, with all that is on it. `connecting` is an end of this
    /// thread.
    virtual void cut(const HostLinkPhysicalLayer& connecting) = 0;

    /// One of kAllLines.
    static std::unique_ptr<LineKind> make(const std::string& kind);
};

/// Every kind of line. An i2c_interrupt is an i2c with an interrupt line; their listening end is the
/// module's. A faulty one is a Unix socket that delays what comes in.
constexpr const char* kAllLines[] = {"unix", "tcp", "memory", "faulty", "serial", "i2c", "i2c_interrupt"};

/// Those that add no time of their own to what they carry.
constexpr const char* kPromptLines[] = {"unix", "tcp", "memory", "serial", "i2c", "i2c_interrupt"};

/// Those that go down when the other end closes, and are up only while both are open.
constexpr const char* kLinesWithPeer[] = {"unix", "tcp", "memory", "faulty"};

/// Those that keep what was sent when the end that sent it closes.
constexpr const char* kLinesThatKeep[] = {"unix", "tcp", "memory", "faulty", "serial"};

class SocketLine : public LineKind
{
public:
    explicit SocketLine(const std::string& type, std::string faults = {})
        : m_type(type), m_faults(std::move(faults)),
          m_device(type == "unix" ? m_directory.file("link") : "127.0.0.1:" + std::to_string(freePort()))
    {
    }
    std::unique_ptr<HostLinkPhysicalLayer> listening() override { return end(true); }
    std::unique_ptr<HostLinkPhysicalLayer> connecting() override { return end(false); }
    void cut(const HostLinkPhysicalLayer& connecting) override
    {
        std::vector<pollfd> descriptors;
        connecting.waitOn(descriptors, false);
        ::shutdown(descriptors.front().fd, SHUT_RDWR);
    }

private:
    std::unique_ptr<HostLinkPhysicalLayer> end(bool listens)
    {
        return makeLayer(m_type, m_device, listens, m_faults);
    }

    const TemporaryDirectory m_directory;
    const std::string m_type;
    const std::string m_faults;
    const std::string m_device;
};

class MemoryLineKind : public LineKind
{
public:
    std::unique_ptr<HostLinkPhysicalLayer> listening() override { return MemoryLine::makeEnd(m_line, 0); }
    std::unique_ptr<HostLinkPhysicalLayer> connecting() override { return MemoryLine::makeEnd(m_line, 1); }
    void cut(const HostLinkPhysicalLayer&) override
    {
        m_line->cut();
        m_line->mend();
    }

private:
    const std::shared_ptr<MemoryLine> m_line = std::make_shared<MemoryLine>();
};

class SerialLine : public LineKind
{
public:
    std::unique_ptr<HostLinkPhysicalLayer> listening() override { return end(0); }
    std::unique_ptr<HostLinkPhysicalLayer> connecting() override { return end(1); }
    void cut(const HostLinkPhysicalLayer&) override
    {
        m_modem.unplug();
        m_modem.plug();
    }

private:
    std::unique_ptr<HostLinkPhysicalLayer> end(int side)
    {
        return makeLayer("serial", m_modem.device(side), false);
    }

    const TemporaryDirectory m_directory;
    NullModem m_modem{m_directory.file("")};
};

class I2cLine : public LineKind
{
public:
    explicit I2cLine(bool interrupt) : m_interrupt(interrupt) {}

    std::unique_ptr<HostLinkPhysicalLayer> listening() override
    {
        return I2cBus::moduleEnd(m_bus, m_interrupt);
    }
    std::unique_ptr<HostLinkPhysicalLayer> connecting() override { return I2cBus::hostEnd(m_bus); }
    void cut(const HostLinkPhysicalLayer&) override
    {
        constexpr int kAttempts = 6; // after as many in a row the module takes the line for down
        m_bus->setMissing(true);
        EXPECT_TRUE(m_bus->waitForFailedOpens(kAttempts));
        m_bus->setMissing(false);
    }

private:
    const bool m_interrupt;
    const std::shared_ptr<I2cBus> m_bus = std::make_shared<I2cBus>();
};

inline std::unique_ptr<LineKind> LineKind::make(const std::string& kind)
{
    if (kind == "memory") {
        return std::make_unique<MemoryLineKind>();
    }
    if (kind == "faulty") {
        return std::make_unique<SocketLine>("unix", "delay.in=1&split.in=0.5&rate.in=1000000");
    }
    if (kind == "serial") {
        return std::make_unique<SerialLine>();
    }
    if (kind == "i2c" || kind == "i2c_interrupt") {
        return std::make_unique<I2cLine>(kind == "i2c_interrupt");
    }
    return std::make_unique<SocketLine>(kind);
}

inline HostLinkTime now()
{
    return HostLinkClock::now();
}

/// What can be read now.
inline ByteArray readNow(HostLinkPhysicalLayer& layer)
{
    ByteArray all;
    std::uint8_t buffer[512];
    for (;;) {
        const std::size_t size = layer.read(buffer, sizeof buffer, now());
        all.insert(all.end(), buffer, buffer + size);
        if (size < sizeof buffer) {
            return all;
        }
    }
}

/// Waits for descriptors and due times of the layers and services them until `predicate` holds; false
/// when that takes ten seconds.
template <typename Predicate>
bool serviceUntil(std::initializer_list<HostLinkPhysicalLayer*> layers, Predicate predicate)
{
    const HostLinkTime limit = HostLinkClock::now() + std::chrono::seconds(10);
    for (;;) {
        for (HostLinkPhysicalLayer* layer : layers) {
            layer->service(HostLinkClock::now());
        }
        if (predicate()) {
            return true;
        }
        const HostLinkTime now = HostLinkClock::now();
        if (now >= limit) {
            return false;
        }
        HostLinkTime due = limit;
        std::vector<pollfd> descriptors;
        for (const HostLinkPhysicalLayer* layer : layers) {
            layer->waitOn(descriptors, false);
            due = std::min(due, layer->nextService());
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(std::max(due, now) - now);
        ::poll(descriptors.data(), descriptors.size(), int(left.count()));
    }
}
