#include "cli/LinkReport.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <iostream>

#include "cli/JsonText.h"
#include "platform/hostlink/HostLinkTrace.h"

namespace
{
/// HH:MM:SS and microseconds, local time.
std::string timeOfDay()
{
    using namespace std::chrono;
    const auto now = system_clock::now();
    const std::time_t seconds = system_clock::to_time_t(now);
    std::tm local{};
    ::localtime_r(&seconds, &local);
    const auto micros = duration_cast<microseconds>(now.time_since_epoch()).count() % 1'000'000;
    char text[32];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d.%06d", local.tm_hour, local.tm_min, local.tm_sec,
                  int(micros));
    return text;
}
} // namespace

std::string countersJson(const HostLinkCounters& counters)
{
    std::string text;
    for (const HostLinkCounters::Row& row : HostLinkCounters::kRows) {
        text += (text.empty() ? "{" : ",") + jsonString(row.name) + ':' + std::to_string(counters.*row.value);
    }
    return text + '}';
}

void printStats(const std::string& link, const HostLinkCounters& counters, bool json)
{
    if (json) {
        std::cerr << "{\"link\":" << jsonString(link) << ",\"stats\":" << countersJson(counters) << '}';
    } else {
        std::cerr << "stats link=" << link << ' ' << counters.text();
    }
    std::cerr << std::endl;
}

void printTrace()
{
    HostLinkTrace::setSink([](const std::string& line) {
        const std::string whole =
            timeOfDay() + ' ' + line + '\n'; // one write, so that no other comes between
        std::fwrite(whole.data(), 1, whole.size(), stderr);
    });
}
