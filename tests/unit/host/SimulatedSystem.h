#pragma once

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>

#include "host/HostSystem.h"

/// Simulated time: whenever a host waits, the others on its link are stepped and a millisecond passes.
class SimulatedSystem : public HostSystem
{
public:
    HostLinkTime now() override { return m_now; }

    void wait(std::vector<pollfd>& descriptors, HostLinkTime until) override
    {
        if (until > m_now) {
            onWait();
            m_now = std::min<HostLinkTime>(until, m_now + std::chrono::milliseconds(1));
        }
        ::poll(descriptors.data(), descriptors.size(), 0);
    }

    std::function<void()> onWait = [] {};

private:
    HostLinkTime m_now = HostLinkTime() + std::chrono::hours(1);
};

/// A directory for the socket of one test.
class SocketDirectory
{
public:
    SocketDirectory()
    {
        char pattern[] = "/tmp/host-test-XXXXXX";
        m_path = mkdtemp(pattern);
    }
    ~SocketDirectory() { std::filesystem::remove_all(m_path); }

    std::string socket() const { return m_path + "/link.socket"; }

private:
    std::string m_path;
};
