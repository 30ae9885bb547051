#pragma once

#include <string>

#include "platform/hostlink/DeviceCalls.h"
#include "platform/hostlink/HostLinkPhysicalLayer.h"
#include "platform/hostlink/HostLinkTime.h"

/// How the bytes look on a serial line: 8 data bits, no flow control, and what the properties say.
struct SerialSettings {
    enum class Parity { None, Even, Odd };

    int bitRate = 115200; ///< bit/s
    Parity parity = Parity::None;
    int stopBits = 1;

    /// What the properties BitRate, Parity and StopBits say. Otherwise *problem tells what is wrong with
    /// them.
    static SerialSettings from(const HostLinkPhysicalLayer::Properties& properties, std::string* problem);

    /// Makes an open terminal a raw line with these settings. Returns why it cannot be done, or an empty
    /// text. A device without parity, such as a pseudo-terminal, goes without: *remark says so then.
    std::string apply(const DeviceNode& device, std::string* remark) const;

    /// How long so many bytes take.
    HostLinkDuration duration(std::size_t bytes) const;
};
