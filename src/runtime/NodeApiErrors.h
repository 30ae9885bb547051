#pragma once

#include "platform/sdk/CMError.h"

/// Error code of the node API for a node's refusal: -32001 (CMError::NoSuchNode) and down.
constexpr int nodeApiErrorCode(CMError::Code code)
{
    return -32000 - static_cast<int>(code);
}
