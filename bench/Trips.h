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

/// Arguments of each program that measures trips: [REQUESTS [CLIENT_CORE [SERVER_CORE]]]
struct TripArguments {
    int requests = 20000;
    int clientCore = 0;
    int serverCore = 1;

    TripArguments(int count, char** arguments)
    {
        int* const members[] = {&requests, &clientCore, &serverCore};
        for (int i = 0; i < count && i < 3; ++i) {
            *members[i] = std::atoi(arguments[i]);
        }
    }
};

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
