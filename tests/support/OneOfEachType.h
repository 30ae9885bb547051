#pragma once

#include <string_view>

#include "platform/hostlink/HostLinkValueMessage.h"
#include "vocabulary/States.h"

/// Appends nil, then 9 in each type of number, those without a sign first, then this text, then a byte.
inline void addOneOfEachType(State state, std::string_view text, HostLinkValueMessage* message)
{
    message->addValueNil(state);
    message->addValueUint8(state, 9);
    message->addValueUint16(state, 9);
    message->addValueUint32(state, 9);
    message->addValueInt8(state, 9);
    message->addValueInt32(state, 9);
    message->addValueInt64(state, 9);
    message->addValueString(state, text);
    message->addValueBin16(state, {9});
}
