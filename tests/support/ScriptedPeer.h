#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <optional>
#include <utility>
#include <vector>

#include "platform/hostlink/HostLinkCore.h"
#include "platform/hostlink/HostLinkFrame.h"
#include "platform/hostlink/HostLinkHello.h"

/// The control bits of a message that one frame holds.
inline constexpr std::uint8_t kWhole =
    HostLinkControl::Sequenced | HostLinkControl::First | HostLinkControl::Last;

/// Reads frames back from what an end put on the line.
inline std::optional<HostLinkFrame> decoded(HostLinkFrameDecoder& decoder, const ByteArray& bytes)
{
    const std::uint8_t* at = bytes.data();
    if (decoder.next(at, bytes.data() + bytes.size()) != HostLinkFrameDecoder::Result::Frame) {
        return std::nullopt;
    }
    return decoder.frame();
}

inline ByteArray encoded(const HostLinkFrame& frame)
{
    HostLinkFrameEncoder encoder;
    encoder.encode(frame, true);
    return ByteArray(encoder.data(), encoder.data() + encoder.size());
}

/// One core against a peer that the test plays by hand.
class ScriptedPeer
{
public:
    explicit ScriptedPeer(HostLinkCore::Settings settings = {})
        : core(withInstances(std::move(settings), this))
    {
        core.lineUp(now);
    }

    void receive(const ByteArray& bytes) { core.receive(bytes.data(), bytes.size(), now); }

    void receive(std::uint8_t control, std::uint8_t sequence, std::uint8_t acknowledgement,
                 const ByteArray& payload = {})
    {
        HostLinkFrame frame;
        frame.control = control;
        frame.sequence = sequence;
        frame.acknowledgement = acknowledgement;
        frame.payload = payload.data();
        frame.size = payload.size();
        receive(encoded(frame));
    }

    void receive(const HostLinkHello& hello)
    {
        const HostLinkHello::Payload payload = hello.payload();
        receive(HostLinkControl::Hello, 0, 0, ByteArray(payload.begin(), payload.end()));
    }

    /// A hello of a peer that begins a session.
    HostLinkHello hello(std::uint64_t instance = 7) const
    {
        HostLinkHello hello;
        hello.settled = true;
        hello.instance = instance;
        hello.peer = instances;
        hello.credit[0] = hello.credit[1] = 65600;
        hello.largest[0] = hello.largest[1] = 65600;
        return hello;
    }

    /// Everything that the core has to say now.
    std::vector<HostLinkFrame> transmitted()
    {
        std::vector<HostLinkFrame> frames;
        for (;;) {
            const HostLinkCore::Bytes bytes = core.transmit(now);
            if (bytes.size == 0) {
                return frames;
            }
            HostLinkFrameDecoder decoder;
            const auto frame = decoded(decoder, ByteArray(bytes.data, bytes.data + bytes.size));
            EXPECT_TRUE(frame);
            payloads.emplace_back(frame->payload, frame->payload + frame->size);
            frames.push_back(*frame);
            frames.back().payload = payloads.back().data();
        }
    }

    void establish()
    {
        transmitted();
        receive(hello());
        transmitted();
        ASSERT_EQ(core.session(), HostLinkCore::Session::Established);
    }

    std::uint64_t instances = 40;
    HostLinkTime now{std::chrono::hours(1)};
    std::deque<ByteArray> payloads;
    HostLinkCore core;

private:
    static HostLinkCore::Settings withInstances(HostLinkCore::Settings settings, ScriptedPeer* self)
    {
        settings.drawInstance = [self] { return ++self->instances; };
        return settings;
    }
};
