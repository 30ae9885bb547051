#include "platform/hostlink/HostLinkHello.h"

#include "platform/hostlink/BigEndian.h"

HostLinkHello::Payload HostLinkHello::payload() const
{
    Payload bytes;
    bytes[0] = kVersion;
    bytes[1] = settled ? kSettled : 0;
    writeBigEndian(&bytes[2], instance);
    writeBigEndian(&bytes[10], peer);
    writeBigEndian(&bytes[18], received);
    for (std::size_t c = 0; c < 2; ++c) {
        writeBigEndian(&bytes[22 + 4 * c], credit[c]);
        writeBigEndian(&bytes[30 + 4 * c], largest[c]);
    }
    return bytes;
}

std::uint8_t HostLinkHello::version(const HostLinkFrame& frame)
{
    return frame.size > 0 ? frame.payload[0] : 0;
}

bool HostLinkHello::read(const HostLinkFrame& frame)
{
    if (frame.size < kSize || version(frame) != kVersion) {
        return false;
    }
    const std::uint8_t* bytes = frame.payload;
    settled = (bytes[1] & kSettled) != 0;
    instance = readBigEndian<std::uint64_t>(bytes + 2);
    peer = readBigEndian<std::uint64_t>(bytes + 10);
    received = readBigEndian<std::uint32_t>(bytes + 18);
    for (std::size_t c = 0; c < 2; ++c) {
        credit[c] = readBigEndian<std::uint32_t>(bytes + 22 + 4 * c);
        largest[c] = readBigEndian<std::uint32_t>(bytes + 30 + 4 * c);
    }
    return instance != 0;
}
