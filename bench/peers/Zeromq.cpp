// Ten values as bytes in a ZeroMQ reply, and events as published messages, over a Unix socket.
//
// usage: zeromq_peer trips|events [COUNT [CLIENT_CORE [SERVER_CORE]]]

#include <zmq.h>

#include "Trips.h"

namespace
{

constexpr std::size_t kEventBytes = 8;

void check(int result)
{
    if (result < 0) {
        throw std::runtime_error(zmq_strerror(zmq_errno()));
    }
}

void* openSocket(int type)
{
    void* const socket = zmq_socket(zmq_ctx_new(), type);
    const int unlimited = 0;
    check(zmq_setsockopt(socket, ZMQ_SNDHWM, &unlimited, sizeof unlimited));
    check(zmq_setsockopt(socket, ZMQ_RCVHWM, &unlimited, sizeof unlimited));
    return socket;
}

void measureTrips(const TripArguments& arguments, const std::string& address)
{
    const Server server(arguments.serverCore, [&] {
        void* const socket = openSocket(ZMQ_REP);
        check(zmq_bind(socket, address.c_str()));
        char buffer[256];
        for (;;) {
            check(zmq_recv(socket, buffer, sizeof buffer, 0));
            check(zmq_send(socket, buffer, kValueBytes, 0));
        }
    });
    void* const socket = openSocket(ZMQ_REQ);
    check(zmq_connect(socket, address.c_str()));
    char buffer[256] = {};
    reportTrips(arguments.requests, {server.pid()}, [&] {
        check(zmq_send(socket, buffer, 20, 0));
        check(zmq_recv(socket, buffer, sizeof buffer, 0));
    });
}

void measureEvents(const TripArguments& arguments, const std::string& address)
{
    const Server server(arguments.serverCore, [&] {
        void* const socket = openSocket(ZMQ_XPUB); // tells of the subscription
        check(zmq_bind(socket, address.c_str()));
        char event[kEventBytes] = {};
        check(zmq_recv(socket, event, sizeof event, 0));
        for (int i = 0; i < arguments.requests; ++i) {
            check(zmq_send(socket, event, sizeof event, 0));
        }
        pause();
    });
    void* const socket = openSocket(ZMQ_SUB);
    check(zmq_connect(socket, address.c_str()));
    check(zmq_setsockopt(socket, ZMQ_SUBSCRIBE, "", 0));
    char event[kEventBytes];
    check(zmq_recv(socket, event, sizeof event, 0));
    reportEvents(arguments.requests, [&] {
        for (int i = 1; i < arguments.requests; ++i) {
            check(zmq_recv(socket, event, sizeof event, 0));
        }
    });
}

} // namespace

int main(int argc, char** argv)
{
    return runTrips(argc, argv, [](const TripArguments& arguments) {
        const BenchDirectory directory;
        const std::string address = "ipc://" + (directory / "socket");
        arguments.subject == "events" ? measureEvents(arguments, address) : measureTrips(arguments, address);
    });
}
