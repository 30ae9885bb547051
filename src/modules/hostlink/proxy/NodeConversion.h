#pragma once

#include "vocabulary/Conversions.h"
#include "vocabulary/States.h"

class HostLinkValueMessage;
class VornValue;

/// Appends a node's value to `message` under `state`. False, and nothing appended, for a kind without a read
/// conversion.
bool convertFromNode(CMValueItemProxyConvert convert, const VornValue& value, State state,
                     HostLinkValueMessage* message);

/// What became of a value that the host sent.
enum class Received {
    Value,      ///< read
    BrokenJson, ///< read, but its text does not parse; the node's value is what parsing left
    Nothing,    ///< no write conversion, no such value or another encoding; there is no node's value
};

/// Reads value `index` of `message` as a node's value. The kinds VolumeMode, HostUpgradeStatus and Region
/// read the message's first value instead, whatever `index` is.
Received convertToNode(CMValueItemProxyConvert convert, const HostLinkValueMessage& message, int index,
                       VornValue* value);
