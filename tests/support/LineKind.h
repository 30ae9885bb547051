#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <sys/socket.h>

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/hostlink/FileDescriptor.h"
#include "platform/hostlink/HostLinkPhysicalLayer.h"
#include "support/MemoryLayer.h"

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

inline std::unique_ptr<HostLinkPhysicalLayer> makeSocketLayer(const std::string& type,
                                                              const std::string& device, bool listens,
                                                              const std::string& faults = {})
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

    /// "unix", "tcp", "memory", or "faulty": a Unix socket that delays what comes in.
    static std::unique_ptr<LineKind> make(const std::string& kind);
};

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

private:
    std::unique_ptr<HostLinkPhysicalLayer> end(bool listens)
    {
        return makeSocketLayer(m_type, m_device, listens, m_faults);
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

private:
    const std::shared_ptr<MemoryLine> m_line = std::make_shared<MemoryLine>();
};

inline std::unique_ptr<LineKind> LineKind::make(const std::string& kind)
{
    if (kind == "memory") {
        return std::make_unique<MemoryLineKind>();
    }
    if (kind == "faulty") {
        return std::make_unique<SocketLine>("unix", "delay.in=1&split.in=0.5&rate.in=1000000");
    }
    return std::make_unique<SocketLine>(kind);
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
