#include "host/HostSystem.h"

#include <algorithm>
#include <chrono>
#include <ctime>

namespace
{
constexpr std::chrono::hours kLongestWait{1}; ///< keeps an endless deadline within a timespec

class RealSystem : public HostSystem
{
public:
    HostLinkTime now() override { return HostLinkClock::now(); }

    void wait(std::vector<pollfd>& descriptors, HostLinkTime until) override
    {
        const HostLinkTime start = now();
        const HostLinkDuration left = until <= start
                                          ? HostLinkDuration::zero()
                                          : std::min<HostLinkDuration>(until - start, kLongestWait);
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        const std::chrono::nanoseconds rest = left - seconds;
        const timespec timeout{static_cast<time_t>(seconds.count()), static_cast<long>(rest.count())};
        if (ppoll(descriptors.data(), descriptors.size(), &timeout, nullptr) < 0) {
            for (pollfd& descriptor : descriptors) {
                descriptor.revents = 0;
            }
        }
    }
};
} // namespace

HostSystem& HostSystem::real()
{
    static RealSystem system;
    return system;
}
