#include "platform/hostlink/Retry.h"

#include <algorithm>

#include "platform/hostlink/HostLinkLog.h"

bool Retry::take(HostLinkTime now)
{
    if (now < m_at) {
        return false;
    }
    m_at = HostLinkTime::max();
    return true;
}

void Retry::backOff(HostLinkTime now, HostLinkDuration first, HostLinkDuration longest)
{
    m_pause = std::clamp(m_pause * 2, first, longest);
    m_at = now + m_pause;
}

void Retry::say(const std::string& problem)
{
    if (m_said.insert(problem).second) {
        HostLinkLog::write(HostLinkLog::Level::Warning, m_name + ": " + problem);
    }
}
