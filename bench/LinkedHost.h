#pragma once

#include <string>

#include "host/Host.h"
#include "host/HostSession.h"
#include "platform/hostlink/HostLinkUInt16Message.h"
#include "vocabulary/States.h"

// The host's end of a line that is a Unix socket, and the states of the ten values.

constexpr State kTenStates[] = {
    STA_Mute,       STA_MicMute,   STA_DisplayBrightness, STA_MqaState, STA_MaxAmpVolume,
    STA_VolumeMode, STA_IpAddress, STA_DiracActiveFilter, STA_PlayTime, STA_DeviceName};

/// The module's end listens.
inline std::unique_ptr<HostLinkPhysicalLayer> lineOn(const std::string& socket, bool listens)
{
    HostLinkPhysicalLayer::Properties properties;
    properties.setString(HostLinkPhysicalLayer::Device, socket);
    properties.setInt(HostLinkPhysicalLayer::Listen, listens ? 1 : 0);
    return HostLinkPhysicalLayer::create("unix", properties);
}

/// A message of numbers about some states.
template <typename States>
ByteArray messageAbout(MessageId id, const States& states)
{
    HostLinkUInt16Message message(id);
    for (const State state : states) {
        message.addValue(state);
    }
    return message.serialize();
}

struct LinkedHost {
    Host host;
    HostSession session{host, std::chrono::seconds(5)};

    explicit LinkedHost(const std::string& socket) : host(lineOn(socket, false)) {}
};
