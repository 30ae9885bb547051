#include "host/HostSession.h"

#include <algorithm>

#include "platform/hostlink/HostLinkUInt16Message.h"
#include "platform/hostlink/HostLinkValueMessage.h"

namespace
{
constexpr MessageId responseId(MessageId id)
{
    return MessageId(id | 0x8000);
}

bool isRefusalOf(MessageId request, const ByteArray& message)
{
    if (HostLinkMessage::messageId(message) != MSG_ErrorResponse) {
        return false;
    }
    const HostLinkValueMessage refusal(message);
    return refusal.size() > 0 && refusal.getTag(0) == request;
}

HostError interrupted()
{
    return {HostError::Cause::Interrupted, "interrupted"};
}

std::string milliseconds(HostLinkDuration duration)
{
    return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(duration).count()) + " ms";
}
} // namespace

ByteArray HostSession::emptyRequest()
{
    return HostLinkUInt16Message(MSG_GetState).serialize();
}

bool HostSession::isEmptyReply(const ByteArray& message)
{
    return HostLinkMessage::messageId(message) == MSG_GetStateResponse
           && HostLinkValueMessage(message).size() == 0;
}

void HostSession::open()
{
    const HostLinkTime deadline = m_host.now() + m_timeout;
    ByteArray message;
    for (;;) {
        const Host::Event event = receive(&message, deadline);
        if (event == Host::Event::Interrupted) {
            throw interrupted();
        }
        if (event == Host::Event::TimedOut) {
            throw noSession();
        }
        if (event == Host::Event::NewSession) {
            return exchangeOpening(deadline);
        }
    }
}

void HostSession::exchangeOpening(HostLinkTime deadline)
{
    send(emptyRequest());
    ByteArray message;
    for (;;) {
        switch (receive(&message, deadline)) {
        case Host::Event::Interrupted: throw interrupted();
        case Host::Event::TimedOut:
            throw HostError(HostError::Cause::NoReply,
                            "the module did not answer within " + milliseconds(m_timeout));
        case Host::Event::NewSession: send(emptyRequest()); break;
        case Host::Event::Message:
            if (isEmptyReply(message)) {
                return;
            }
            break;
        default: break;
        }
    }
}

ByteArray HostSession::request(const ByteArray& request, Repeat repeat)
{
    const HostLinkTime deadline = m_host.now() + m_timeout;
    const MessageId id = HostLinkMessage::messageId(request);
    send(request);
    ByteArray message;
    for (;;) {
        switch (receive(&message, deadline)) {
        case Host::Event::Interrupted: throw interrupted();
        case Host::Event::TimedOut:
            throw HostError(HostError::Cause::NoReply, "no reply within " + milliseconds(m_timeout));
        case Host::Event::NewSession:
            if (repeat == Repeat::Never) {
                throw HostError(
                    HostError::Cause::SessionLost,
                    "a new session began before the reply; whether the request took effect is unknown");
            }
            repeat = Repeat::Never;
            exchangeOpening(deadline);
            send(request);
            break;
        case Host::Event::Ended:
            if (repeat == Repeat::Never) {
                throw HostError(
                    HostError::Cause::SessionLost,
                    "the session ended before the reply; whether the request took effect is unknown");
            }
            break;
        case Host::Event::Message:
            if (HostLinkMessage::messageId(message) == responseId(id)) {
                return message;
            }
            if (isRefusalOf(id, message)) {
                throw HostError(HostError::Cause::Refused, "the module does not take this request");
            }
            break;
        default: break;
        }
    }
}

bool HostSession::send(const ByteArray& message)
{
    if (trySend(message)) {
        return true;
    }
    if (m_host.isInSession()) {
        throw HostError(HostError::Cause::TooLong, "a message of " + std::to_string(message.size())
                                                       + " bytes is longer than the link carries");
    }
    return false;
}

bool HostSession::trySend(const ByteArray& message)
{
    const bool sent = m_host.send(message);
    if (sent) {
        m_waitedInVain = false;
        m_observer(Side::Host, message);
    }
    return sent;
}

Host::Event HostSession::receive(ByteArray* message, HostLinkTime deadline)
{
    Host::Event event{};
    do {
        sendOfChannels();
        event = m_host.receive(message, std::min(deadline, channelDeadline()));
    } while (event == Host::Event::TimedOut && now() < deadline);
    switch (event) {
    case Host::Event::Refused:
        throw HostError(HostError::Cause::Occupied, "the link is occupied by another host");
    case Host::Event::NewSession:
        m_answers.reset();
        for (HostChannel* channel : m_channels) {
            channel->sessionBegan();
        }
        break;
    case Host::Event::Message:
        m_observer(Side::Module, *message);
        if (takenByChannel(*message)) {
            sendOfChannels();
            break;
        }
        for (const ByteArray& answer : m_answers.answers(*message)) {
            trySend(answer);
        }
        break;
    default: break;
    }
    return event;
}

bool HostSession::takenByChannel(const ByteArray& message)
{
    for (HostChannel* channel : m_channels) {
        if (channel->take(message, now())) {
            return true;
        }
    }
    return false;
}

void HostSession::sendOfChannels()
{
    for (HostChannel* channel : m_channels) {
        while (const std::optional<ByteArray> message = channel->next(now())) {
            trySend(*message);
        }
    }
}

HostLinkTime HostSession::channelDeadline() const
{
    HostLinkTime earliest = HostLinkTime::max();
    for (const HostChannel* channel : m_channels) {
        earliest = std::min(earliest, channel->deadline());
    }
    return earliest;
}

bool HostSession::waitAcknowledged()
{
    if (!m_waitedInVain) {
        m_waitedInVain = m_host.waitAcknowledged(m_host.now() + m_timeout) != Host::Event::Acknowledged;
    }
    return !m_waitedInVain;
}

HostError HostSession::noSession() const
{
    const std::string reason =
        m_host.isLineUp() ? "the module began no session within " : "no module was there within ";
    return HostError(HostError::Cause::NoSession, reason + milliseconds(m_timeout));
}
