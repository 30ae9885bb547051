#pragma once

#include <functional>
#include <string>

/// Where the library says what it cannot return: lost devices, refused sends, values left out.
/// It speaks rarely (once a condition, never once a byte).
class HostLinkLog
{
public:
    enum class Level { Debug, Info, Warning, Error };
    using Sink = std::function<void(Level, const std::string& text)>;

    /// Replaces the sink; the default, which an empty one brings back, writes warnings and errors to
    /// stderr. A sink is called by one thread at a time, must not call back into this class, and is not
    /// called any more once it was replaced. Thread-safe.
    static void setSink(Sink sink);

    /// Thread-safe.
    static void write(Level level, const std::string& text);
};
