#include "host/HostAnswers.h"

#include "platform/hostlink/HostLinkUInt16Message.h"
#include "platform/hostlink/HostLinkValueMessage.h"

namespace
{
ByteArray nilForEachState(const ByteArray& message)
{
    const HostLinkUInt16Message request(message);
    HostLinkValueMessage response(MSG_GetStateResponse);
    for (int i = 0; i < request.size(); ++i) {
        response.addValueNil(request.get(i));
    }
    return response.serialize();
}

ByteArray nilForEachValue(const ByteArray& message)
{
    const HostLinkValueMessage request(message);
    HostLinkValueMessage response(MSG_SetStateResponse);
    for (int i = 0; i < request.size(); ++i) {
        response.addValueNil(request.getTag(i));
    }
    return response.serialize();
}

ByteArray refusal(MessageId id)
{
    HostLinkValueMessage response(MSG_ErrorResponse);
    response.addValueNil(id);
    return response.serialize();
}
} // namespace

std::optional<ByteArray> HostAnswers::answer(const ByteArray& message)
{
    const MessageId id = HostLinkMessage::messageId(message);
    if (id == 0 || id == MSG_StateChanged || HostLinkMessage::isResponseMessageId(id)) {
        return std::nullopt;
    }
    switch (id) {
    case MSG_GetState: return nilForEachState(message);
    case MSG_SetState: return nilForEachValue(message);
    case MSG_Subscribe: return subscribe(message);
    case MSG_Unsubscribe: return unsubscribe(message);
    default: return refusal(id);
    }
}

ByteArray HostAnswers::subscribe(const ByteArray& message)
{
    const HostLinkUInt16Message request(message);
    HostLinkUInt16Message response(MSG_SubscribeResponse);
    for (int i = 0; i < request.size(); ++i) {
        if (m_subscribed.insert(request.get(i)).second) {
            response.addValue(request.get(i));
        }
    }
    return response.serialize();
}

ByteArray HostAnswers::unsubscribe(const ByteArray& message)
{
    const HostLinkUInt16Message request(message);
    HostLinkUInt16Message response(MSG_UnsubscribeResponse);
    for (int i = 0; i < request.size(); ++i) {
        if (m_subscribed.erase(request.get(i)) != 0) {
            response.addValue(request.get(i));
        }
    }
    return response.serialize();
}
