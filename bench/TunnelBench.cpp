// The stream of one client, or of several at once, through the module's tunnel to a host, and the same stream
// of one client through two socat processes (TCP to a Unix socket, and on to TCP). Beside the speed stands
// the processor time of a megabyte: of the module and this host, and of the two socats.
//
// usage: tunnel_bench socat|own [MEGABYTES [CLIENTS]]      environment: HOSTLINK, the program to measure

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>
#include <thread>

#include "LinkedHost.h"
#include "Processes.h"
#include "host/TunnelHost.h"
#include "platform/hostlink/FileDescriptor.h"

namespace
{

struct Result {
    double megabytesPerSecond;
    double cpuMillisecondsPerMegabyte;
};

sockaddr_in localAddress(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

FileDescriptor listener(std::uint16_t* port)
{
    FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = localAddress(*port);
    socklen_t size = sizeof address;
    const int on = 1;
    ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0
        || ::listen(socket.get(), 1) != 0
        || ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        throw std::runtime_error("cannot listen");
    }
    *port = ntohs(address.sin_port);
    return socket;
}

std::uint16_t freePort()
{
    std::uint16_t port = 0;
    listener(&port);
    return port;
}

FileDescriptor connected(std::uint16_t port)
{
    const sockaddr_in address = localAddress(port);
    FileDescriptor socket;
    await("server", [&] {
        socket = FileDescriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        return ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    });
    return socket;
}

void sendAll(int socket, std::size_t bytes)
{
    const std::string block(64 * 1024, 'x');
    while (bytes > 0) {
        const ssize_t sent = ::send(socket, block.data(), std::min(bytes, block.size()), MSG_NOSIGNAL);
        if (sent <= 0) {
            return; // the receiver misses it
        }
        bytes -= std::size_t(sent);
    }
}

double threadSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    const auto seconds = [](const timeval& time) { return double(time.tv_sec) + double(time.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

Result socat(std::size_t megabytes)
{
    const BenchDirectory directory;
    std::uint16_t sinkPort = 0;
    const FileDescriptor sink = listener(&sinkPort);
    const std::uint16_t port = freePort();
    const std::string path = directory / "hop";
    Process second({"socat", "UNIX-LISTEN:" + path, "TCP:127.0.0.1:" + std::to_string(sinkPort)});
    Process first({"socat", "TCP-LISTEN:" + std::to_string(port) + ",bind=127.0.0.1,reuseaddr",
                   "UNIX-CONNECT:" + path});
    await("socat", [&] { return std::filesystem::exists(path); });
    FileDescriptor client = connected(port);
    const FileDescriptor server(::accept(sink.get(), nullptr, nullptr));
    const auto begin = Clock::now();
    std::thread sender([&] { sendAll(client.get(), megabytes << 20); });
    std::size_t received = 0;
    std::vector<char> buffer(64 * 1024);
    for (ssize_t got;
         received < megabytes << 20 && (got = ::read(server.get(), buffer.data(), buffer.size())) > 0;) {
        received += std::size_t(got);
    }
    const double seconds = secondsSince(begin);
    sender.join();
    first.terminate();
    second.terminate();
    const double cpu = first.wait() + second.wait();
    if (received < megabytes << 20) {
        throw std::runtime_error("socat lost some");
    }
    return {double(megabytes) / seconds, 1000 * cpu / double(megabytes)};
}

/// All clients send at once, each its share.
Result tunnel(const std::string& program, std::size_t megabytes, int clients)
{
    const BenchDirectory directory;
    const std::uint16_t port = freePort();
    const std::string link = directory / "link";
    Process module({program, "module", "--link", "unix:" + link, "--api", directory / "api", "--state-dir",
                    directory / "state", "--tunnel-port", std::to_string(port), "--tunnel-connections",
                    std::to_string(clients)});
    await("module", [&] { return std::filesystem::exists(directory / "api"); });
    LinkedHost linked(link);
    HostSession& session = linked.session;
    std::size_t received = 0;
    TunnelHost end({[&](TunnelHost::Id, const ByteArray& data) { received += data.size(); },
                    [](TunnelHost::Id) {}, [](TunnelHost::Id, const std::string&) {}});
    session.addChannel(end);
    session.open();
    std::vector<FileDescriptor> sockets;
    for (int i = 0; i < clients; ++i) {
        sockets.push_back(connected(port));
    }
    const std::size_t share = (megabytes << 20) / std::size_t(clients);
    const double ownBefore = threadSeconds();
    const auto begin = Clock::now();
    std::vector<std::thread> senders;
    for (const FileDescriptor& socket : sockets) {
        senders.emplace_back([&socket, share] { sendAll(socket.get(), share); });
    }
    ByteArray message;
    while (received < share * std::size_t(clients)) {
        if (session.receive(&message, session.now() + std::chrono::seconds(10)) != Host::Event::Message) {
            throw std::runtime_error("the tunnel lost some");
        }
    }
    const double seconds = secondsSince(begin);
    const double own = threadSeconds() - ownBefore;
    for (std::thread& sender : senders) {
        sender.join();
    }
    linked.host.goodbye();
    module.terminate();
    return {double(megabytes) / seconds, 1000 * (module.wait() + own) / double(megabytes)};
}

} // namespace

int main(int argc, char** argv)
{
    return runBench([&] {
        const bool isPeer = argc > 1 && argv[1] == std::string("socat");
        const auto megabytes = std::size_t(argc > 2 ? std::atoi(argv[2]) : 256);
        const int clients = argc > 3 ? std::atoi(argv[3]) : 1;
        const char* program = std::getenv("HOSTLINK");
        const Result result =
            isPeer ? socat(megabytes)
                   : tunnel(program != nullptr ? program : HOSTLINK_PROGRAM, megabytes, clients);
        report("mb_per_s", result.megabytesPerSecond);
        report("cpu_ms_per_mb", result.cpuMillisecondsPerMegabyte);
    });
}
