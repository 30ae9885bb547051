// Asks a module for ten values, one request at a time, and compares with a raw Unix socket that carries
// the same number of bytes each way. Two processes, each pinned to a core of its own; rounds of the two
// alternate, and only ratios within one round count, since the clock of a machine drifts.
//
// usage: get_bench [ROUNDS [REQUESTS]]      environment: HOSTLINK, the program to measure

#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/hostlink/HostLinkPort.h"
#include "platform/hostlink/HostLinkUInt16Message.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "vocabulary/States.h"

namespace
{

using Clock = std::chrono::steady_clock;

constexpr int kClientCore = 0;
constexpr int kServerCore = 1;

constexpr State kStates[] = {STA_Mute,         STA_MicMute,    STA_DisplayBrightness, STA_MqaState,
                             STA_MaxAmpVolume, STA_VolumeMode, STA_IpAddress,         STA_DiracActiveFilter,
                             STA_PlayTime,     STA_DeviceName};

constexpr const char* kProfile = R"({
    "VornPlayerMutePath": {"bool_": true},
    "VornPlayerMicMutePath": {"bool_": false},
    "VornUIDisplayBrightnessPath": {"i32_": 7},
    "VornKestalPrimeMqaStatePath": {"i32_": 1},
    "VornKestalPrimeMaxAmpVolumePath": {"i32_": 80},
    "VornKestalPrimeVolumeModePath": {"i32_": 2},
    "VornKestalPrimeIpAddressPath": {"i32_": 19216801},
    "VornTarkoDiracActiveFilterPath": {"i32_": -3},
    "VornPlayLogicPlayTimePath": {"i64_": 123456789012},
    "VornDeviceNamePath": {"string_": "twenty bytes of name"}
}
)";

void pinTo(int core)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(core, &set);
    if (sched_setaffinity(0, sizeof set, &set) != 0) {
        std::perror("warning: cannot pin to a core");
    }
}

double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// Median round trip in microseconds.
template <typename Trip>
double measure(int requests, Trip trip)
{
    for (int i = 0; i < requests / 10; ++i) {
        trip();
    }
    std::vector<double> times;
    times.reserve(static_cast<std::size_t>(requests));
    for (int i = 0; i < requests; ++i) {
        const auto start = Clock::now();
        trip();
        times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    return median(std::move(times));
}

void readExactly(int fd, std::uint8_t* to, std::size_t size)
{
    while (size > 0) {
        const ssize_t got = read(fd, to, size);
        if (got <= 0) {
            throw std::runtime_error("the raw peer went away");
        }
        to += got;
        size -= static_cast<std::size_t>(got);
    }
}

/// A peer process that reads `requestSize` bytes and answers with `replySize`, for ever.
class RawPeer
{
public:
    RawPeer(std::size_t requestSize, std::size_t replySize) : m_request(requestSize), m_reply(replySize)
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
            throw std::runtime_error("socketpair failed");
        }
        m_pid = fork();
        if (m_pid == 0) {
            close(ends[0]);
            pinTo(kServerCore);
            try {
                for (;;) {
                    readExactly(ends[1], m_request.data(), m_request.size());
                    if (write(ends[1], m_reply.data(), m_reply.size()) < 0) {
                        break;
                    }
                }
            } catch (const std::runtime_error&) {
            }
            _exit(0);
        }
        close(ends[1]);
        m_fd = ends[0];
    }

    ~RawPeer()
    {
        close(m_fd);
        waitpid(m_pid, nullptr, 0);
    }

    void trip()
    {
        if (write(m_fd, m_request.data(), m_request.size()) < 0) {
            throw std::runtime_error("the raw peer went away");
        }
        readExactly(m_fd, m_reply.data(), m_reply.size());
    }

private:
    std::vector<std::uint8_t> m_request;
    std::vector<std::uint8_t> m_reply;
    pid_t m_pid = 0;
    int m_fd = -1;
};

/// A running `hostlink module` on sockets in a directory of its own.
class Module
{
public:
    explicit Module(const std::string& program)
    {
        char pattern[] = "/tmp/hostlink-bench.XXXXXX";
        if (mkdtemp(pattern) == nullptr) {
            throw std::runtime_error("cannot make a directory below /tmp");
        }
        m_directory = pattern;
        std::ofstream(m_directory + "/profile.json") << kProfile;
        m_pid = fork();
        if (m_pid == 0) {
            pinTo(kServerCore);
            const std::string link = "unix:" + linkPath();
            const std::string api = m_directory + "/api";
            const std::string state = m_directory + "/state";
            const std::string profile = m_directory + "/profile.json";
            execl(program.c_str(), program.c_str(), "module", "--link", link.c_str(), "--api", api.c_str(),
                  "--state-dir", state.c_str(), "--profile", profile.c_str(), nullptr);
            std::perror(program.c_str());
            _exit(127);
        }
    }

    ~Module()
    {
        kill(m_pid, SIGTERM);
        waitpid(m_pid, nullptr, 0);
        std::filesystem::remove_all(m_directory);
    }

    std::string linkPath() const { return m_directory + "/link"; }

private:
    std::string m_directory;
    pid_t m_pid = 0;
};

/// The host's end, stepped inline.
class Client
{
public:
    explicit Client(const std::string& path) : m_port(layer(path)), m_request(MSG_GetState)
    {
        for (const State state : kStates) {
            m_request.addValue(state);
        }
        m_port.open(Clock::now());
    }

    ~Client()
    {
        m_port.core().goodbye(Clock::now());
        m_port.flush(Clock::now());
        m_port.close();
    }

    /// The reply to one request; other messages of the module are passed over.
    const ByteArray& trip()
    {
        if (!m_port.core().send(m_request.serialize(), Clock::now())) {
            throw std::runtime_error("the module takes no request");
        }
        m_port.flush(Clock::now());
        for (;;) {
            while (m_port.core().take(m_message)) {
                const MessageId id = HostLinkMessage::messageId(m_message);
                m_port.core().handled(messageClass(id), m_message.size(), Clock::now());
                if (id == MSG_GetStateResponse) {
                    return m_message;
                }
            }
            wait();
        }
    }

    std::size_t requestSize() const { return m_request.serialize().size(); }

private:
    static std::unique_ptr<HostLinkPhysicalLayer> layer(const std::string& path)
    {
        HostLinkPhysicalLayer::Properties properties;
        properties.setString(HostLinkPhysicalLayer::Device, path);
        return HostLinkPhysicalLayer::create("unix", properties);
    }

    void wait()
    {
        m_descriptors.clear();
        m_port.waitOn(m_descriptors);
        const auto now = Clock::now();
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(std::clamp<Clock::duration>(
            m_port.deadline() - now, Clock::duration::zero(), std::chrono::seconds(1)));
        poll(m_descriptors.data(), m_descriptors.size(), static_cast<int>(left.count()));
        m_port.step(Clock::now());
    }

    HostLinkPort m_port;
    HostLinkUInt16Message m_request;
    ByteArray m_message;
    std::vector<pollfd> m_descriptors;
};

void checkReply(const ByteArray& bytes)
{
    const HostLinkValueMessage reply(bytes);
    if (reply.size() != 10 || reply.getString(9) != "twenty bytes of name"
        || reply.getInt64(8) != 123456789012) {
        throw std::runtime_error("the module's reply is not the ten values");
    }
}

} // namespace

int main(int argc, char** argv)
try {
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 7;
    const int requests = argc > 2 ? std::atoi(argv[2]) : 20000;
    const char* program = std::getenv("HOSTLINK");

    pinTo(kClientCore);
    Module module(program != nullptr ? program : HOSTLINK_PROGRAM);
    Client client(module.linkPath());
    const ByteArray& reply = client.trip();
    checkReply(reply);

    constexpr std::size_t frameOverhead = 9;
    RawPeer raw(client.requestSize() + frameOverhead, reply.size() + frameOverhead);

    std::printf("%zu bytes out, %zu back, %d requests a round\n", client.requestSize() + frameOverhead,
                reply.size() + frameOverhead, requests);
    std::vector<double> ratios;
    for (int round = 0; round < rounds; ++round) {
        const double rawTime = measure(requests, [&] { raw.trip(); });
        const double ownTime = measure(requests, [&] { client.trip(); });
        ratios.push_back(rawTime / ownTime);
        std::printf("round %d: raw p50 %.1f us, own p50 %.1f us, ratio %.2f\n", round + 1, rawTime, ownTime,
                    ratios.back());
    }
    std::printf("median ratio %.2f\n", median(ratios));
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "get_bench: %s\n", error.what());
    return 1;
}
