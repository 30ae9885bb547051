#pragma once

#include <cstdlib>
#include <vector>

#include "Processes.h"

// Ten values asked for and got (6 x u8, u32, i32, i64, a text of 20 bytes), one request at a time, over any
// protocol.

// What the link puts on the line for them: two bytes a state asked, a tag and a MessagePack value for each
// that comes back, and 11 bytes of message id and frame around either.
constexpr std::size_t kRequestBytes = 31;
constexpr std::size_t kReplyBytes = 85;

/// The values themselves, where a protocol carries bytes.
constexpr std::size_t kValueBytes = 6 + 4 + 4 + 8 + 20;

/// Arguments of each program that measures trips or events:
///     SUBJECT [REQUESTS [CLIENT_CORE [SERVER_CORE [STATES]]]]     only some have states, 0 for the usual
struct TripArguments {
    std::string subject;
    int requests = 20000;
    int clientCore = 0;
    int serverCore = 1;
    int states = 0;

    TripArguments(int argc, char** argv) : subject(argc > 1 ? argv[1] : "")
    {
        int* const members[] = {&requests, &clientCore, &serverCore, &states};
        for (int i = 0; i < argc - 2 && i < 4; ++i) {
            *members[i] = std::atoi(argv[i + 2]);
        }
    }
};

/// The main function of these programs: `measure` gets the arguments, on the client's core.
template <typename Measure>
int runTrips(int argc, char** argv, Measure measure)
{
    return runBench([&] {
        const TripArguments arguments(argc, argv);
        pinTo(arguments.clientCore);
        measure(arguments);
    });
}

/// Makes trips, a tenth of them to warm up, and reports how long one takes and how much processor time the
/// servers and this process spend on it.
template <typename Trip>
void reportTrips(int requests, const std::vector<pid_t>& servers, Trip trip)
{
    for (int i = 0; i < requests / 10; ++i) {
        trip();
    }
    const auto processors = [&] {
        double seconds = processorSeconds(0);
        for (const pid_t server : servers) {
            seconds += processorSeconds(server);
        }
        return seconds;
    };
    std::vector<double> times;
    times.reserve(std::size_t(requests));
    const double busyBefore = processors();
    const auto begin = Clock::now();
    for (int i = 0; i < requests; ++i) {
        const auto start = Clock::now();
        trip();
        times.push_back(1e6 * secondsSince(start));
    }
    const double seconds = secondsSince(begin);
    const double busy = processors() - busyBefore;
    std::sort(times.begin(), times.end());
    report("p50_us", times[times.size() / 2]);
    report("p99_us", times[times.size() * 99 / 100]);
    report("trips_per_s", requests / seconds);
    report("cpu_us", 1e6 * busy / requests);
}

/// Reports how many events a second there are; `receive` returns when the last of them has come.
template <typename Receive>
void reportEvents(int events, Receive receive)
{
    const auto begin = Clock::now();
    receive();
    report("events_per_s", events / secondsSince(begin));
}
