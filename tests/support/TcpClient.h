#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <string>

#include "platform/hostlink/FileDescriptor.h"

/// A TCP client of the module that neither blocks nor has a thread.
class TcpClient
{
public:
    explicit TcpClient(std::uint16_t port) : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::connect(m_socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        ::fcntl(m_socket.get(), F_SETFL, O_NONBLOCK);
    }

    /// Sends from `data` what goes now, and reads what is there.
    void exchange(const std::string& data)
    {
        const ssize_t sent = ::send(m_socket.get(), data.data() + m_sent, data.size() - m_sent, MSG_NOSIGNAL);
        m_sent += sent > 0 ? std::size_t(sent) : 0;
        receive();
    }

    void receive()
    {
        char buffer[16384];
        for (ssize_t got;
             (got = ::recv(m_socket.get(), buffer, sizeof buffer, 0)) != -1 || errno != EAGAIN;) {
            m_closed = m_closed || got <= 0;
            if (got <= 0) {
                return;
            }
            m_received.append(buffer, std::size_t(got));
        }
    }

    /// Waits until so many bytes have come, or the connection is closed.
    const std::string& await(std::size_t size)
    {
        while (m_received.size() < size && !m_closed) {
            pollfd ready{m_socket.get(), POLLIN, 0};
            if (::poll(&ready, 1, 10'000) != 1) {
                ADD_FAILURE() << "nothing comes";
                break;
            }
            receive();
        }
        return m_received;
    }

    bool awaitClosed()
    {
        await(std::size_t(-1));
        return m_closed;
    }

    void say(const std::string& text)
    {
        EXPECT_EQ(::send(m_socket.get(), text.data(), text.size(), 0), ssize_t(text.size()));
    }

    void reset()
    {
        const linger hard{1, 0};
        ::setsockopt(m_socket.get(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
        m_socket.reset();
    }

    int descriptor() const { return m_socket.get(); }
    bool isAllSent(const std::string& data) const { return m_sent == data.size(); }
    const std::string& received() const { return m_received; }
    bool isClosed() const { return m_closed; }

private:
    FileDescriptor m_socket;
    std::size_t m_sent = 0;
    std::string m_received;
    bool m_closed = false;
};

/// A port that nobody listens at.
inline std::uint16_t freePort()
{
    const FileDescriptor probe(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    ::bind(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    socklen_t size = sizeof address;
    ::getsockname(probe.get(), reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}
