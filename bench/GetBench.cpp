// Asks a module for ten values, one request at a time: the host's class, the link, the worker with its
// proxies. `raw` is two plain loops that carry the same number of bytes over a Unix socket. Two processes,
// each on a core of its own unless they are given the same.
//
// usage: get_bench raw|own [REQUESTS [CLIENT_CORE [SERVER_CORE [STATES]]]]
// environment: HOSTLINK, the program to measure

#include <fstream>

#include "LinkedHost.h"
#include "Trips.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "vocabulary/Proxies.h"

namespace
{

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

void readExactly(int fd, std::uint8_t* to, std::size_t size)
{
    while (size > 0) {
        const ssize_t got = read(fd, to, size);
        if (got <= 0) {
            throw std::runtime_error("the raw peer went away");
        }
        to += got;
        size -= std::size_t(got);
    }
}

void writeAll(int fd, const std::vector<std::uint8_t>& bytes)
{
    if (write(fd, bytes.data(), bytes.size()) != ssize_t(bytes.size())) {
        throw std::runtime_error("the raw peer went away");
    }
}

void measureRaw(const TripArguments& arguments)
{
    int ends[2];
    openPair(ends);
    std::vector<std::uint8_t> request(kRequestBytes);
    std::vector<std::uint8_t> reply(kReplyBytes);
    const Server server(arguments.serverCore, [&] {
        for (;;) {
            readExactly(ends[1], request.data(), request.size());
            writeAll(ends[1], reply);
        }
    });
    reportTrips(arguments.requests, {server.pid()}, [&] {
        writeAll(ends[0], request);
        readExactly(ends[0], reply.data(), reply.size());
    });
}

/// The ten, or any number of those that are one node each, again and again where there are not so many.
std::vector<State> statesToAsk(int count)
{
    if (count == 0) {
        return {std::begin(kTenStates), std::end(kTenStates)};
    }
    std::vector<State> served;
    for (const ProxyRow& row : kProxies) {
        if (row.proxy == ProxyClass::ValueItemProxy) {
            served.push_back(row.states.front());
        }
    }
    std::vector<State> states;
    for (int i = 0; i < count; ++i) {
        states.push_back(served[std::size_t(i) % served.size()]);
    }
    return states;
}

void checkReply(const ByteArray& bytes, std::size_t states, bool isTen)
{
    const HostLinkValueMessage reply(bytes);
    if (reply.size() != int(states)) {
        throw std::runtime_error("the module's reply has not as many values as were asked for");
    }
    if (isTen && (reply.getString(9) != "twenty bytes of name" || reply.getInt64(8) != 123456789012)) {
        throw std::runtime_error("the module's reply is not the ten values");
    }
}

void measureOwn(const TripArguments& arguments, const std::string& program)
{
    const BenchDirectory directory;
    const std::string profile = directory / "profile.json";
    const std::string link = directory / "link";
    std::ofstream(profile) << kProfile;
    pinTo(arguments.serverCore);
    const Process module({program, "module", "--link", "unix:" + link, "--api", directory / "api",
                          "--state-dir", directory / "state", "--profile", profile});
    pinTo(arguments.clientCore);
    await("module", [&] { return std::filesystem::exists(directory / "api"); });

    LinkedHost linked(link);
    linked.session.open();
    Host& host = linked.host;
    const std::vector<State> states = statesToAsk(arguments.states);
    const ByteArray request = messageAbout(MSG_GetState, states);
    ByteArray reply;
    const auto trip = [&] {
        if (!host.send(request)) {
            throw std::runtime_error("the module takes no request");
        }
        do {
            if (host.receive(&reply, host.now() + std::chrono::seconds(5)) != Host::Event::Message) {
                throw std::runtime_error("the module does not answer");
            }
        } while (HostLinkMessage::messageId(reply) != MSG_GetStateResponse);
    };
    trip();
    checkReply(reply, states.size(), arguments.states == 0);
    const std::uint64_t bytesBefore = host.counters().bytesReceived;
    trip();
    if (arguments.states == 0 && host.counters().bytesReceived - bytesBefore > kReplyBytes) {
        throw std::runtime_error("the raw socket would carry less than the link does");
    }
    report("reply_bytes", double(reply.size()));
    reportTrips(arguments.requests, {module.pid()}, trip);
}

} // namespace

int main(int argc, char** argv)
{
    return runTrips(argc, argv, [](const TripArguments& arguments) {
        const char* program = std::getenv("HOSTLINK");
        arguments.subject == "raw" ? measureRaw(arguments)
                                   : measureOwn(arguments, program != nullptr ? program : HOSTLINK_PROGRAM);
    });
}
