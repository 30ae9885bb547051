#include "cli/HostRequest.h"

#include <CLI/CLI.hpp>

#include "cli/KeyNames.h"
#include "cli/ValueText.h"
#include "platform/hostlink/HexText.h"
#include "platform/hostlink/HostLinkUInt16Message.h"
#include "vocabulary/Channels.h"

namespace
{
constexpr const char* kStateHelp = "Name with or without STA_, decimal, or 0x and hexadecimal digits";
constexpr const char* kAssignmentHelp = "A state as for get, and its new value";

template <MessageId id>
ByteArray stateList(const HostRequest::Arguments& states)
{
    HostLinkUInt16Message message(id);
    for (const std::string& state : states) {
        message.addValue(parseState(state));
    }
    return message.serialize();
}

template <MessageId id>
ByteArray stateValues(const HostRequest::Arguments& assignments)
{
    HostLinkValueMessage message(id);
    for (const std::string& assignment : assignments) {
        appendAssignment(assignment, &message);
    }
    return message.serialize();
}

ByteArray keys(const HostRequest::Arguments& events)
{
    HostLinkValueMessage message(MSG_InputEvent);
    for (const std::string& event : events) {
        const std::size_t colon = event.rfind(':');
        const std::string key = event.substr(0, colon);
        const std::string action = colon == std::string::npos ? "" : event.substr(colon + 1);
        if (action != "press" && action != "release") {
            throw CLI::ValidationError("CODE:press|release",
                                       "'" + event + "' says neither press nor release");
        }
        const std::optional<std::uint16_t> code = keyCode(key);
        if (!code) {
            throw CLI::ValidationError("CODE:press|release",
                                       "there is no key '" + key + "'" + similarKeys(key));
        }
        message.addValueUint16(action == "press" ? kKeyPressed : 0, *code);
    }
    return message.serialize();
}

ByteArray rawMessage(const HostRequest::Arguments& arguments)
{
    const std::string& text = arguments.front();
    const std::optional<ByteArray> bytes = parseHex(text);
    if (!bytes) {
        throw CLI::ValidationError("HEX", "'" + text + "' is no pairs of hexadecimal digits");
    }
    return *bytes;
}
} // namespace

const HostRequest kGetRequest{
    "get", "STATE", kStateHelp, true, "Ask the module for states", stateList<MSG_GetState>};
const HostRequest kSetRequest{
    "set", "STATE=VALUE", kAssignmentHelp, true, "Set states of the module", stateValues<MSG_SetState>};
const HostRequest kWatchRequest{"watch",
                                "STATE",
                                kStateHelp,
                                true,
                                "Subscribe to states: their values and every change",
                                stateList<MSG_Subscribe>};
const HostRequest kUnwatchRequest{
    "unwatch", "STATE", kStateHelp, true, "Unsubscribe from states", stateList<MSG_Unsubscribe>};
const HostRequest kPushRequest{"push",
                               "STATE=VALUE",
                               kAssignmentHelp,
                               true,
                               "Tell the module that states of the host have changed",
                               stateValues<MSG_StateChanged>};
const HostRequest kKeyRequest{
    "key", "CODE:press|release",     "Name of a Linux key with or without KEY_, or its code",
    true,  "Press and release keys", keys};
const HostRequest kSendRequest{
    "send",    "HEX", "Pairs of hexadecimal digits; '' is the empty message", false, "Send one raw message",
    rawMessage};

const std::vector<const HostRequest*> kHostRequests{
    &kGetRequest, &kSetRequest, &kWatchRequest, &kUnwatchRequest, &kPushRequest, &kKeyRequest, &kSendRequest};
