#pragma once

#include <set>
#include <string>
#include <utility>

#include "platform/hostlink/HostLinkTime.h"

/// When a layer tries again what failed, and what it has said about that.
class Retry
{
public:
    /// `name` is what log lines call the line.
    explicit Retry(std::string name) : m_name(std::move(name)) {}

    /// When the next attempt is due; max() for none.
    HostLinkTime at() const { return m_at; }
    void schedule(HostLinkTime at) { m_at = at; }
    void cancel() { m_at = HostLinkTime::max(); }

    /// True when an attempt is due, which is then taken for made.
    bool take(HostLinkTime now);

    /// An attempt failed: the next one comes after a pause twice as long as the last one, from `first`
    /// up to `longest`.
    void backOff(HostLinkTime now, HostLinkDuration first, HostLinkDuration longest);

    /// The next pause is the first one again.
    void resetPause() { m_pause = {}; }

    /// Logs a warning, unless it was said since the last forget().
    void say(const std::string& problem);
    void forget() { m_said.clear(); }

    const std::string& name() const { return m_name; }

private:
    const std::string m_name;
    HostLinkTime m_at = HostLinkTime::max();
    HostLinkDuration m_pause{};
    std::set<std::string> m_said;
};
