#include "host/HostAnswers.h"

namespace
{
/// A message that may be left out when it says nothing.
void appendEvent(const HostLinkValueMessage& event, std::vector<ByteArray>* messages)
{
    if (event.size() > 0) {
        messages->push_back(event.serialize());
    }
}

ByteArray refusal(MessageId id)
{
    HostLinkValueMessage response(MSG_ErrorResponse);
    response.addValueNil(id);
    return response.serialize();
}
} // namespace

void HostAnswers::own(const HostLinkValueMessage& values)
{
    for (int i = 0; i < values.size(); ++i) {
        HostLinkValueMessage value(MSG_StateChanged);
        value.addValueOf(values, i);
        m_owned.insert_or_assign(values.getTag(i), std::move(value));
    }
}

void HostAnswers::addOwned(HostLinkValueMessage* message) const
{
    for (const auto& [state, value] : m_owned) {
        message->addValueOf(value, 0);
    }
}

std::vector<ByteArray> HostAnswers::answers(const ByteArray& message)
{
    const MessageId id = HostLinkMessage::messageId(message);
    if (id == 0 || id == MSG_StateChanged || HostLinkMessage::isResponseMessageId(id)) {
        return {};
    }
    switch (id) {
    case MSG_GetState: return {getStates(HostLinkUInt16Message(message))};
    case MSG_SetState: return setStates(HostLinkValueMessage(message));
    case MSG_Subscribe: return subscribe(HostLinkUInt16Message(message));
    case MSG_Unsubscribe: return {unsubscribe(HostLinkUInt16Message(message))};
    default: return {refusal(id)};
    }
}

ByteArray HostAnswers::getStates(const HostLinkUInt16Message& request) const
{
    HostLinkValueMessage response(MSG_GetStateResponse);
    for (int i = 0; i < request.size() && !response.isBeyondAnyLink(); ++i) {
        const auto owned = m_owned.find(request.get(i));
        if (owned == m_owned.end()) {
            response.addValueNil(request.get(i));
        } else {
            response.addValueOf(owned->second, 0);
        }
    }
    return response.serialize();
}

std::vector<ByteArray> HostAnswers::setStates(const HostLinkValueMessage& request)
{
    HostLinkValueMessage response(MSG_SetStateResponse);
    HostLinkValueMessage event(MSG_StateChanged);
    for (int i = 0; i < request.size(); ++i) {
        const std::uint16_t state = request.getTag(i);
        const auto owned = m_owned.find(state);
        if (owned == m_owned.end()) {
            response.addValueNil(state);
            continue;
        }
        owned->second = HostLinkValueMessage(MSG_StateChanged);
        owned->second.addValueOf(request, i);
        response.addValueUint8(state, 1);
        if (m_subscribed.count(state) != 0) {
            event.addValueOf(request, i);
        }
    }
    std::vector<ByteArray> messages{response.serialize()};
    appendEvent(event, &messages);
    return messages;
}

std::vector<ByteArray> HostAnswers::subscribe(const HostLinkUInt16Message& request)
{
    HostLinkUInt16Message response(MSG_SubscribeResponse);
    HostLinkValueMessage event(MSG_StateChanged);
    for (int i = 0; i < request.size(); ++i) {
        const std::uint16_t state = request.get(i);
        if (m_subscribed.insert(state).second) {
            response.addValue(state);
        }
        const auto owned = m_owned.find(state);
        if (owned != m_owned.end() && !event.isBeyondAnyLink()) {
            event.addValueOf(owned->second, 0);
        }
    }
    std::vector<ByteArray> messages{response.serialize()};
    appendEvent(event, &messages);
    return messages;
}

ByteArray HostAnswers::unsubscribe(const HostLinkUInt16Message& request)
{
    HostLinkUInt16Message response(MSG_UnsubscribeResponse);
    for (int i = 0; i < request.size(); ++i) {
        if (m_subscribed.erase(request.get(i)) != 0) {
            response.addValue(request.get(i));
        }
    }
    return response.serialize();
}
