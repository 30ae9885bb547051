// Peers that are broken, stuck, hostile or restart at any moment: nothing of theirs grows memory, is
// delivered twice or to somebody else, or ends anything but their session.

#include <gtest/gtest.h>

#include <random>
#include <set>

#include "platform/hostlink/BigEndian.h"
#include "platform/hostlink/HostLinkCore.h"
#include "support/HeapUse.h"
#include "support/LinkLogCapture.h"
#include "support/LinkMessages.h"
#include "support/ScriptedPeer.h"
#include "support/SimulatedLink.h"

using namespace std::chrono_literals;

namespace
{

using Session = HostLinkCore::Session;

constexpr int kFlood = 20'000;
constexpr std::size_t kLittle = 4096; ///< bytes of memory that do not count as growth

/// Everything that a core says now, counted and forgotten.
std::size_t framesSaid(ScriptedPeer& peer)
{
    std::size_t frames = 0;
    while (peer.core.transmit(peer.now).size > 0) {
        ++frames;
    }
    return frames;
}

/// Hands the core the same kind of thing many times: each has at most `answers` frames for an answer, and
/// memory stays as it is after the first.
template <typename Act>
void flood(ScriptedPeer& peer, std::size_t answers, Act act)
{
    std::size_t begin = 0;
    for (int i = 0; i < kFlood; ++i) {
        act(i);
        ASSERT_LE(framesSaid(peer), answers) << i;
        if (i == 100) {
            begin = heapInUse();
        }
    }
    EXPECT_LE(heapInUse(), begin + kLittle);
}

/// The session still carries a message each way.
void expectWorking(ScriptedPeer& peer, std::uint8_t sequence, std::uint8_t acknowledgement)
{
    ASSERT_EQ(peer.core.session(), Session::Established);
    peer.receive(kWhole, sequence, acknowledgement, state(4711));
    ByteArray taken;
    ASSERT_TRUE(peer.core.take(taken));
    EXPECT_EQ(taken, state(4711));
    framesSaid(peer);
    ASSERT_TRUE(peer.core.send(state(4712), peer.now));
    EXPECT_EQ(framesSaid(peer), 1U);
    peer.receive(HostLinkControl::Ack, std::uint8_t(sequence + 1), std::uint8_t(acknowledgement + 1));
    EXPECT_TRUE(peer.core.allAcknowledged(kState));
}

// Floods

TEST(HostLinkPeer, HellosOfThePeerInTheMiddleOfASessionAreAnsweredOnceEach)
{
    ScriptedPeer peer;
    peer.establish();
    HostLinkHello hello = peer.hello();
    hello.settled = false;
    flood(peer, 1, [&](int) { peer.receive(hello); });
    EXPECT_EQ(peer.core.sessionNumber(), 1U);
    expectWorking(peer, 0, 0);
}

TEST(HostLinkPeer, APeerThatAnswersForAnOldInstanceIsToldTheRightOneEachTime)
{
    ScriptedPeer peer;
    framesSaid(peer);
    HostLinkHello hello = peer.hello();
    hello.peer = 39; // this end before its restart
    for (const bool settled : {false, true}) {
        hello.settled = settled;
        flood(peer, 1, [&](int) { peer.receive(hello); });
        EXPECT_EQ(peer.core.session(), Session::Never);
    }
    hello.peer = peer.instances;
    peer.receive(hello);
    framesSaid(peer);
    expectWorking(peer, 0, 0);
}

TEST(HostLinkPeer, APeerWithANewInstanceInEachHelloIsANewSessionEachTimeAndNoMore)
{
    const LinkLogCapture log;
    ScriptedPeer peer;
    peer.establish();
    flood(peer, 2, [&](int i) { peer.receive(peer.hello(1000 + std::uint64_t(i))); });
    EXPECT_EQ(peer.core.sessionNumber(), 1U + kFlood);
    EXPECT_TRUE(log.lines().empty()); // nothing was lost with them
    expectWorking(peer, 0, 0);
}

TEST(HostLinkPeer, HellosThatRememberWhatNeverWasDoNotEndMoreThanTheirSession)
{
    const LinkLogCapture log;
    ScriptedPeer peer;
    peer.establish();
    flood(peer, 1, [&](int i) {
        HostLinkHello hello = peer.hello();
        hello.settled = false;
        hello.received = 1 + std::uint32_t(i);
        peer.receive(hello);
    });
    EXPECT_LE(log.lines().size(), 1U);
    peer.receive(peer.hello(8));
    framesSaid(peer);
    expectWorking(peer, 0, 0);
}

TEST(HostLinkPeer, NaksForWhatWasNeverSentAreNotAnswered)
{
    ScriptedPeer peer;
    peer.establish();
    flood(peer, 0, [&](int i) { peer.receive(HostLinkControl::Nak, 0, std::uint8_t(i)); });
    expectWorking(peer, 0, 0);
}

TEST(HostLinkPeer, ANakRepeatsNoMoreThanIsUnacknowledged)
{
    ScriptedPeer peer;
    peer.establish();
    for (std::uint32_t i = 0; i < 200; ++i) {
        ASSERT_TRUE(peer.core.send(state(i), peer.now));
    }
    EXPECT_EQ(framesSaid(peer), 64U);
    flood(peer, 64, [&](int) { peer.receive(HostLinkControl::Nak, 0, 0); });
}

TEST(HostLinkPeer, AFrameThatIsRepeatedForEverIsDeliveredOnceAndAcknowledgedEachTime)
{
    ScriptedPeer peer;
    peer.establish();
    peer.receive(kWhole, 0, 0, state(1));
    ByteArray taken;
    ASSERT_TRUE(peer.core.take(taken));
    flood(peer, 1, [&](int) { peer.receive(kWhole, 0, 0, state(1)); });
    EXPECT_FALSE(peer.core.take(taken));
    expectWorking(peer, 1, 0);
}

TEST(HostLinkPeer, GarbageIsAskedAboutOnceAndKeptNowhere)
{
    ScriptedPeer peer;
    peer.establish();
    std::mt19937 random(1);
    std::size_t naks = 0;
    const std::size_t begin = heapInUse();
    for (int i = 0; i < 2000; ++i) {
        ByteArray garbage(1 + random() % 2000);
        for (std::uint8_t& byte : garbage) {
            byte = static_cast<std::uint8_t>(random());
        }
        peer.receive(garbage);
        naks += framesSaid(peer);
    }
    EXPECT_LE(heapInUse(), begin + kLittle);
    EXPECT_LE(naks, 1U);
    EXPECT_GT(peer.core.counters().framesDamaged, 2000U);
    peer.receive(ByteArray{0});
    expectWorking(peer, 0, 0);
}

TEST(HostLinkPeer, ZerosAndBytesWithoutAnEndMeanNothing)
{
    ScriptedPeer peer;
    peer.establish();
    for (const std::uint8_t byte : {0x00, 0x01, 0x02, 0xFF}) {
        const ByteArray same(4096, byte);
        flood(peer, 1, [&](int i) {
            if (i < 1000) {
                peer.receive(same);
            }
        });
    }
    peer.receive(ByteArray{0});
    framesSaid(peer);
    expectWorking(peer, 0, 0);
}

TEST(HostLinkPeer, ASequencedFrameOutsideTheWindowChangesNothing)
{
    ScriptedPeer peer;
    peer.establish();
    const HostLinkCore::Counters before = peer.core.counters();
    int outside = 0;
    for (int sequence = 64; sequence < 192; ++sequence, ++outside) {
        for (const std::uint8_t control : {kWhole, HostLinkControl::Grant, std::uint8_t(0xFF)}) {
            peer.receive(control, std::uint8_t(sequence), 0, state(1));
            ASSERT_EQ(framesSaid(peer), 0U) << sequence;
        }
    }
    EXPECT_EQ(peer.core.counters().framesIgnored - before.framesIgnored, 3U * unsigned(outside));
    ByteArray taken;
    EXPECT_FALSE(peer.core.take(taken));
    expectWorking(peer, 0, 0);
}

TEST(HostLinkPeer, AcknowledgementsForWhatWasNotSentAcknowledgeNothing)
{
    ScriptedPeer peer;
    peer.establish();
    ASSERT_TRUE(peer.core.send(state(1), peer.now));
    ASSERT_TRUE(peer.core.send(state(2), peer.now));
    framesSaid(peer);
    for (int acknowledgement = 3; acknowledgement <= 256; ++acknowledgement) {
        peer.receive(HostLinkControl::Ack, 0, std::uint8_t(acknowledgement));
        ASSERT_FALSE(peer.core.allAcknowledged(kState)) << acknowledgement;
    }
    peer.receive(HostLinkControl::Ack, 0, 2);
    EXPECT_TRUE(peer.core.allAcknowledged(kState));
}

TEST(HostLinkPeer, AFloodOfMessagesStopsAtTheWindowAndEndsTheSession)
{
    const LinkLogCapture log;
    for (const MessageId id : {MSG_StateChanged, MSG_DataTransfer}) {
        ScriptedPeer peer;
        peer.establish();
        const std::size_t begin = heapInUse();
        const std::uint8_t control = kWhole | (messageClass(id) == kBulk ? HostLinkControl::Bulk : 0);
        std::size_t bytes = 0;
        for (int i = 0; i < kFlood && peer.core.session() == Session::Established; ++i) {
            peer.receive(control, std::uint8_t(i), 0, message(id, std::uint32_t(i), 100));
            framesSaid(peer);
            bytes += 100;
        }
        EXPECT_EQ(peer.core.session(), Session::Ended);
        EXPECT_LE(bytes, HostLinkCore::Settings{}.creditBytes[0] + 100);
        EXPECT_LE(heapInUse(), begin + 2 * bytes + kLittle);
    }
}

TEST(HostLinkPeer, AFloodOfTheSmallestMessagesTakesNoMoreThanItsWindowsCanBring)
{
    const LinkLogCapture log;
    ScriptedPeer peer;
    peer.establish();
    const std::size_t begin = heapInUse();
    std::uint8_t sequence = 0;
    while (peer.core.session() == Session::Established) {
        peer.receive(kWhole, sequence++, 0, {1});
        framesSaid(peer);
    }
    EXPECT_LE(heapInUse() - begin, 100 * HostLinkCore::Settings{}.creditBytes[0]);
}

TEST(HostLinkPeer, ABeginningWithoutAnEndTakesNoMoreThanItsWindow)
{
    const LinkLogCapture log;
    ScriptedPeer peer;
    peer.establish();
    const std::size_t begin = heapInUse();
    const std::uint8_t first = HostLinkControl::Sequenced | HostLinkControl::First;
    std::uint8_t sequence = 0;
    std::size_t most = begin;
    while (peer.core.session() == Session::Established) {
        const std::uint8_t control = sequence == 0 ? first : HostLinkControl::Sequenced;
        peer.receive(control, sequence++, 0, ByteArray(501, 1));
        framesSaid(peer);
        most = std::max(most, heapInUse());
    }
    EXPECT_LE(most - begin, 3 * HostLinkCore::Settings{}.creditBytes[0]);
    ByteArray taken;
    EXPECT_FALSE(peer.core.take(taken));
}

// Peers that do not keep up

TEST(HostLinkPeer, MessagesWhoseFramesAreOfTheOtherClassUseNoCreditForGood)
{
    for (const bool asBulk : {false, true}) {
        SCOPED_TRACE(asBulk);
        ScriptedPeer peer;
        peer.establish();
        const ByteArray message = asBulk ? state(1, 500) : bulk(1, 500);
        const auto control = std::uint8_t(kWhole | (asBulk ? HostLinkControl::Bulk : 0));
        std::uint8_t grants = 0;
        for (int i = 0; i < 1000; ++i) { // several times what a window holds
            peer.receive(control, std::uint8_t(i), grants, message);
            ByteArray taken;
            ASSERT_TRUE(peer.core.take(taken)) << i;
            ASSERT_EQ(taken, message);
            peer.core.handled();
            for (const HostLinkFrame& frame : peer.transmitted()) {
                grants += frame.control == HostLinkControl::Grant ? 1 : 0;
            }
        }
        expectWorking(peer, std::uint8_t(1000), grants);
    }
}

TEST(HostLinkPeer, WhatWaitsForAPeerThatNeverAcknowledgesIsBounded)
{
    const LinkLogCapture log;
    ScriptedPeer peer;
    peer.establish();
    const std::size_t begin = heapInUse();
    const HostLinkCore::Settings settings;
    std::size_t most = begin;
    for (std::uint32_t i = 0; i < 100'000; ++i) {
        peer.core.send(bulk(i, 400), peer.now);
        if (peer.core.writable(kState, 400)) {
            ASSERT_TRUE(peer.core.send(state(i, 400), peer.now));
        }
        ASSERT_LE(peer.core.queuedBytes(kState), settings.queueBytes[0]);
        ASSERT_LE(peer.core.queuedBytes(kBulk), settings.queueBytes[1]);
        framesSaid(peer);
        peer.now += 100us;
        peer.receive(HostLinkControl::Ack, 0, 0);
        most = std::max(most, heapInUse());
    }
    EXPECT_EQ(peer.core.session(), Session::Established);
    EXPECT_FALSE(peer.core.writable(kState, 400));
    EXPECT_FALSE(peer.core.writable(kBulk, 400));
    EXPECT_LE(most - begin, 4 * (settings.queueBytes[0] + settings.queueBytes[1]));
}

TEST(HostLinkPeer, APeerThatAcknowledgesNothingIsSaidOnceAndGreetedAgainAndAgain)
{
    const LinkLogCapture log;
    ScriptedPeer peer;
    peer.establish();
    const std::uint64_t greetings = peer.core.counters().greetings;
    ASSERT_TRUE(peer.core.send(state(1), peer.now));
    std::size_t frames = 0;
    for (auto time = 0ms; time < 60s; time += 10ms) {
        frames += framesSaid(peer);
        peer.now += 10ms;
        peer.receive(HostLinkControl::Ack, 0, 0);
        peer.receive(peer.hello());
    }
    EXPECT_GE(peer.core.counters().greetings, greetings + 5);
    EXPECT_LE(frames, 60U * 5);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"the link is down, the peer acknowledges nothing"});
    framesSaid(peer);
    peer.receive(HostLinkControl::Ack, 0, 1);
    EXPECT_TRUE(peer.core.allAcknowledged(kState));

    ASSERT_TRUE(peer.core.send(state(2), peer.now)); // it happens again, and is said again
    for (auto time = 0ms; time < 20s; time += 10ms) {
        framesSaid(peer);
        peer.now += 10ms;
        peer.receive(HostLinkControl::Ack, 0, 1);
    }
    EXPECT_EQ(log.lines().size(), 2U);
}

TEST(HostLinkPeer, AStuckPeerIsSaidOnceAndCostsAHelloASecond)
{
    const LinkLogCapture log;
    SimulatedLink link;
    link.lineUp();
    link.run(10s);
    ASSERT_TRUE(log.lines().empty());
    link.b.stuck = true;
    link.run(10s);
    const std::uint64_t frames = link.a.frames;
    link.run(1000s);
    EXPECT_LE(link.a.frames - frames, 1001U);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"the link is down, the peer is silent"});
    link.b.stuck = false;
    link.run(10s);
    EXPECT_EQ(link.a->sessionNumber(), 1U);
    ASSERT_TRUE(link.a->send(state(1), link.now));
    link.run(1s);
    EXPECT_EQ(link.b.received, std::vector<ByteArray>{state(1)});

    link.b.stuck = true; // it happens again, and is said again
    link.run(10s);
    EXPECT_EQ(log.lines().size(), 2U);
}

TEST(HostLinkPeer, APeerWithoutAnyCreditGetsNothingAndLosesNothing)
{
    ScriptedPeer peer;
    framesSaid(peer);
    HostLinkHello hello = peer.hello();
    hello.credit[0] = hello.credit[1] = 0;
    peer.receive(hello);
    framesSaid(peer);
    for (std::uint32_t i = 0; i < 10; ++i) {
        ASSERT_TRUE(peer.core.send(state(i), peer.now));
    }
    for (auto time = 0ms; time < 60s; time += 100ms) {
        peer.receive(HostLinkControl::Ack, 0, 0);
        for (const HostLinkFrame& frame : peer.transmitted()) {
            EXPECT_EQ(frame.control, HostLinkControl::Ack);
        }
        peer.now += 100ms;
    }
    EXPECT_EQ(peer.core.session(), Session::Established);
    peer.receive(HostLinkControl::Grant, 0, 0, {0, 0, 0, 30, 0, 0, 0, 0});
    EXPECT_EQ(framesSaid(peer), 5U);
}

TEST(HostLinkPeer, APeerThatCanHoldNothingIsSentNothing)
{
    const LinkLogCapture log;
    ScriptedPeer peer;
    framesSaid(peer);
    HostLinkHello hello = peer.hello();
    hello.largest[0] = hello.largest[1] = 0;
    peer.receive(hello);
    framesSaid(peer);
    EXPECT_FALSE(peer.core.writable(kState, 2));
    EXPECT_FALSE(peer.core.send(state(1), peer.now));
    EXPECT_EQ(peer.core.session(), Session::Established);
    EXPECT_EQ(framesSaid(peer), 0U);
}

TEST(HostLinkPeer, GrantsWithoutEndAddUpToNothingHarmful)
{
    ScriptedPeer peer;
    peer.establish();
    const ByteArray everything(8, 0xFF);
    flood(peer, 1, [&](int i) { peer.receive(HostLinkControl::Grant, std::uint8_t(i), 0, everything); });
    for (std::uint32_t i = 0; i < 100; ++i) {
        ASSERT_TRUE(peer.core.send(state(i), peer.now));
    }
    EXPECT_EQ(framesSaid(peer), 64U);
}

// Damage and restarts at every step

TEST(HostLinkPeer, AFrameOfWhichOnlyABeginningArrivesIsRepairedWhereverItEnds)
{
    const ByteArray big = state(1, 120);
    for (std::size_t kept = 0; kept < 131; ++kept) {
        SCOPED_TRACE(kept);
        SimulatedLink link;
        link.lineUp();
        link.run(10ms);
        bool cut = true;
        link.filter = [&](int from, const ByteArray& frame) {
            if (from != 0 || !std::exchange(cut, false)) {
                return true;
            }
            link.inject(
                from, ByteArray(frame.begin(), frame.begin() + std::ptrdiff_t(std::min(kept, frame.size()))));
            return false;
        };
        ASSERT_TRUE(link.a->send(big, link.now));
        ASSERT_TRUE(link.a->send(state(2), link.now));
        ASSERT_TRUE(link.runUntil([&] { return link.b.received.size() == 2; }, 1s));
        EXPECT_EQ(link.b.received, (std::vector<ByteArray>{big, state(2)}));
        link.run(1s);
        EXPECT_EQ(link.b.received.size(), 2U);
    }
}

/// What arrived, as "session:number" each.
std::set<std::pair<std::uint64_t, std::uint32_t>> arrivals(const SimulatedLink::End& end)
{
    std::set<std::pair<std::uint64_t, std::uint32_t>> all;
    for (std::size_t i = 0; i < end.received.size(); ++i) {
        all.emplace(end.receivedIn[i], readBigEndian<std::uint32_t>(&end.received[i][2]));
    }
    return all;
}

/// Traffic of both classes both ways with small windows, so that segments, grants, acknowledgements and
/// hellos are all among the frames before which an end restarts.
TEST(HostLinkPeer, ARestartBeforeAnyFrameLosesWholeSessionsOnlyAndRepeatsNothing)
{
    const LinkLogCapture log;
    HostLinkCore::Settings settings;
    settings.creditBytes[0] = settings.creditBytes[1] = 2500;
    int steps = 0;
    for (const bool shown : {true, false}) {
        for (int which = 0; which < 2; ++which) {
            bool reached = true;
            for (int step = 1; reached; ++step, ++steps) {
                SCOPED_TRACE((shown ? "shown, end " : "hidden, end ") + std::to_string(which)
                             + ", before frame " + std::to_string(step));
                SimulatedLink link({}, 1, settings);
                int count = 0;
                link.filter = [&](int, const ByteArray&) { return ++count > 0; };
                std::uint32_t number = 0;
                for (int i = 0; i < 8; ++i) { // before the restart: numbers below 1000
                    ASSERT_TRUE(link.a->send(bulk(number++, 900), link.now));
                    ASSERT_TRUE(link.b->send(bulk(number++, 900), link.now));
                    ASSERT_TRUE(link.a->send(state(number++, 30), link.now));
                    ASSERT_TRUE(link.b->send(state(number++, 30), link.now));
                }
                link.lineUp();
                reached = link.runUntil([&] { return count >= step; }, 300ms);
                link.restart(link.ends[which], shown);
                SimulatedLink::End& restarted = link.ends[which];
                SimulatedLink::End& stayed = link.ends[1 - which];
                const std::uint64_t former = stayed->sessionNumber();
                restarted.received.clear();
                for (std::uint32_t i = 1000; i < 1010; ++i) { // and after it
                    ASSERT_TRUE(restarted->send(state(i), link.now));
                }
                link.run(5s);
                ASSERT_EQ(link.a->session(), Session::Established);
                ASSERT_EQ(link.b->session(), Session::Established);

                const auto got = arrivals(stayed);
                ASSERT_EQ(got.size(), stayed.received.size()) << "something came twice";
                for (const auto& [session, sent] : got) {
                    ASSERT_EQ(sent >= 1000, session == stayed->sessionNumber()) << sent << " in " << session;
                }
                for (std::uint32_t i = 1000; i < 1010; ++i) {
                    ASSERT_TRUE(got.count({stayed->sessionNumber(), i})) << i;
                }
                ASSERT_TRUE(former == 0 || restarted.received.empty()) << "it got what was not meant for it";
                ASSERT_TRUE(link.a->allAcknowledged(kState));
                ASSERT_TRUE(link.b->allAcknowledged(kState));
            }
        }
    }
    EXPECT_GT(steps, 200);
}

} // namespace
