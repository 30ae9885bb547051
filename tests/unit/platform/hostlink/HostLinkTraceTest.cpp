#include "platform/hostlink/HostLinkTrace.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/hostlink/HostLinkUInt16Message.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "support/LinkMessages.h"
#include "support/ScriptedPeer.h"
#include "support/SimulatedLink.h"
#include "vocabulary/States.h"

using namespace std::chrono_literals;

namespace
{

/// Keeps what is traced while it lives.
class Trace
{
public:
    Trace()
    {
        HostLinkTrace::setSink([this](const std::string& line) { m_lines.push_back(line); });
    }
    ~Trace() { HostLinkTrace::setSink({}); }

    /// The lines since the last call.
    std::vector<std::string> lines() { return std::exchange(m_lines, {}); }

    bool has(const std::string& line)
    {
        return std::find(m_lines.begin(), m_lines.end(), line) != m_lines.end();
    }

private:
    std::vector<std::string> m_lines;
};

using Lines = std::vector<std::string>;

TEST(HostLinkTrace, IsOffUntilSomebodyListens)
{
    EXPECT_FALSE(HostLinkTrace::isOn());
    {
        Trace trace;
        EXPECT_TRUE(HostLinkTrace::isOn());
        HostLinkTrace::line("up");
        EXPECT_EQ(trace.lines(), Lines{"- line up"});
    }
    EXPECT_FALSE(HostLinkTrace::isOn());
    HostLinkTrace::line("up"); // to nobody
}

TEST(HostLinkTrace, TellsAGreetingFrameByFrame)
{
    Trace trace;
    ScriptedPeer peer;
    EXPECT_EQ(trace.lines(), Lines{"- line up"});
    peer.transmitted();
    EXPECT_EQ(trace.lines(),
              Lines{"> frame hello instance=0000000000000029 knows=nobody received=0 credit=0+0"});
    peer.receive(peer.hello());
    EXPECT_EQ(trace.lines(), (Lines{"< frame hello settled instance=0000000000000007 "
                                    "knows=0000000000000029 received=0 credit=65600+65600",
                                    "- session begins"}));
    peer.core.lineDown(peer.now);
    peer.core.lineUp(peer.now);
    trace.lines();
    peer.receive(peer.hello());
    EXPECT_TRUE(trace.has("- session resumed"));
    peer.receive(peer.hello(8));
    EXPECT_TRUE(trace.has("- session ended: the peer is a new one"));
}

TEST(HostLinkTrace, TellsAMessageAtEachBorderItPasses)
{
    Trace trace;
    ScriptedPeer peer;
    peer.establish();
    trace.lines();
    ASSERT_TRUE(peer.core.send(volumeRequest(), peer.now));
    EXPECT_EQ(trace.lines(), Lines{"> message MSG_GetState STA_Volume | 00020009"});
    peer.transmitted();
    EXPECT_EQ(trace.lines(), Lines{"> frame data seq=0 ack=0 state whole MSG_GetState STA_Volume"});

    HostLinkValueMessage reply(MSG_GetStateResponse);
    reply.addValueUint8(STA_Volume, 40);
    const std::uint8_t whole = HostLinkControl::Sequenced | HostLinkControl::First | HostLinkControl::Last;
    peer.receive(whole, 0, 1, reply.serialize());
    EXPECT_EQ(trace.lines(),
              Lines{"< frame data seq=0 ack=1 state whole MSG_GetStateResponse STA_Volume=u8:40"});
    ByteArray taken;
    ASSERT_TRUE(peer.core.take(taken));
    EXPECT_EQ(trace.lines(), Lines{"< message MSG_GetStateResponse STA_Volume=u8:40 | 80020009cc28"});
    EXPECT_FALSE(peer.core.take(taken));
    EXPECT_EQ(trace.lines(), Lines{});

    peer.now += 5ms;
    peer.transmitted();
    EXPECT_EQ(trace.lines(), Lines{"> frame ack seq=1 ack=1"});
}

TEST(HostLinkTrace, TellsThePartsOfALongMessage)
{
    Trace trace;
    ScriptedPeer peer;
    peer.establish();
    ASSERT_TRUE(peer.core.send(bulk(1, 501 + 501 + 1), peer.now));
    trace.lines();
    peer.transmitted();
    const Lines lines = trace.lines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], "> frame data seq=0 ack=0 bulk first 501 bytes of MSG_DataTransfer");
    EXPECT_EQ(lines[1], "> frame data seq=1 ack=0 bulk next 501 bytes");
    EXPECT_EQ(lines[2], "> frame data seq=2 ack=0 bulk last 1 byte");
}

TEST(HostLinkTrace, TellsTrouble)
{
    Trace trace;
    ScriptedPeer peer;
    peer.receive(HostLinkCore::refusalFrame());
    EXPECT_TRUE(trace.has("< frame refusal"));
    peer.establish();
    trace.lines();
    peer.receive({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 0});
    EXPECT_EQ(trace.lines(), Lines{"< frame damaged 11 bytes"});
    peer.transmitted();
    EXPECT_EQ(trace.lines(), Lines{"> frame nak seq=0 ack=0"});
    ASSERT_TRUE(peer.core.send(volumeRequest(), peer.now));
    peer.transmitted();
    trace.lines();
    peer.now += 1s;
    peer.transmitted();
    EXPECT_TRUE(trace.has("> frame again data seq=0 ack=0 state whole MSG_GetState STA_Volume"));
    trace.lines();
    peer.receive(HostLinkControl::Grant, 0, 1, {0, 0, 1, 0, 0, 0, 2, 0});
    peer.receive(0x42, 0, 0);
    EXPECT_EQ(trace.lines(),
              (Lines{"< frame grant seq=0 ack=1 state=256 bulk=512", "< frame unknown control=66 0 bytes"}));
    peer.core.goodbye(peer.now);
    EXPECT_FALSE(peer.core.send(volumeRequest(), peer.now));
    peer.transmitted();
    EXPECT_EQ(trace.lines(),
              (Lines{"- session ended: goodbye", "> message refused MSG_GetState STA_Volume | 00020009",
                     "> frame goodbye ack=1"}));
}

TEST(HostLinkTrace, ChangesNothingOfWhatTheLinkDoes)
{
    SimulatedLink::Faults faults;
    faults.drop = 0.001;
    faults.flip = 0.001;
    const auto bytes = [&] {
        SimulatedLink link(faults, 7);
        link.lineUp();
        for (std::uint32_t i = 0; i < 200; ++i) {
            link.a->send(state(i, 100), link.now);
            link.b->send(bulk(i, 700), link.now);
            link.run(3ms);
        }
        return std::make_pair(link.a.bytes, link.b.bytes);
    };
    const auto silent = bytes();
    Trace trace;
    EXPECT_EQ(bytes(), silent);
    EXPECT_GT(trace.lines().size(), 1000U);
}

} // namespace
