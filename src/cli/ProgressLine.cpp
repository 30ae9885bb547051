#include "cli/ProgressLine.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>

#include "platform/hostlink/HexText.h"

namespace
{
constexpr std::chrono::milliseconds kInterval{50};
constexpr std::uint64_t kPlaces = 30;

constexpr const char* kRestOfLineEmpty = "\033[K";
} // namespace

ProgressLine::ProgressLine() : m_shown(::isatty(STDERR_FILENO) == 1) {}

void ProgressLine::show(const std::string& text)
{
    const auto now = std::chrono::steady_clock::now();
    if (!m_shown || now < m_next) {
        return;
    }
    m_next = now + kInterval;
    m_dirty = true;
    std::cerr << '\r' << withoutControls(text) << kRestOfLineEmpty << std::flush;
}

void ProgressLine::clear()
{
    if (m_dirty) {
        std::cerr << '\r' << kRestOfLineEmpty << std::flush;
        m_dirty = false;
    }
}

std::string ProgressLine::bar(std::uint64_t part, std::uint64_t whole)
{
    const double share =
        whole == 0 ? 1 : std::min(1.0, static_cast<double>(part) / static_cast<double>(whole));
    const auto filled = static_cast<std::size_t>(share * kPlaces);
    const std::string percent = std::to_string(static_cast<int>(share * 100));
    return '[' + std::string(filled, '#') + std::string(kPlaces - filled, '-') + "] "
           + std::string(3 - percent.size(), ' ') + percent + " %";
}
