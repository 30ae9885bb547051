#pragma once

#include <string>
#include <vector>

#include "platform/hostlink/ByteArray.h"

/// A kind of message that users let a host send: as a command of its own, or typed at an attended host.
struct HostRequest {
    using Arguments = std::vector<std::string>;

    const char* name;
    const char* argument;     ///< as the help calls it
    const char* argumentHelp; ///< what it may be
    bool repeated;            ///< takes one or more arguments, else exactly one
    const char* description;

    /// The whole message. Throws CLI::ValidationError when the arguments make none.
    ByteArray (*message)(const Arguments& arguments);
};

extern const HostRequest kGetRequest;     ///< MSG_GetState
extern const HostRequest kSetRequest;     ///< MSG_SetState
extern const HostRequest kWatchRequest;   ///< MSG_Subscribe
extern const HostRequest kUnwatchRequest; ///< MSG_Unsubscribe
extern const HostRequest kPushRequest;    ///< MSG_StateChanged
extern const HostRequest kSendRequest;    ///< any message, also the empty one, which the link does not carry

/// All of them.
extern const std::vector<const HostRequest*> kHostRequests;
