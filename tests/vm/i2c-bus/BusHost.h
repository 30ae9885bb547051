#pragma once

#include <poll.h>

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "platform/hostlink/ByteArray.h"
#include "platform/hostlink/HostLinkPhysicalLayer.h"

/// The host at its end of the bus, a slave that has to be asked: the program that connects to a Unix socket.
///
/// A read delivers first the count of bytes that are ready, 254 at most, then these bytes. What was clocked
/// out behind the count is gone.
class BusHost
{
public:
    static constexpr std::uint8_t kNobodyDrives = 0xff;

    /// Listens on the socket at this path.
    explicit BusHost(const std::string& socket);

    /// Moves bytes between the socket and here. To be called when a descriptor of waitOn() is ready or
    /// nextService() has come.
    void service(HostLinkTime now);
    void waitOn(std::vector<pollfd>& descriptors) const;
    HostLinkTime nextService() const;

    /// False when nobody has connected and all that the last one said was read.
    bool isThere() const { return m_socket->lineNumber() != 0 || !m_toModule.empty(); }

    /// True while the program takes no more: the bus waits for it then.
    bool isBusy() const { return m_toHost.size() > kMostKept; }

    /// The first `clocked` bytes of a read.
    ByteArray read(std::size_t clocked);

    void write(const ByteArray& bytes);

private:
    static constexpr std::size_t kMostReady = 254;
    static constexpr std::size_t kMostKept = 1024; ///< in each direction; then the other side has to wait

    void readSocket(HostLinkTime now);
    void writeSocket(HostLinkTime now);

    std::unique_ptr<HostLinkPhysicalLayer> m_socket;
    std::uint64_t m_line = 0; ///< number of the connection that m_toHost is meant for
    std::deque<std::uint8_t> m_toModule;
    ByteArray m_toHost;
};
