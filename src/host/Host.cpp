#include "host/Host.h"

#include <algorithm>
#include <utility>

#include "platform/hostlink/HostLinkMessage.h"

namespace
{
constexpr std::chrono::milliseconds kGoodbyeTime{100};

/// With more than this waiting to be sent, input waits too: a full queue would end the session.
constexpr std::size_t kInputPause = 64 * 1024;

bool allAcknowledged(const HostLinkCore& core)
{
    return core.allAcknowledged(MessageClass::State) && core.allAcknowledged(MessageClass::Bulk);
}
} // namespace

Host::Host(std::unique_ptr<HostLinkPhysicalLayer> layer, int interrupt, HostSystem& system)
    : m_system(system), m_interrupt(interrupt), m_port(std::move(layer))
{
    m_port.open(m_system.now());
}

Host::~Host()
{
    goodbye();
}

Host::Event Host::receive(ByteArray* message, HostLinkTime deadline)
{
    giveBack();
    // What has come in already is handed out before more of it is read.
    for (bool due = m_port.deadline() <= now();; due = true) {
        if (due && m_lastLook != deadline) {
            m_lastLook = now() >= deadline ? std::optional(deadline) : std::nullopt;
            m_port.step(now());
        }
        if (const auto obstacle = this->obstacle()) {
            return *obstacle;
        }
        if (mayTake() && m_port.core().take(*message)) {
            m_isTaken = true;
            return Event::Message;
        }
        if (const auto change = sessionChange()) {
            (*change == Event::NewSession ? m_sessionTold : m_endTold) = m_port.core().sessionNumber();
            return *change;
        }
        if (m_lastLook == deadline) {
            m_lastLook.reset();
            return Event::TimedOut;
        }
        if (due && isReadable(inputNow())) {
            return Event::Input;
        }
        wait(deadline, inputNow());
    }
}

bool Host::send(const ByteArray& message)
{
    const bool taken = m_port.core().send(message, now());
    m_port.flush(now());
    return taken;
}

Host::Event Host::waitAcknowledged(HostLinkTime deadline)
{
    giveBack();
    for (;;) {
        m_port.step(now());
        if (const auto change = sessionChange()) {
            return *change;
        }
        if (allAcknowledged(m_port.core())) {
            return Event::Acknowledged;
        }
        if (const auto obstacle = this->obstacle()) {
            return *obstacle;
        }
        if (now() >= deadline) {
            return Event::TimedOut;
        }
        wait(deadline);
    }
}

void Host::goodbye()
{
    if (!m_open) {
        return;
    }
    m_open = false;
    m_port.core().goodbye(now());
    const HostLinkTime deadline = now() + kGoodbyeTime;
    m_port.step(now());
    while (m_port.sending() && now() < deadline) {
        wait(deadline);
        m_port.step(now());
    }
    m_port.close();
}

/// What keeps the caller from going on, if anything does.
std::optional<Host::Event> Host::obstacle()
{
    if (isInterrupted()) {
        return Event::Interrupted;
    }
    if (m_port.core().refused() || m_port.layer().refused()) {
        return Event::Refused;
    }
    return std::nullopt;
}

/// What the caller was not told yet about sessions.
std::optional<Host::Event> Host::sessionChange() const
{
    const HostLinkCore& core = m_port.core();
    if (core.sessionNumber() != m_sessionTold) {
        return Event::NewSession;
    }
    if (core.session() == HostLinkCore::Session::Ended && core.sessionNumber() != m_endTold) {
        return Event::Ended;
    }
    return std::nullopt;
}

/// True while the next message is of the session that the caller knows. Before it is told of a new one
/// it gets what the former one left, which is what keeps the link from sending.
bool Host::mayTake() const
{
    const HostLinkCore& core = m_port.core();
    return sessionChange() != Event::NewSession || core.session() != HostLinkCore::Session::Established
           || !core.writable(MessageClass::State, 1);
}

/// The message handed out last has been dealt with: answers to it were sent by now, if to anybody.
void Host::giveBack()
{
    if (std::exchange(m_isTaken, false)) {
        m_port.core().handled();
    }
}

/// Looked at before each message, so that a talkative module cannot keep a host from ending.
bool Host::isReadable(int descriptor)
{
    if (descriptor < 0) {
        return false;
    }
    m_descriptors.assign(1, {descriptor, POLLIN, 0});
    m_system.wait(m_descriptors, now());
    return m_descriptors.front().revents != 0;
}

/// The input descriptor while input is welcome.
int Host::inputNow() const
{
    const HostLinkCore& core = m_port.core();
    const std::size_t queued = core.queuedBytes(MessageClass::State) + core.queuedBytes(MessageClass::Bulk);
    return queued < kInputPause ? m_input : -1;
}

void Host::wait(HostLinkTime deadline, int input)
{
    m_descriptors.clear();
    m_port.waitOn(m_descriptors);
    for (const int descriptor : {m_interrupt, input}) {
        if (descriptor >= 0 && m_open) {
            m_descriptors.push_back({descriptor, POLLIN, 0});
        }
    }
    m_system.wait(m_descriptors, std::min(deadline, m_port.deadline()));
}
