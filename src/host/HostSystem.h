#pragma once

#include <poll.h>

#include <vector>

#include "platform/hostlink/HostLinkTime.h"

/// The clock of a host and its way to wait, so that tests run it on simulated time.
class HostSystem
{
public:
    virtual ~HostSystem() = default;

    virtual HostLinkTime now() = 0;

    /// Waits until a descriptor is ready (its revents tell) or `until` has come; may return earlier.
    virtual void wait(std::vector<pollfd>& descriptors, HostLinkTime until) = 0;

    /// The monotonic clock and ppoll.
    static HostSystem& real();
};
