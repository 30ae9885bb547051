#include "host/Host.h"

#include <algorithm>

#include "platform/hostlink/HostLinkMessage.h"

namespace
{
constexpr std::chrono::milliseconds kGoodbyeTime{100};

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
    for (;;) {
        Event event;
        if (news(&event)) {
            return event;
        }
        if (m_port.core().take(*message)) {
            m_port.core().handled(messageClass(HostLinkMessage::messageId(*message)), message->size(), now());
            m_port.flush(now());
            return Event::Message;
        }
        if (now() >= deadline) {
            return Event::TimedOut;
        }
        wait(deadline);
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
    for (;;) {
        Event event;
        if (news(&event)) {
            return event;
        }
        if (allAcknowledged(m_port.core())) {
            return Event::Acknowledged;
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

bool Host::news(Event* event)
{
    m_port.step(now());
    const HostLinkCore& core = m_port.core();
    if (isInterrupted()) {
        *event = Event::Interrupted;
        return true;
    }
    if (core.refused() || m_port.layer().refused()) {
        *event = Event::Refused;
        return true;
    }
    if (core.sessionNumber() != m_sessionTold) {
        m_sessionTold = core.sessionNumber();
        m_endTold = false;
        *event = Event::NewSession;
        return true;
    }
    if (core.session() == HostLinkCore::Session::Ended && !m_endTold) {
        m_endTold = true;
        *event = Event::Ended;
        return true;
    }
    return false;
}

/// Looked at before each message, so that a talkative module cannot keep a host from ending.
bool Host::isInterrupted()
{
    if (m_interrupt < 0) {
        return false;
    }
    m_descriptors.assign(1, {m_interrupt, POLLIN, 0});
    m_system.wait(m_descriptors, now());
    return (m_descriptors.front().revents & POLLIN) != 0;
}

void Host::wait(HostLinkTime deadline)
{
    m_descriptors.clear();
    m_port.waitOn(m_descriptors);
    if (m_interrupt >= 0 && m_open) {
        m_descriptors.push_back({m_interrupt, POLLIN, 0});
    }
    m_system.wait(m_descriptors, std::min(deadline, m_port.deadline()));
}
