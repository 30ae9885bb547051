#pragma once

#include <sys/socket.h>

#include <future>

#include "platform/hostlink/SocketLayer.h"

/// An emulated line over TCP. Property Device is HOST:PORT: a name, an IPv4 address or an IPv6 address
/// in brackets, and a port from 1 to 65535. A name's first answer is kept. The listening side listens
/// on all addresses of HOST, or on every address of the machine when HOST is empty.
class TcpLayer : public SocketLayer
{
public:
    explicit TcpLayer(const Properties& properties);
    ~TcpLayer() override { close(); }

protected:
    Attempt listen() override;
    Attempt connect() override;
    bool prepare(int socket) override;

private:
    struct Address {
        sockaddr_storage bytes;
        socklen_t size;
    };
    struct Answer {
        int error; ///< as getaddrinfo() gives it
        std::vector<Address> addresses;
    };

    static Answer lookUp(const std::string& host, const std::string& port, int flags);
    bool parse(const std::string& device);
    Attempt resolve();

    std::string m_host;
    std::string m_port; ///< empty when the property is no HOST:PORT
    std::vector<Address> m_addresses;
    std::size_t m_next = 0;       ///< the address to connect to next
    std::future<Answer> m_answer; ///< of a look-up on its way
};
