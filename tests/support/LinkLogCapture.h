#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "platform/hostlink/HostLinkLog.h"

/// Keeps the warnings and errors that the host-link library logs while it lives.
class LinkLogCapture
{
public:
    LinkLogCapture()
    {
        HostLinkLog::setSink([this](HostLinkLog::Level level, const std::string& text) {
            if (level >= HostLinkLog::Level::Warning) {
                const std::lock_guard lock(m_mutex);
                m_lines.push_back(text);
            }
        });
    }
    ~LinkLogCapture() { HostLinkLog::setSink({}); }
    LinkLogCapture(const LinkLogCapture&) = delete;
    LinkLogCapture& operator=(const LinkLogCapture&) = delete;

    std::vector<std::string> lines() const
    {
        const std::lock_guard lock(m_mutex);
        return m_lines;
    }

    /// How many lines hold `part`.
    std::size_t count(const std::string& part) const
    {
        const std::lock_guard lock(m_mutex);
        return std::size_t(std::count_if(m_lines.begin(), m_lines.end(), [&](const std::string& line) {
            return line.find(part) != std::string::npos;
        }));
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_lines;
};
