#pragma once

#include <chrono>
#include <cstdint>
#include <string>

/// A line on a terminal that is written over and over. Without a terminal it shows nothing.
class ProgressLine
{
public:
    /// Shows on standard error where that is a terminal.
    ProgressLine();
    ~ProgressLine() { clear(); }

    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    bool isShown() const { return m_shown; }

    /// At most 20 times a second; the others are left out.
    void show(const std::string& text);

    /// Makes the line empty, for other output.
    void clear();

    /// "[####------]  40 %" with 30 places; all of it for a whole of 0.
    static std::string bar(std::uint64_t part, std::uint64_t whole);

private:
    const bool m_shown;
    bool m_dirty = false;
    std::chrono::steady_clock::time_point m_next{};
};
