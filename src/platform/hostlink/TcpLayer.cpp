#include "platform/hostlink/TcpLayer.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <thread>

#include "platform/hostlink/NumberText.h"
#include "platform/hostlink/Problem.h"

using namespace std::chrono_literals;

namespace
{

// Little may wait in the kernel: what is written there can no longer be overtaken by a state message.
constexpr int kUnsentLimit = 2 * 1024;

// A peer whose machine or network went away without a word is given up after about ten seconds.
constexpr int kKeepAliveIdle = 4;
constexpr int kKeepAliveInterval = 2;
constexpr int kKeepAliveProbes = 3;
constexpr int kUserTimeoutMs = 10'000;

bool setOption(int socket, int level, int option, int value)
{
    return ::setsockopt(socket, level, option, &value, sizeof value) == 0;
}

bool isPort(const std::string& text)
{
    return wholeNumber<std::uint16_t>(text).value_or(0) > 0;
}

/// A connection to a free local port may by chance come from that very port and meet itself.
bool isConnectedToItself(int socket)
{
    sockaddr_storage own{};
    sockaddr_storage peer{};
    socklen_t ownSize = sizeof own;
    socklen_t peerSize = sizeof peer;
    return ::getsockname(socket, reinterpret_cast<sockaddr*>(&own), &ownSize) == 0
           && ::getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &peerSize) == 0 && ownSize == peerSize
           && std::memcmp(&own, &peer, ownSize) == 0;
}

FileDescriptor newSocket(int family)
{
    return FileDescriptor(::socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

} // namespace

TcpLayer::TcpLayer(const Properties& properties)
    : SocketLayer("tcp:" + properties.string(Device).value_or(""), properties)
{
    if (!parse(properties.string(Device).value_or(""))) {
        m_port.clear();
    }
}

bool TcpLayer::parse(const std::string& device)
{
    const std::size_t colon = device.rfind(':');
    if (colon == std::string::npos) {
        return false;
    }
    m_port = device.substr(colon + 1);
    m_host = device.substr(0, colon);
    if (m_host.size() > 2 && m_host.front() == '[' && m_host.back() == ']') {
        m_host = m_host.substr(1, m_host.size() - 2);
        return isPort(m_port);
    }
    return isPort(m_port) && m_host.find(':') == std::string::npos;
}

TcpLayer::Answer TcpLayer::lookUp(const std::string& host, const std::string& port, int flags)
{
    addrinfo hints{};
    hints.ai_flags = flags | AI_NUMERICSERV;
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    Answer answer{};
    answer.error = ::getaddrinfo(host.empty() ? nullptr : host.c_str(), port.c_str(), &hints, &list);
    if (answer.error != 0) {
        return answer;
    }
    for (const addrinfo* entry = list; entry; entry = entry->ai_next) {
        Address address{{}, entry->ai_addrlen};
        std::memcpy(&address.bytes, entry->ai_addr, entry->ai_addrlen);
        answer.addresses.push_back(address);
    }
    ::freeaddrinfo(list);
    return answer;
}

/// Done once m_addresses is filled. Names are looked up on a thread of their own: that may take long.
SocketLayer::Attempt TcpLayer::resolve()
{
    if (m_port.empty()) {
        return Attempt::hopeless("not HOST:PORT with an IPv6 address in brackets and a port from 1 to 65535");
    }
    if (!m_addresses.empty()) {
        return {Attempt::Outcome::Done, {}, {}};
    }
    if (!m_answer.valid()) {
        m_addresses = lookUp(m_host, m_port, AI_NUMERICHOST | AI_PASSIVE).addresses;
        if (!m_addresses.empty()) {
            return {Attempt::Outcome::Done, {}, {}};
        }
        std::packaged_task<Answer()> task([host = m_host, port = m_port] { return lookUp(host, port, 0); });
        m_answer = task.get_future();
        std::thread(std::move(task)).detach();
    }
    if (m_answer.wait_for(0s) != std::future_status::ready) {
        return Attempt::waiting();
    }
    Answer answer = m_answer.get();
    if (answer.error != 0) {
        return Attempt::failed("cannot find " + m_host + ": " + ::gai_strerror(answer.error));
    }
    m_addresses = std::move(answer.addresses);
    return {Attempt::Outcome::Done, {}, {}};
}

SocketLayer::Attempt TcpLayer::listen()
{
    Attempt attempt = resolve();
    if (attempt.outcome != Attempt::Outcome::Done) {
        return attempt;
    }
    for (const Address& address : m_addresses) {
        FileDescriptor socket = newSocket(address.bytes.ss_family);
        if (!socket) {
            continue; // no IPv6 on this machine
        }
        setOption(socket.get(), SOL_SOCKET, SO_REUSEADDR, 1);
        if (address.bytes.ss_family == AF_INET6) {
            setOption(socket.get(), IPPROTO_IPV6, IPV6_V6ONLY, 1);
        }
        if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address.bytes), address.size) == 0
            && ::listen(socket.get(), kBacklog) == 0) {
            attempt.sockets.push_back(std::move(socket));
        } else if (errno == EADDRINUSE) {
            return Attempt::failed("somebody else listens there");
        }
    }
    return attempt.sockets.empty() ? Attempt::failed(problemWith("listen")) : std::move(attempt);
}

SocketLayer::Attempt TcpLayer::connect()
{
    Attempt resolved = resolve();
    if (resolved.outcome != Attempt::Outcome::Done) {
        return resolved;
    }
    const Address& address = m_addresses[m_next++ % m_addresses.size()];
    FileDescriptor socket = newSocket(address.bytes.ss_family);
    if (!socket) {
        return Attempt::failed(problemWith("make a socket"));
    }
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address.bytes), address.size) == 0
        || errno == EINPROGRESS) {
        return Attempt::done(std::move(socket));
    }
    return errno == ECONNREFUSED ? Attempt::waiting() : Attempt::failed(problemWith("connect"));
}

bool TcpLayer::prepare(int socket)
{
    if (isConnectedToItself(socket)) {
        errno = ECONNREFUSED;
        return false;
    }
    return setOption(socket, IPPROTO_TCP, TCP_NODELAY, 1)
           && setOption(socket, IPPROTO_TCP, TCP_NOTSENT_LOWAT, kUnsentLimit)
           && setOption(socket, SOL_SOCKET, SO_KEEPALIVE, 1)
           && setOption(socket, IPPROTO_TCP, TCP_KEEPIDLE, kKeepAliveIdle)
           && setOption(socket, IPPROTO_TCP, TCP_KEEPINTVL, kKeepAliveInterval)
           && setOption(socket, IPPROTO_TCP, TCP_KEEPCNT, kKeepAliveProbes)
           && setOption(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, kUserTimeoutMs);
}
