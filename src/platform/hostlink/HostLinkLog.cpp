#include "platform/hostlink/HostLinkLog.h"

#include <cstdio>
#include <mutex>
#include <utility>

namespace
{

void writeToStderr(HostLinkLog::Level level, const std::string& text)
{
    if (level >= HostLinkLog::Level::Warning) {
        std::fprintf(stderr, "hostlink: %s\n", text.c_str());
    }
}

struct Current {
    std::mutex mutex;
    HostLinkLog::Sink sink = writeToStderr;
};

/// Never destroyed: threads may still have something to say while the process ends.
Current& current()
{
    static Current& instance = *new Current;
    return instance;
}

} // namespace

void HostLinkLog::setSink(Sink sink)
{
    if (!sink) {
        sink = writeToStderr;
    }
    const std::lock_guard lock(current().mutex);
    std::swap(current().sink, sink);
}

void HostLinkLog::write(Level level, const std::string& text)
{
    const std::lock_guard lock(current().mutex);
    current().sink(level, text);
}
