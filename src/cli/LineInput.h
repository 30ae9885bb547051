#pragma once

#include <unistd.h>

#include <string>
#include <utility>

/// Lines that are typed, or come in from elsewhere, part by part.
class LineInput
{
public:
    /// Reads what is there, waits where nothing is, and gives each whole line to `execute` without its end,
    /// at the end of all also what lacks one. Returns false at that end.
    template <typename Execute>
    bool read(int descriptor, Execute execute)
    {
        char buffer[4096];
        const ssize_t size = ::read(descriptor, buffer, sizeof buffer);
        if (size <= 0) {
            execute(std::exchange(m_begun, {}));
            return false;
        }
        m_begun.append(buffer, static_cast<std::size_t>(size));
        for (std::size_t end = 0; (end = m_begun.find('\n')) != std::string::npos;) {
            const std::string line = m_begun.substr(0, end);
            m_begun.erase(0, end + 1);
            execute(line);
        }
        return true;
    }

private:
    std::string m_begun; ///< a line whose end has not come yet
};
