#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

/// Keeps a flood of lines out of a log, but not what the flood was about: in each interval the first lines of
/// a kind pass, and the rest are counted. Lines are of one kind when they differ in nothing but their
/// numbers. An interval begins with a line and all kinds share it. It has no clock: the time is handed in.
/// Not thread-safe.
class LogLimiter
{
public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr std::chrono::seconds kInterval{10};
    static constexpr int kMostOfAKind = 10; ///< lines of a kind that pass in an interval
    static constexpr int kMost = 100;       ///< lines of all kinds together that pass in an interval

    struct Line {
        std::string logger;
        int level = 0;
        std::string text;
    };

    /// What an interval has held back.
    struct Held {
        struct Kind {
            Line last;
            unsigned long count = 0;
        };
        std::vector<Kind> kinds;
        unsigned long others = 0; ///< lines of kinds of which none passed
    };

    /// Whether the line may be printed; otherwise it is counted. What an interval that is over has held back
    /// is to be taken before.
    bool passes(const Line& line, Time now);

    /// True while lines are held back.
    bool holds() const { return m_holds; }

    /// Takes what an interval that is over by now has held back.
    Held takeEnded(Time now);

    /// Takes what is held back so far, and begins anew.
    Held takeAll();

private:
    using Kind = std::tuple<std::string, int, std::string>;
    struct Lines {
        int passed = 0;
        unsigned long held = 0;
        std::string last; ///< of those held back
    };

    bool hold(Lines& lines, const Line& line);

    std::optional<Time> m_end; ///< of the interval, while there is one
    std::map<Kind, Lines> m_kinds;
    int m_passed = 0;
    unsigned long m_others = 0;
    bool m_holds = false;
};
