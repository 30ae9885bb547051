#include "platform/hostlink/HostLinkMessage.h"

MessageId HostLinkMessage::messageId(const ByteArray& bytes)
{
    return bytes.size() < 2 ? MessageId(0) : MessageId(bytes[0] << 8 | bytes[1]);
}

bool HostLinkMessage::isResponseMessageId(MessageId id)
{
    return (id & 0x8000) != 0;
}
