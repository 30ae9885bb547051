#pragma once

#include <chrono>

/// Monotonic time of the link. The library never reads the clock below the port: `now` is handed
/// down, so that tests run on simulated time.
using HostLinkClock = std::chrono::steady_clock;
using HostLinkTime = HostLinkClock::time_point;
using HostLinkDuration = HostLinkClock::duration;
