#include <algorithm>

#include "FuzzInput.h"
#include "platform/hostlink/ByteArray.h"
#include "platform/hostlink/HostLinkFrame.h"

namespace
{

using Result = HostLinkFrameDecoder::Result;

/// Encodes a frame behind garbage and requires that exactly it comes out again.
void requireRoundTrip(const HostLinkFrame& frame)
{
    HostLinkFrameEncoder encoder;
    encoder.encode(frame, true);
    require(encoder.size() <= frame.size + 2 * (frame.size <= 247 ? 5 : 6));
    require(std::count(encoder.data(), encoder.data() + encoder.size(), 0) == 2);

    ByteArray bytes(600, 0x55);
    bytes.insert(bytes.end(), encoder.data(), encoder.data() + encoder.size());
    HostLinkFrameDecoder decoder;
    const std::uint8_t* at = bytes.data();
    const std::uint8_t* const end = at + bytes.size();
    require(decoder.next(at, end) == Result::Damaged);
    require(decoder.next(at, end) == Result::Frame);
    const HostLinkFrame& found = decoder.frame();
    require(found.control == frame.control && found.sequence == frame.sequence
            && found.acknowledgement == frame.acknowledgement && found.size == frame.size);
    require(std::equal(found.payload, found.payload + found.size, frame.payload));
    require(decoder.next(at, end) == Result::More);
}

/// Reads the bytes in portions of one size; what comes out does not depend on it.
ByteArray digest(const std::uint8_t* data, std::size_t size, std::size_t portion)
{
    HostLinkFrameDecoder decoder;
    ByteArray result;
    for (const std::uint8_t* at = data; at != data + size;) {
        const std::uint8_t* const end = at + std::min<std::size_t>(portion, data + size - at);
        for (Result next = decoder.next(at, end); next != Result::More; next = decoder.next(at, end)) {
            result.push_back(next == Result::Frame ? 1 : 0);
            if (next == Result::Frame) {
                const HostLinkFrame frame = decoder.frame();
                require(frame.size <= HostLinkFrame::kMaxPayload);
                result.insert(result.end(), frame.payload, frame.payload + frame.size);
                requireRoundTrip(frame);
            }
        }
    }
    return result;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const ByteArray whole = digest(data, size, size);
    require(digest(data, size, 1) == whole);
    require(digest(data, size, 7) == whole);

    if (size >= HostLinkFrame::kHeader) {
        HostLinkFrame frame;
        frame.control = data[0];
        frame.sequence = data[1];
        frame.acknowledgement = data[2];
        frame.payload = data + HostLinkFrame::kHeader;
        frame.size = std::min(size - HostLinkFrame::kHeader, HostLinkFrame::kMaxPayload);
        requireRoundTrip(frame);
    }
    return 0;
}
