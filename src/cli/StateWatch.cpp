#include "cli/StateWatch.h"

#include <algorithm>
#include <iostream>

#include "cli/Output.h"
#include "cli/ValueText.h"

StateWatch::~StateWatch()
{
    HostLinkUInt16Message message(MSG_Unsubscribe);
    for (int i = 0; i < m_states.size(); ++i) {
        message.addValue(m_states.get(i));
    }
    try {
        m_session.ignoreInterrupts(); // the one that ended the watch is still there
        m_session.send(message.serialize());
        m_session.waitAcknowledged();
    } catch (const HostError&) { // then the module's subscriptions are not ours to end
    }
}

void StateWatch::subscribe()
{
    m_session.send(m_states.serialize());
    m_session.send(HostSession::emptyRequest());
    m_current = true;
    m_replyDeadline = m_session.now() + m_session.timeout();
}

ExitStatus StateWatch::run(const Limits& limits)
{
    HostLinkTime end = HostLinkTime::max();
    unsigned events = 0;
    const auto ended = [&] { return events < limits.events.value_or(0) ? NoLink : Done; };
    subscribe();
    ByteArray message;
    for (;;) {
        switch (m_session.receive(&message, m_current ? std::min(end, m_replyDeadline) : end)) {
        case Host::Event::Interrupted: return ended();
        case Host::Event::TimedOut:
            if (m_session.now() >= end) {
                return ended();
            }
            throw HostError(HostError::Cause::NoReply, "the module does not answer the subscription");
        case Host::Event::NewSession: subscribe(); break;
        case Host::Event::Ended:
            m_current = false;
            std::cerr << "hostlink: the module ended the session; waiting for the next one" << std::endl;
            break;
        case Host::Event::Message:
            if (m_current && HostSession::isEmptyReply(message)) {
                m_current = false;
                if (limits.period && end == HostLinkTime::max()) {
                    end = m_session.now() + *limits.period;
                }
            } else if (putEvent(message) && !m_current && ++events == limits.events) {
                return Done;
            }
            break;
        default: break;
        }
    }
}

bool StateWatch::isWatched(std::uint16_t state) const
{
    for (int i = 0; i < m_states.size(); ++i) {
        if (m_states.get(i) == state) {
            return true;
        }
    }
    return false;
}

/// Prints the watched states of a state-changed event: an earlier host may have left others subscribed.
/// Returns whether there were any.
bool StateWatch::putEvent(const ByteArray& message) const
{
    if (HostLinkMessage::messageId(message) != MSG_StateChanged) {
        return false;
    }
    const HostLinkValueMessage event(message);
    bool any = false;
    for (int i = 0; i < event.size(); ++i) {
        if (isWatched(event.getTag(i))) {
            putLine(m_json ? valueJson(event, i) : valueLine(event, i));
            any = true;
        }
    }
    return any;
}
