#include "platform/hostlink/HostLinkCore.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>
#include <string>

#include "platform/hostlink/BigEndian.h"
#include "platform/hostlink/HostLinkFrame.h"
#include "platform/hostlink/HostLinkHello.h"
#include "platform/hostlink/HostLinkLog.h"
#include "support/LinkLogCapture.h"
#include "support/LinkMessages.h"
#include "support/ScriptedPeer.h"
#include "support/SimulatedLink.h"
#include "support/SlowLineRun.h"
#include "support/TestSeeds.h"

using namespace std::chrono_literals;

namespace
{

using Session = HostLinkCore::Session;

// Handshake and sessions

TEST(HostLinkCore, TwoEndsEstablishASession)
{
    SimulatedLink link;
    EXPECT_EQ(link.a->session(), Session::Never);
    link.lineUp();
    link.run(10ms);
    EXPECT_EQ(link.a->session(), Session::Established);
    EXPECT_EQ(link.b->session(), Session::Established);
    EXPECT_EQ(link.a->sessionNumber(), 1U);
    EXPECT_EQ(link.b->sessionNumber(), 1U);
}

TEST(HostLinkCore, MessagesArriveInBothDirectionsAndClasses)
{
    SimulatedLink link;
    link.lineUp();
    link.run(10ms);
    EXPECT_TRUE(link.a->send(state(1), link.now));
    EXPECT_TRUE(link.b->send(bulk(2, 3000), link.now));
    EXPECT_FALSE(link.a->allAcknowledged(kState));
    link.run(20ms);
    EXPECT_EQ(link.b.received, std::vector<ByteArray>{state(1)});
    EXPECT_EQ(link.a.received, (std::vector<ByteArray>{bulk(2, 3000)}));
    EXPECT_TRUE(link.a->allAcknowledged(kState));
    EXPECT_TRUE(link.b->allAcknowledged(kBulk));
    EXPECT_EQ(link.a->counters().framesRepeated + link.b->counters().framesRepeated, 0U);
}

TEST(HostLinkCore, WhatWasAcceptedBeforeAnyPeerWasSeenWaitsForTheFirst)
{
    SimulatedLink link;
    EXPECT_TRUE(link.a->send(state(1), link.now));
    EXPECT_TRUE(link.a->send(bulk(2), link.now));
    link.b.stuck = true;
    link.lineUp();
    link.run(10s);
    EXPECT_TRUE(link.a->send(state(3), link.now));
    link.b.stuck = false;
    link.run(2s);
    EXPECT_EQ(ofClass(link.b.received, kState), (std::vector<ByteArray>{state(1), state(3)}));
    EXPECT_EQ(ofClass(link.b.received, kBulk), (std::vector<ByteArray>{bulk(2)}));
}

TEST(HostLinkCore, AFullQueueBeforeTheFirstSessionRefusesNewMessagesAndKeepsTheFirst)
{
    HostLinkCore::Settings settings;
    settings.queueBytes[0] = 30;
    SimulatedLink link({}, 1, settings);
    EXPECT_TRUE(link.a->writable(kState, 6));
    EXPECT_TRUE(link.a->send(state(1), link.now));
    EXPECT_TRUE(link.a->send(state(2), link.now));
    EXPECT_TRUE(link.a->send(state(3), link.now));
    EXPECT_FALSE(link.a->writable(kState, 6));
    EXPECT_FALSE(link.a->send(state(4), link.now));
    EXPECT_EQ(link.a->session(), Session::Never);
    EXPECT_EQ(link.a->counters().messagesRefused, 1U);
    link.lineUp();
    link.run(100ms);
    EXPECT_EQ(link.b.received, (std::vector<ByteArray>{state(1), state(2), state(3)}));
}

TEST(HostLinkCore, ACutLineLosesAndRepeatsNothing)
{
    SimulatedLink link;
    link.lineUp();
    link.run(10ms);
    std::vector<ByteArray> sent;
    for (std::uint32_t i = 0; i < 200; ++i) {
        sent.push_back(state(i, 6 + 7 * i));
        ASSERT_TRUE(link.a->send(sent.back(), link.now));
        if (i % 10 == 0) {
            link.run(150us);
            link.lineDown();
            ASSERT_TRUE(link.a->send(state(1000 + i), link.now));
            sent.push_back(state(1000 + i));
            link.run(5ms);
            link.lineUp();
        }
    }
    link.run(1s);
    EXPECT_EQ(link.b.received, sent);
    EXPECT_EQ(link.a->sessionNumber(), 1U);
    EXPECT_EQ(link.b->sessionNumber(), 1U);
}

TEST(HostLinkCore, ANewPeerIsANewSessionAndGetsNothingMeantForTheFormerOne)
{
    const LinkLogCapture log;
    SimulatedLink link;
    link.lineUp();
    link.run(10ms);
    link.lineDown();
    ASSERT_TRUE(link.a->send(state(1), link.now));
    ASSERT_TRUE(link.a->send(bulk(2, 2000), link.now));
    link.restart(link.b, true);
    link.lineUp();
    link.run(100ms);
    EXPECT_TRUE(link.b.received.empty());
    EXPECT_EQ(link.a->sessionNumber(), 2U);
    EXPECT_EQ(link.a->counters().messagesDiscarded, 2U);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"session ended, the peer is a new one: "
                                                    "2 messages meant for the former session discarded"});
    ASSERT_TRUE(link.a->send(state(3), link.now));
    link.run(10ms);
    EXPECT_EQ(link.b.received, std::vector<ByteArray>{state(3)});
}

TEST(HostLinkCore, ARestartThatTheLineDoesNotShowIsANewSession)
{
    SimulatedLink link;
    link.lineUp();
    link.run(10ms);
    ASSERT_TRUE(link.a->send(state(1), link.now));
    ASSERT_TRUE(link.b->send(state(1), link.now));
    link.run(10ms);
    link.restart(link.b, false);
    link.run(100ms);
    EXPECT_EQ(link.a->sessionNumber(), 2U);
    EXPECT_EQ(link.b->sessionNumber(), 1U);
    link.b.received.clear();
    ASSERT_TRUE(link.a->send(state(2), link.now));
    link.run(10ms);
    EXPECT_EQ(link.b.received, std::vector<ByteArray>{state(2)});
}

TEST(HostLinkCore, APeerThatComesBackAfterAnotherOneIsANewSessionForBoth)
{
    SimulatedLink link;
    link.lineUp();
    link.run(10ms);
    for (std::uint32_t i = 0; i < 5; ++i) {
        ASSERT_TRUE(link.a->send(state(i), link.now));
        ASSERT_TRUE(link.b->send(state(i), link.now));
        link.run(10ms);
    }
    // Another peer takes the line of b, and then the first one is back, knowing nothing of that.
    link.lineDown();
    std::unique_ptr<HostLinkCore> first = std::move(link.a.core);
    link.a.core = std::make_unique<HostLinkCore>(link.a.settings);
    link.lineUp();
    link.run(10ms);
    ASSERT_EQ(link.b->sessionNumber(), 2U);
    link.lineDown();
    ASSERT_TRUE(first->send(state(77), link.now));
    link.a.core = std::move(first);
    link.b.received.clear();
    link.lineUp();
    link.run(1s);
    EXPECT_EQ(link.a->sessionNumber(), 2U);
    EXPECT_EQ(link.b->sessionNumber(), 3U);
    EXPECT_TRUE(link.b.received.empty());
    ASSERT_TRUE(link.a->send(state(78), link.now));
    ASSERT_TRUE(link.b->send(state(79), link.now));
    link.run(10ms);
    EXPECT_EQ(link.b.received, std::vector<ByteArray>{state(78)});
    EXPECT_EQ(link.a.received.back(), state(79));
}

TEST(HostLinkCore, AnswersToAFormerPeerAreRefused)
{
    SimulatedLink link;
    link.b.handles = false;
    link.lineUp();
    link.run(10ms);
    ASSERT_TRUE(link.a->send(state(1), link.now));
    ASSERT_TRUE(link.a->send(state(2), link.now));
    link.run(10ms);
    ASSERT_EQ(link.b.received.size(), 2U);
    link.restart(link.a, true);
    link.run(100ms);
    ASSERT_EQ(link.b->session(), Session::Established);

    EXPECT_FALSE(link.b->writable(kState, 6));
    EXPECT_FALSE(link.b->send(state(3), link.now));
    link.b->handled();
    EXPECT_FALSE(link.b->send(state(4), link.now));
    link.b->handled();
    EXPECT_TRUE(link.b->send(state(5), link.now));
    EXPECT_EQ(link.b->counters().messagesRefused, 2U);
    link.run(10ms);
    EXPECT_EQ(link.a.received, std::vector<ByteArray>{state(5)});
}

/// Loses the n-th frame of one end, for each n that the exchange has.
TEST(HostLinkCore, AnyOneLostFrameIsRepaired)
{
    for (int from = 0; from < 2; ++from) {
        for (int lost = 0; lost < 20; ++lost) {
            SimulatedLink link;
            int count = 0;
            link.filter = [&](int end, const ByteArray&) { return end != from || count++ != lost; };
            ASSERT_TRUE(link.a->send(state(1), link.now));
            link.lineUp();
            link.run(500ms);
            for (std::uint32_t i = 2; i < 6; ++i) {
                ASSERT_TRUE(link.a->send(state(i), link.now));
                ASSERT_TRUE(link.b->send(state(i), link.now));
                link.run(5ms);
            }
            link.run(1s);
            EXPECT_EQ(link.b.received.size(), 5U) << from << ' ' << lost;
            EXPECT_EQ(link.a.received.size(), 4U) << from << ' ' << lost;
            EXPECT_TRUE(link.a->allAcknowledged(kState)) << from << ' ' << lost;
            EXPECT_EQ(link.a->sessionNumber(), 1U) << from << ' ' << lost;
        }
    }
}

/// Restarts one end before each of the first frames on the line, seen by the line or not.
TEST(HostLinkCore, APeerRestartedAtAnyStepIsGreetedAgain)
{
    for (int which = 0; which < 2; ++which) {
        for (const bool shown : {true, false}) {
            for (int step = 0; step < 30; ++step) {
                SimulatedLink link;
                int count = 0;
                link.filter = [&](int, const ByteArray&) { return ++count > 0; };
                ASSERT_TRUE(link.a->send(state(1), link.now));
                ASSERT_TRUE(link.b->send(bulk(1, 5000), link.now));
                link.lineUp();
                link.runUntil([&] { return count >= step; }, 1s);
                link.restart(link.ends[which], shown);
                link.a.received.clear();
                link.b.received.clear();
                ASSERT_TRUE(link.ends[which]->send(state(2), link.now));
                link.run(5s);
                SCOPED_TRACE(std::to_string(which) + (shown ? " shown " : " hidden ") + std::to_string(step));
                ASSERT_EQ(link.a->session(), Session::Established);
                ASSERT_EQ(link.b->session(), Session::Established);
                ASSERT_EQ(link.ends[1 - which].received.back(), state(2));
                ASSERT_TRUE(link.ends[1 - which]->send(state(3), link.now));
                link.run(10ms);
                ASSERT_EQ(link.ends[which].received.back(), state(3));
            }
        }
    }
}

TEST(HostLinkCore, HellosOfAFormerInstanceAreIgnored)
{
    ScriptedPeer peer;
    peer.establish();
    const HostLinkHello old = peer.hello();
    peer.receive(peer.hello(8));
    peer.transmitted();
    peer.receive(peer.hello(8));
    ASSERT_EQ(peer.core.sessionNumber(), 2U);
    peer.receive(old);
    EXPECT_EQ(peer.core.session(), Session::Established);
    EXPECT_EQ(peer.core.sessionNumber(), 2U);
    EXPECT_TRUE(peer.transmitted().empty());
}

TEST(HostLinkCore, AFormerInstanceIsHeardAgainOnceItsSuccessorIsSilent)
{
    ScriptedPeer peer;
    peer.establish();
    const HostLinkHello first = peer.hello();
    peer.receive(peer.hello(8));
    peer.transmitted();
    peer.now += 3s;
    peer.transmitted();
    peer.receive(first);
    EXPECT_EQ(peer.core.session(), Session::Established);
    EXPECT_EQ(peer.core.sessionNumber(), 3U);
}

TEST(HostLinkCore, ANakForWhatIsNotToBeHadRepeatsNothing)
{
    ScriptedPeer peer;
    peer.establish();
    ASSERT_TRUE(peer.core.send(state(1), peer.now));
    ASSERT_TRUE(peer.core.send(state(2), peer.now));
    ASSERT_EQ(peer.transmitted().size(), 2U);
    peer.receive(HostLinkControl::Ack, 0, 1);
    peer.receive(HostLinkControl::Nak, 0, 0);
    peer.receive(HostLinkControl::Nak, 0, 9);
    EXPECT_TRUE(peer.transmitted().empty());
    peer.receive(HostLinkControl::Nak, 0, 1);
    EXPECT_EQ(peer.transmitted().size(), 1U);
}

TEST(HostLinkCore, AnEchoOfItselfIsNoPeer)
{
    ScriptedPeer peer;
    for (int i = 0; i < 5; ++i) {
        const HostLinkCore::Bytes bytes = peer.core.transmit(peer.now);
        if (bytes.size > 0) {
            peer.receive(ByteArray(bytes.data, bytes.data + bytes.size));
        }
        peer.now += 1s;
    }
    EXPECT_EQ(peer.core.session(), Session::Never);
}

TEST(HostLinkCore, AnUnknownVersionIsSaidOnceAndNotAnswered)
{
    const LinkLogCapture log;
    ScriptedPeer peer;
    peer.transmitted();
    const HostLinkHello::Payload payload = peer.hello().payload();
    ByteArray bytes(payload.begin(), payload.end());
    bytes[0] = 2;
    for (int i = 0; i < 5; ++i) {
        peer.receive(HostLinkControl::Hello, 0, 0, bytes);
    }
    EXPECT_TRUE(peer.transmitted().empty());
    EXPECT_EQ(peer.core.session(), Session::Never);
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{"the peer speaks version 2 of the link, which is not known here"});
}

TEST(HostLinkCore, APeerThatClaimsToHaveReceivedWhatWasNotSentEndsTheSession)
{
    ScriptedPeer peer;
    peer.establish();
    const std::uint64_t before = peer.instances;
    HostLinkHello hello = peer.hello();
    hello.received = 5;
    peer.receive(hello); // settled, in the middle of a session: means nothing
    EXPECT_EQ(peer.core.session(), Session::Established);
    hello.settled = false;
    peer.receive(hello);
    EXPECT_EQ(peer.core.session(), Session::Ended);
    EXPECT_EQ(peer.instances, before + 1);
}

// Time

TEST(HostLinkCore, AGapIsRepairedAtOnce)
{
    SimulatedLink link;
    link.lineUp();
    link.run(10ms);
    bool lose = true;
    link.filter = [&](int from, const ByteArray&) { return from != 0 || !std::exchange(lose, false); };
    const HostLinkTime begin = link.now;
    for (std::uint32_t i = 0; i < 3; ++i) {
        ASSERT_TRUE(link.a->send(state(i), link.now));
    }
    ASSERT_TRUE(link.runUntil([&] { return link.b.received.size() == 3; }, 1s));
    EXPECT_LE(link.now - begin, 1ms);
    EXPECT_EQ(link.a->counters().framesRepeated, 3U);
}

TEST(HostLinkCore, AFrameLostTwiceIsRepairedAtOnceWhenOthersFollow)
{
    SimulatedLink link;
    link.lineUp();
    link.run(10ms);
    int lose = 2;
    link.filter = [&](int from, const ByteArray& frame) {
        return from != 0 || frame.size() < 20 || lose-- <= 0;
    };
    ASSERT_TRUE(link.a->send(state(0, 30), link.now));
    for (std::uint32_t i = 1; i < 4; ++i) {
        ASSERT_TRUE(link.a->send(state(i), link.now));
    }
    EXPECT_TRUE(link.runUntil([&] { return link.b.received.size() == 4; }, 2ms));
    EXPECT_EQ(link.a->counters().framesRepeated, 8U);
}

/// What is lost of the long frames that one end sends, by their number, repeats counted too.
void loseOfFirst(SimulatedLink& link, std::vector<int> lost)
{
    link.filter = [lost = std::move(lost), frame = 0](int from, const ByteArray& bytes) mutable {
        return from != 0 || bytes.size() < 100 || std::find(lost.begin(), lost.end(), frame++) == lost.end();
    };
}

/// When a frame gets lost again with those behind it that the receiver had seen, nothing shows that the
/// sender has gone back.
TEST(HostLinkCore, AFrameThatIsLostAgainWithTheNextOnesIsAskedForAgain)
{
    SimulatedLink::Faults slow;
    slow.bytesPerSecond = 11'520;
    SimulatedLink link(slow);
    link.lineUp();
    link.run(10ms);
    loseOfFirst(link, {10, 13, 14, 15});
    ASSERT_TRUE(link.a->send(bulk(1, 32'000), link.now));
    ASSERT_TRUE(link.runUntil([&] { return !link.b.received.empty(); }, 30s));
    EXPECT_EQ(link.a->counters().timeouts, 0U);
    EXPECT_EQ(link.b->counters().resyncs, 2U);
    EXPECT_LE(link.a->counters().framesRepeated, 15U) << "not all that the window holds";
}

TEST(HostLinkCore, OnAFarLineNothingIsAskedForTwiceBeforeItCanHaveCome)
{
    SimulatedLink::Faults far;
    far.bytesPerSecond = 50'000;
    far.delay = 200ms;
    SimulatedLink link(far);
    link.lineUp();
    link.run(2s);
    for (std::uint32_t i = 0; i < 2; ++i) {
        loseOfFirst(link, {10});
        const std::uint64_t before = link.b->counters().resyncs;
        ASSERT_TRUE(link.a->send(bulk(i, 32'000), link.now));
        ASSERT_TRUE(link.runUntil([&] { return link.b.received.size() > i; }, 30s));
        EXPECT_LE(link.b->counters().resyncs - before, i == 0 ? 3U : 1U) << "once it knows how far it is";
    }
}

TEST(HostLinkCore, NaksForTheSameFrameGetRarer)
{
    ScriptedPeer peer;
    peer.establish();
    std::size_t naks = 0;
    for (int i = 0; i < 600; ++i) { // damaged frames for a minute
        peer.receive(ByteArray(40, 0xAA));
        peer.receive(ByteArray{0});
        peer.receive(HostLinkControl::Ack, 0, 0);
        for (const auto& frame : peer.transmitted()) {
            naks += frame.control == HostLinkControl::Nak ? 1 : 0;
        }
        peer.now += 100ms;
    }
    EXPECT_GE(naks, 10U);
    EXPECT_LE(naks, 65U) << "one a second in the end";
}

TEST(HostLinkCore, ASlowLineThatDamagesHalfOfTheFullFramesTakesSixTimesAsLongAtMost)
{
    const auto secondsOver = [](double flips) {
        SimulatedLink::Faults faults;
        faults.bytesPerSecond = 11'520;
        faults.flip = flips;
        SimulatedLink link(faults);
        link.lineUp();
        EXPECT_TRUE(link.runUntil([&] { return link.a->session() == Session::Established; }, 30s));
        const HostLinkTime begin = link.now;
        constexpr std::uint32_t kMessages = 10;
        for (std::uint32_t i = 0; i < kMessages;
             ++i) { // each when the one before is there, as files are pushed
            EXPECT_TRUE(link.a->send(bulk(i, 32'000), link.now));
            EXPECT_TRUE(link.runUntil([&] { return link.b.received.size() > i; }, 10min));
        }
        return std::chrono::duration<double>(link.now - begin).count();
    };
    EXPECT_LT(secondsOver(0.00136), 6 * secondsOver(0));
}

TEST(HostLinkCore, AnAcknowledgementThatNamesALaterNumberShowsTheGap)
{
    ScriptedPeer peer;
    peer.establish();
    peer.receive(HostLinkControl::Ack, 1, 0);
    auto frames = peer.transmitted();
    ASSERT_EQ(frames.size(), 1U);
    EXPECT_EQ(frames[0].control, HostLinkControl::Nak);
    EXPECT_EQ(frames[0].acknowledgement, 0);
    peer.receive(HostLinkControl::Ack, 1, 0); // the same gap
    EXPECT_TRUE(peer.transmitted().empty());
}

TEST(HostLinkCore, GarbageOnTheIdleLineIsRepairedAtOnce)
{
    SimulatedLink link;
    link.lineUp();
    link.run(10ms);
    link.inject(0, ByteArray(5, 0xAA));
    link.run(1ms);
    ASSERT_TRUE(link.a->send(state(1), link.now));
    EXPECT_TRUE(link.runUntil([&] { return !link.b.received.empty(); }, 2ms));
}

TEST(HostLinkCore, RepeatedFramesBeginWithAZero)
{
    ScriptedPeer peer;
    peer.establish();
    ASSERT_TRUE(peer.core.send(state(1), peer.now));
    ASSERT_TRUE(peer.core.send(state(2), peer.now));
    EXPECT_NE(peer.core.transmit(peer.now).data[0], 0);
    EXPECT_NE(peer.core.transmit(peer.now).data[0], 0);
    peer.receive(HostLinkControl::Nak, 0, 0);
    EXPECT_EQ(peer.core.transmit(peer.now).data[0], 0);
    EXPECT_EQ(peer.core.transmit(peer.now).data[0], 0);
    EXPECT_EQ(peer.core.transmit(peer.now).size, 0U);
}

TEST(HostLinkCore, ADamagedLastFrameIsRepairedAtOnce)
{
    SimulatedLink link;
    link.lineUp();
    link.run(10ms);
    bool damage = true;
    link.filter = [&](int from, const ByteArray& frame) {
        if (from != 0 || !std::exchange(damage, false)) {
            return true;
        }
        ByteArray damaged = frame;
        damaged[100] ^= 0x80;
        link.inject(from, damaged);
        return false;
    };
    ASSERT_TRUE(link.a->send(state(1, 300), link.now));
    ASSERT_TRUE(link.runUntil([&] { return !link.b.received.empty(); }, 5ms));
}

TEST(HostLinkCore, ALostLastFrameIsRepairedAfterTheTimeout)
{
    SimulatedLink link;
    link.lineUp();
    link.run(10ms);
    bool lose = true;
    link.filter = [&](int from, const ByteArray&) { return from != 0 || !std::exchange(lose, false); };
    HostLinkTime begin = link.now;
    ASSERT_TRUE(link.a->send(state(1), link.now));
    ASSERT_TRUE(link.runUntil([&] { return !link.b.received.empty(); }, 1s));
    EXPECT_GE(link.now - begin, 200ms);
    EXPECT_LE(link.now - begin, 201ms);

    // Acknowledgements come within some ms: the time-out goes down to its floor.
    link.b.received.clear();
    for (std::uint32_t i = 0; i < 20; ++i) {
        ASSERT_TRUE(link.a->send(state(i), link.now));
        link.run(50ms);
    }
    link.b.received.clear();
    lose = true;
    begin = link.now;
    ASSERT_TRUE(link.a->send(state(1), link.now));
    ASSERT_TRUE(link.runUntil([&] { return !link.b.received.empty(); }, 1s));
    EXPECT_GE(link.now - begin, 20ms);
    EXPECT_LE(link.now - begin, 21ms);
}

TEST(HostLinkCore, ThePollTimeIsAddedToTheFloorOfTheTimeout)
{
    HostLinkCore::Settings settings;
    settings.pollTime = 40ms;
    SimulatedLink link({}, 1, settings);
    link.lineUp();
    for (std::uint32_t i = 0; i < 20; ++i) {
        ASSERT_TRUE(link.a->send(state(i), link.now));
        link.run(50ms);
    }
    link.b.received.clear();
    bool lose = true;
    link.filter = [&](int from, const ByteArray&) { return from != 0 || !std::exchange(lose, false); };
    const HostLinkTime begin = link.now;
    ASSERT_TRUE(link.a->send(state(1), link.now));
    ASSERT_TRUE(link.runUntil([&] { return !link.b.received.empty(); }, 1s));
    EXPECT_GE(link.now - begin, 60ms);
    EXPECT_LE(link.now - begin, 61ms);
}

TEST(HostLinkCore, TheTimeoutGrowsWithTheLinesDelay)
{
    SimulatedLink::Faults slow;
    slow.delay = 80ms;
    SimulatedLink link(slow);
    link.lineUp();
    link.run(1s);
    for (std::uint32_t i = 0; i < 10; ++i) {
        ASSERT_TRUE(link.a->send(state(i), link.now));
        link.run(300ms);
    }
    EXPECT_EQ(link.b.received.size(), 10U);
    EXPECT_EQ(link.a->counters().framesRepeated, 0U);
}

TEST(HostLinkCore, OneLateAcknowledgementDoesNotMakeRepairsSlow)
{
    SimulatedLink link;
    link.lineUp();
    link.run(50ms);
    ASSERT_TRUE(link.a->send(state(1), link.now));
    link.run(1ms);
    link.a.stuck = true;
    link.run(2500ms);
    link.a.stuck = false;
    link.run(1s);
    ASSERT_TRUE(link.a->allAcknowledged(kState));
    bool lose = true;
    link.filter = [&](int from, const ByteArray&) { return from != 0 || !std::exchange(lose, false); };
    ASSERT_TRUE(link.a->send(state(2), link.now));
    EXPECT_TRUE(link.runUntil([&] { return link.b.received.size() == 2; }, 2100ms));
}

TEST(HostLinkCore, TriesAreCappedAndTheLineIsGreetedAgain)
{
    ScriptedPeer peer;
    peer.establish();
    ASSERT_TRUE(peer.core.send(state(1), peer.now));
    int transmissions = 0;
    bool greeted = false;
    for (int i = 0; i < 3000 && !greeted; ++i) {
        for (const HostLinkFrame& frame : peer.transmitted()) {
            transmissions += (frame.control & HostLinkControl::Sequenced) != 0 ? 1 : 0;
            greeted = greeted || frame.control == HostLinkControl::Hello;
        }
        peer.now += 10ms;
        peer.receive(HostLinkControl::Ack, 0, 0); // alive, but acknowledges nothing
    }
    EXPECT_TRUE(greeted);
    EXPECT_EQ(transmissions, 8);
    EXPECT_EQ(peer.core.session(), Session::Established);
    peer.receive(peer.hello());
    const auto frames = peer.transmitted();
    ASSERT_EQ(frames.size(), 1U);
    EXPECT_EQ(frames[0].control, HostLinkControl::Sequenced | HostLinkControl::First | HostLinkControl::Last);
}

TEST(HostLinkCore, ADeadPeerIsNoticedWithinThreeSeconds)
{
    SimulatedLink link;
    link.lineUp();
    link.run(10s);
    const std::uint64_t greetings = link.a->counters().greetings;
    link.b.stuck = true;
    const HostLinkTime begin = link.now;
    EXPECT_TRUE(link.runUntil([&] { return link.a->counters().greetings > greetings; }, 10s));
    EXPECT_LE(link.now - begin, 3s);
    EXPECT_EQ(link.a->session(), Session::Established);
    ASSERT_TRUE(link.a->send(state(1), link.now));
    link.b.stuck = false;
    link.run(3s);
    EXPECT_EQ(link.b.received, std::vector<ByteArray>{state(1)});
    EXPECT_EQ(link.a->sessionNumber(), 1U);
}

TEST(HostLinkCore, AnIdleLinkStaysUpWithAtMostTwoWakeUpsASecond)
{
    SimulatedLink link;
    link.lineUp();
    link.run(10s);
    const std::uint64_t greetings = link.a->counters().greetings;
    for (SimulatedLink::End& end : link.ends) {
        end.wakeUps = 0;
    }
    link.run(100s);
    EXPECT_LE(link.a.wakeUps, 200U);
    EXPECT_LE(link.b.wakeUps, 200U);
    EXPECT_GE(link.a.wakeUps, 30U);
    EXPECT_EQ(link.a->counters().greetings, greetings);
}

TEST(HostLinkCore, AnEndWithoutAPeerGreetsAtMostOnceASecond)
{
    SimulatedLink link;
    link.b.stuck = true;
    link.lineUp();
    link.run(10s);
    link.a.wakeUps = 0;
    link.run(100s);
    EXPECT_LE(link.a.wakeUps, 101U);
    EXPECT_GE(link.a.wakeUps, 99U);
}

TEST(HostLinkCore, NothingIsDueWhileTheLineIsDown)
{
    SimulatedLink link;
    EXPECT_EQ(link.a->deadline(), HostLinkTime::max());
    link.lineUp();
    link.run(10ms);
    ASSERT_TRUE(link.a->send(state(1), link.now));
    link.lineDown();
    EXPECT_EQ(link.a->deadline(), HostLinkTime::max());
    EXPECT_EQ(link.a->transmit(link.now).size, 0U);
}

// Overhead and acknowledgements

/// Sends messages of one size both ways, each as the answer to the one before, and returns the greatest
/// number of bytes around a message.
double overheadOfExchanges(std::size_t size, int exchanges)
{
    SimulatedLink link;
    link.lineUp();
    link.run(50ms);
    for (SimulatedLink::End& end : link.ends) {
        end.bytes = 0;
    }
    std::size_t answered = 0;
    for (int i = 0; i < exchanges; ++i) {
        EXPECT_TRUE(link.a->send(ByteArray(size, 1), link.now));
        EXPECT_TRUE(link.runUntil([&] { return link.b.received.size() == answered + 1; }, 10ms));
        EXPECT_TRUE(link.b->send(ByteArray(size, 1), link.now));
        EXPECT_TRUE(link.runUntil([&] { return link.a.received.size() == answered + 1; }, 10ms));
        ++answered;
    }
    const std::size_t payload = size * answered;
    return static_cast<double>(std::max(link.a.bytes, link.b.bytes) - payload)
           / static_cast<double>(answered);
}

TEST(HostLinkCore, AMessageOfUpTo247BytesCostsNineBytesWithTrafficBothWays)
{
    for (const std::size_t size : {2U, 6U, 100U, 247U}) {
        EXPECT_LE(overheadOfExchanges(size, 2000), 9) << size;
    }
}

TEST(HostLinkCore, AMessageOfUpTo500BytesCostsTenBytesWithTrafficBothWays)
{
    for (const std::size_t size : {248U, 400U, 500U, 501U}) {
        EXPECT_LE(overheadOfExchanges(size, 2000), 10) << size;
    }
}

TEST(HostLinkCore, AnAcknowledgementAloneWaitsForSomethingToRideOn)
{
    SimulatedLink link;
    link.lineUp();
    link.run(50ms);
    const std::uint64_t frames = link.b.frames;
    ASSERT_TRUE(link.a->send(state(1), link.now));
    link.run(4ms);
    EXPECT_EQ(link.b.frames, frames);
    ASSERT_TRUE(link.b->send(state(2), link.now));
    link.run(4ms);
    EXPECT_EQ(link.b.frames, frames + 1);
    EXPECT_TRUE(link.a->allAcknowledged(kState));
    link.run(4ms);
    EXPECT_TRUE(link.b->allAcknowledged(kState));
    EXPECT_EQ(link.b.frames, frames + 1);
}

TEST(HostLinkCore, AManyFramesBurstIsAcknowledgedBeforeItsWindowIsFull)
{
    SimulatedLink link;
    link.lineUp();
    link.run(50ms);
    const HostLinkTime begin = link.now;
    for (std::uint32_t i = 0; i < 1000; ++i) {
        ASSERT_TRUE(link.a->send(state(i), link.now));
    }
    ASSERT_TRUE(link.runUntil([&] { return link.b.received.size() == 1000; }, 1s));
    EXPECT_LE(link.now - begin, 5ms);
    EXPECT_LE(link.b.frames, 80U);
}

// Classes

TEST(HostLinkCore, StateGoesBeforeWaitingBulk)
{
    SimulatedLink::Faults slow;
    slow.bytesPerSecond = 11520;
    SimulatedLink link(slow);
    link.lineUp();
    link.run(200ms);
    ASSERT_TRUE(link.a->send(bulk(1, 60000), link.now));
    link.run(1s);
    const HostLinkTime begin = link.now;
    ASSERT_TRUE(link.a->send(state(2), link.now));
    ASSERT_TRUE(link.runUntil([&] { return link.b.received.size() == 1; }, 1s));
    EXPECT_LE(link.now - begin, 47ms);
    EXPECT_EQ(link.b.received[0], state(2));
}

TEST(HostLinkCore, ARequestBehindBulkBothWaysIsAnsweredWithinTwoSegments)
{
    SimulatedLink::Faults slow;
    slow.bytesPerSecond = 11520;
    SimulatedLink link(slow);
    link.lineUp();
    for (std::uint32_t i = 0; i < 20; ++i) { // round trips are short at first
        ASSERT_TRUE(link.a->send(state(i), link.now));
        link.run(50ms);
    }
    ASSERT_TRUE(link.b->send(bulk(1, 60000), link.now));
    for (std::uint32_t i = 0; i < 20; ++i) {
        link.run(137ms);
        link.b.received.clear();
        link.a.received.clear();
        const HostLinkTime begin = link.now;
        ASSERT_TRUE(link.a->send(state(i), link.now));
        ASSERT_TRUE(link.runUntil([&] { return !link.b.received.empty(); }, 1s));
        ASSERT_TRUE(link.b->send(state(i, 20), link.now));
        ASSERT_TRUE(link.runUntil([&] { return !link.a.received.empty(); }, 1s));
        EXPECT_LE(link.now - begin, 60ms) << i;
    }
    EXPECT_EQ(link.a->counters().framesRepeated, 0U);
    EXPECT_EQ(link.b->counters().framesRepeated, 0U);
}

TEST(HostLinkCore, BulkUsesAtLeast97PercentOfASlowLine)
{
    SimulatedLink::Faults slow;
    slow.bytesPerSecond = 11520;
    SimulatedLink link(slow);
    link.lineUp();
    for (std::uint32_t i = 0; i < 20; ++i) { // as much traffic as a host makes, with short round trips
        ASSERT_TRUE(link.a->send(state(i), link.now));
        link.run(50ms);
    }
    link.b.received.clear();
    const HostLinkTime begin = link.now;
    for (std::uint32_t i = 0; i < 60; ++i) {
        ASSERT_TRUE(link.a->send(bulk(i, 4 * 501), link.now));
    }
    ASSERT_TRUE(link.runUntil([&] { return link.b.received.size() == 60; }, 60s));
    EXPECT_EQ(link.a->counters().framesRepeated, 0U);
    const double seconds = std::chrono::duration<double>(link.now - begin).count();
    EXPECT_GE(60 * 4 * 501 / seconds, 0.97 * 11520);
}

TEST(HostLinkCore, BulkFillsASlowAndFarLineWhileGetsAreAnsweredBehindOneSegment)
{
    for (const HostLinkDuration delay : {HostLinkDuration(100us), HostLinkDuration(5ms)}) {
        SlowLineRun run(delay);
        run.run(200);
        EXPECT_GE(run.bulkRate(), 0.97 * SlowLineRun::kLineRate);
        EXPECT_LE(run.slowGet(), 60ms);
        EXPECT_EQ(run.repeated(), 0U);
    }
}

TEST(HostLinkCore, AWaitingBulkSegmentGoesAfterEightStateSegments)
{
    ScriptedPeer peer;
    peer.establish();
    ASSERT_TRUE(peer.core.send(bulk(1, 1002), peer.now));
    for (std::uint32_t i = 0; i < 30; ++i) {
        ASSERT_TRUE(peer.core.send(state(i), peer.now));
    }
    std::string order;
    for (const HostLinkFrame& frame : peer.transmitted()) {
        order += (frame.control & HostLinkControl::Bulk) != 0 ? 'B' : 's';
    }
    EXPECT_EQ(order, "ssssssssBssssssssBssssssssssssss");
}

TEST(HostLinkCore, TheLargestMessageOfEachClassArrives)
{
    SimulatedLink link;
    link.lineUp();
    link.run(10ms);
    const std::size_t largest = 64 * 1024 + 64;
    EXPECT_FALSE(link.a->writable(kState, largest + 1));
    EXPECT_FALSE(link.a->send(state(1, largest + 1), link.now));
    ASSERT_TRUE(link.a->send(state(1, largest), link.now));
    ASSERT_TRUE(link.a->send(bulk(2, largest), link.now));
    ASSERT_TRUE(link.a->send(state(3, largest), link.now));
    link.run(1s);
    EXPECT_EQ(ofClass(link.b.received, kState),
              (std::vector<ByteArray>{state(1, largest), state(3, largest)}));
    EXPECT_EQ(ofClass(link.b.received, kBulk), std::vector<ByteArray>{bulk(2, largest)});
    EXPECT_EQ(link.a->session(), Session::Established);
}

TEST(HostLinkCore, AnEmptyMessageIsRefusedAndAOneByteMessageArrives)
{
    SimulatedLink link;
    link.lineUp();
    link.run(10ms);
    EXPECT_FALSE(link.a->send({}, link.now));
    EXPECT_TRUE(link.a->send({0x42}, link.now));
    link.run(10ms);
    EXPECT_EQ(link.b.received, std::vector<ByteArray>{{0x42}});
}

TEST(HostLinkCore, AMessageTooLongForTheFirstPeerIsDiscardedAndSaid)
{
    const LinkLogCapture log;
    SimulatedLink link;
    link.b.settings.creditBytes[0] = 100;
    link.b.core = std::make_unique<HostLinkCore>(link.b.settings);
    ASSERT_TRUE(link.a->send(state(1), link.now));
    ASSERT_TRUE(link.a->send(state(2, 101), link.now));
    ASSERT_TRUE(link.a->send(state(3, 100), link.now));
    link.lineUp();
    link.run(1s);
    EXPECT_EQ(link.b.received, (std::vector<ByteArray>{state(1), state(3, 100)}));
    EXPECT_EQ(link.a->counters().messagesDiscarded, 1U);
    EXPECT_EQ(log.lines().size(), 1U);
}

// Credit and bounds

TEST(HostLinkCore, ClosedCreditStopsTheSenderAndHandlingOpensItAgain)
{
    HostLinkCore::Settings settings;
    settings.creditBytes[0] = 100;
    SimulatedLink link({}, 1, settings);
    link.b.handles = false;
    link.lineUp();
    link.run(10ms);
    for (std::uint32_t i = 0; i < 30; ++i) {
        ASSERT_TRUE(link.a->send(state(i, 10), link.now));
    }
    const std::uint64_t greetings = link.a->counters().greetings;
    link.run(60s);
    EXPECT_EQ(link.b.received.size(), 10U);
    EXPECT_EQ(link.a->session(), Session::Established);
    EXPECT_EQ(link.a->counters().greetings, greetings);
    EXPECT_EQ(link.a->counters().framesRepeated, 0U);

    // The other class is not concerned.
    ASSERT_TRUE(link.a->send(bulk(1), link.now));
    link.run(10ms);
    EXPECT_EQ(link.b.received.size(), 11U);

    for (std::size_t i = 0; i < 31; ++i) {
        ASSERT_LT(i, link.b.received.size());
        link.b->handled();
        link.run(10ms);
    }
    EXPECT_EQ(link.b.received.size(), 31U);
    EXPECT_TRUE(link.a->allAcknowledged(kState));
}

TEST(HostLinkCore, CreditSurvivesLostFrames)
{
    HostLinkCore::Settings settings;
    settings.creditBytes[0] = settings.creditBytes[1] = 3000;
    SimulatedLink link({}, 1, settings);
    std::mt19937 random(5);
    link.filter = [&](int, const ByteArray&) { return random() % 5 != 0; };
    link.lineUp();
    link.run(1s);
    std::uint32_t sent = 0;
    while (sent < 1000) {
        if (link.a->send(bulk(sent, 900), link.now)) {
            ++sent;
        }
        link.run(1ms);
    }
    link.runUntil([&] { return link.b.received.size() == 1000; }, 600s);
    EXPECT_EQ(link.b.received.size(), 1000U);
    EXPECT_EQ(link.a->sessionNumber(), 1U);
}

TEST(HostLinkCore, AFullBulkQueueIsSeenBeforeItRefuses)
{
    HostLinkCore::Settings settings;
    settings.queueBytes[1] = 3012;
    SimulatedLink link({}, 1, settings);
    link.b.handles = false;
    link.b.settings.creditBytes[1] = 1000;
    link.b.core = std::make_unique<HostLinkCore>(link.b.settings);
    link.lineUp();
    link.run(10ms);
    ASSERT_TRUE(link.a->send(bulk(0, 1000), link.now));
    link.run(10ms);
    for (std::uint32_t i = 1; i < 4; ++i) {
        EXPECT_TRUE(link.a->writable(kBulk, 1000));
        EXPECT_TRUE(link.a->send(bulk(i, 1000), link.now));
    }
    EXPECT_FALSE(link.a->writable(kBulk, 6));
    EXPECT_FALSE(link.a->send(bulk(4), link.now));
    EXPECT_EQ(link.a->session(), Session::Established);
    link.b->handled();
    link.run(10ms);
    EXPECT_TRUE(link.a->writable(kBulk, 1000));
    EXPECT_EQ(link.b.received.size(), 2U);
}

TEST(HostLinkCore, TheBulkReserveIsForThoseWhoDoNotAsk)
{
    HostLinkCore::Settings settings;
    settings.queueBytes[1] = 3012;
    settings.bulkReserve = 1004;
    SimulatedLink link({}, 1, settings);
    link.b.settings.creditBytes[1] = 1000;
    link.b.settings.bulkReserve = 0;
    link.b.core = std::make_unique<HostLinkCore>(link.b.settings);
    link.b.handles = false;
    link.lineUp();
    link.run(10ms);
    ASSERT_TRUE(link.a->send(bulk(0, 1000), link.now)); // takes all the credit
    link.run(10ms);
    for (std::uint32_t i = 1; i < 3; ++i) {
        EXPECT_TRUE(link.a->writable(kBulk, 1000));
        EXPECT_TRUE(link.a->send(bulk(i, 1000), link.now));
    }
    EXPECT_FALSE(link.a->writable(kBulk, 6));
    EXPECT_TRUE(link.a->writable(kState, 1000)) << "it is the bulk queue's alone";
    EXPECT_TRUE(link.a->send(bulk(3, 1000), link.now));
    EXPECT_FALSE(link.a->send(bulk(4, 1000), link.now));
}

TEST(HostLinkCore, WhileTheBulkReserveIsInUseThePeerGetsNoBulkCredit)
{
    constexpr std::size_t kCredit = 4000;
    constexpr std::size_t kReserve = 2 * kCredit;
    HostLinkCore::Settings settings;
    settings.creditBytes[1] = kCredit;
    SimulatedLink link({}, 1, settings);
    link.a.settings.bulkReserve = kReserve;
    link.a.settings.queueBytes[1] = kReserve + 1000;
    link.a.core = std::make_unique<HostLinkCore>(link.a.settings);
    link.lineUp();
    link.run(10ms);
    link.a.handles = false;
    link.b.handles = false; // so a's answers soon stay in its queue

    std::uint32_t asked = 0;
    std::uint32_t answered = 0;
    const auto exchange = [&] {
        if (asked < 100 && link.b->writable(kBulk, 500)) {
            ASSERT_TRUE(link.b->send(bulk(asked++, 500), link.now));
        }
        link.run(1ms);
        while (answered < link.a.received.size()) {
            const ByteArray request = link.a.received[answered];
            ASSERT_TRUE(link.a->send(bulk(answered, 500), link.now)) << answered << " finds no room";
            link.a->handled();
            ++answered;
        }
    };
    for (int i = 0; i < 300 && !testing::Test::HasFatalFailure(); ++i) {
        exchange();
    }
    EXPECT_LT(answered, 30U) << "the requests were held back";
    EXPECT_GT(answered, 8U) << "what was free went out as credit";
    EXPECT_EQ(link.a->session(), Session::Established);

    // The peer takes answers again, and everything goes on.
    for (std::size_t handled = 0; answered < 100 && handled < 1000; ++handled) {
        if (handled < link.b.received.size()) {
            link.b->handled();
        }
        exchange();
    }
    EXPECT_EQ(answered, 100U);
}

TEST(HostLinkCore, AFullStateQueueEndsTheSessionForBoth)
{
    const LinkLogCapture log;
    HostLinkCore::Settings settings;
    settings.queueBytes[0] = 1000;
    SimulatedLink link({}, 1, settings);
    link.lineUp();
    link.run(10ms);
    link.b.stuck = true;
    std::uint32_t taken = 0;
    while (link.a->send(state(taken), link.now)) {
        ASSERT_EQ(link.a->session(), Session::Established);
        ++taken;
    }
    EXPECT_EQ(taken, 100U);
    EXPECT_EQ(link.a->session(), Session::Ended);
    EXPECT_EQ(link.a->counters().messagesDiscarded, 100U);
    EXPECT_FALSE(link.a->send(state(1), link.now));
    EXPECT_FALSE(link.a->writable(kState, 6));
    EXPECT_FALSE(link.a->send(bulk(1), link.now));
    EXPECT_EQ(log.lines().size(), 1U);

    link.b.stuck = false;
    link.run(1s);
    EXPECT_EQ(link.a->sessionNumber(), 2U);
    EXPECT_EQ(link.b->sessionNumber(), 2U);
    EXPECT_TRUE(link.b.received.empty());
    EXPECT_TRUE(link.a->send(state(1000), link.now));
    link.run(10ms);
    EXPECT_EQ(link.b.received, std::vector<ByteArray>{state(1000)});
}

TEST(HostLinkCore, APeerThatSendsBeyondItsCreditIsNotHeardAndTheSessionEnds)
{
    const LinkLogCapture log;
    HostLinkCore::Settings settings;
    settings.creditBytes[0] = 20;
    ScriptedPeer peer(settings);
    peer.establish();
    const std::uint8_t whole = HostLinkControl::Sequenced | HostLinkControl::First | HostLinkControl::Last;
    for (std::uint8_t i = 0; i < 60; ++i) {
        peer.receive(whole, i, 0, state(i));
    }
    ByteArray taken;
    int count = 0;
    while (peer.core.take(taken)) {
        ++count;
    }
    EXPECT_EQ(count, 3);
    EXPECT_EQ(peer.core.session(), Session::Ended);
    const auto frames = peer.transmitted();
    ASSERT_EQ(frames.size(), 1U);
    EXPECT_EQ(frames[0].control, HostLinkControl::Hello);
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST(HostLinkCore, ASequencedFrameOfAnUnknownKindEndsTheSession)
{
    ScriptedPeer peer;
    peer.establish();
    peer.receive(0xB2, 1, 0, state(9)); // not its turn yet
    EXPECT_EQ(peer.core.session(), Session::Established);
    peer.receive(0xB2, 0, 0, state(9));
    EXPECT_EQ(peer.core.session(), Session::Ended);
    ByteArray taken;
    EXPECT_FALSE(peer.core.take(taken));
}

TEST(HostLinkCore, PartsThatMakeNoMessageAreDroppedAndTheirCreditIsGivenBack)
{
    HostLinkCore::Settings settings;
    settings.creditBytes[0] = 100;
    ScriptedPeer peer(settings);
    peer.establish();
    std::uint8_t sequence = 0;
    std::uint8_t acknowledgement = 0;
    std::uint32_t granted = 100;
    for (int i = 0; i < 50; ++i) {
        // The middle of nothing, then a beginning after a beginning.
        for (const std::uint8_t part : {0x00, 0x20, 0x20, 0x10}) {
            peer.receive(HostLinkControl::Sequenced | part, sequence++, acknowledgement, ByteArray(10, 1));
            ASSERT_GE(granted, 10U);
            granted -= 10;
            for (const HostLinkFrame& frame : peer.transmitted()) {
                if (frame.control == HostLinkControl::Grant) {
                    granted += readBigEndian<std::uint32_t>(frame.payload);
                    ++acknowledgement;
                }
            }
            ASSERT_LE(granted, 100U);
        }
        ByteArray taken;
        ASSERT_TRUE(peer.core.take(taken));
        EXPECT_EQ(taken, ByteArray(20, 1));
        peer.core.handled();
    }
    EXPECT_EQ(peer.core.counters().messagesBroken, 100U);
}

TEST(HostLinkCore, RestartedPeersCannotFillTheMemoryOfAnEndThatDoesNotHandle)
{
    HostLinkCore::Settings settings;
    settings.creditBytes[0] = 1000;
    SimulatedLink link({}, 1, settings);
    link.b.handles = false;
    link.lineUp();
    for (int i = 0; i < 20; ++i) {
        link.run(10ms);
        for (std::uint32_t n = 0; n < 20; ++n) {
            link.a->send(state(n, 100), link.now);
        }
        link.run(10ms);
        link.restart(link.a, true);
    }
    EXPECT_EQ(link.b.received.size(), 10U);
    for (std::size_t i = 0; i < link.b.received.size(); ++i) {
        link.b->handled();
    }
    link.run(10ms);
    ASSERT_TRUE(link.a->send(state(77, 1000), link.now));
    link.run(100ms);
    EXPECT_EQ(link.b.received.back(), state(77, 1000));
}

TEST(HostLinkCore, NonsenseIsTolerated)
{
    ScriptedPeer peer;
    peer.establish();
    ASSERT_TRUE(peer.core.send(state(1), peer.now));
    peer.transmitted();
    const std::uint8_t whole = HostLinkControl::Sequenced | HostLinkControl::First | HostLinkControl::Last;

    peer.receive(ByteArray(100000, 0));
    peer.receive(ByteArray(100000, 0xFF));
    peer.receive(HostLinkControl::Ack, 0, 77); // for nothing sent
    EXPECT_FALSE(peer.core.allAcknowledged(kState));
    peer.receive(whole, 100, 0, state(9)); // far outside the window
    peer.receive(HostLinkControl::Grant, 0, 0, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
    peer.receive(HostLinkControl::Grant, 1, 0, {1});
    peer.receive(0x7F, 0, 0, state(9));
    peer.receive(0x00, 0, 0);
    peer.receive(HostLinkControl::Hello, 0, 0, {1, 2, 3}); // too short
    peer.receive(HostLinkControl::Goodbye, 0, 0, {1, 2, 3});
    peer.receive(HostLinkControl::Goodbye, 0, 0, ByteArray(8, 9)); // of nobody we know
    peer.receive(HostLinkControl::Refusal, 0, 0);
    EXPECT_EQ(peer.core.session(), Session::Established);
    EXPECT_FALSE(peer.core.refused());
    ByteArray taken;
    EXPECT_FALSE(peer.core.take(taken));
    peer.receive(whole, 2, 1, state(5));
    EXPECT_TRUE(peer.core.allAcknowledged(kState));
    EXPECT_TRUE(peer.core.take(taken));
    EXPECT_EQ(taken, state(5));
}

TEST(HostLinkCore, AbsurdLimitsOfAPeerGrowNothing)
{
    ScriptedPeer peer;
    peer.transmitted();
    HostLinkHello hello = peer.hello();
    hello.credit[0] = hello.credit[1] = 0xFFFFFFFF;
    hello.largest[0] = hello.largest[1] = 0xFFFFFFFF;
    peer.receive(hello);
    ASSERT_EQ(peer.core.session(), Session::Established);
    EXPECT_FALSE(peer.core.writable(kState, 256 * 1024));
    EXPECT_FALSE(peer.core.send(bulk(1, 256 * 1024), peer.now));
    EXPECT_EQ(peer.core.session(), Session::Established);
    EXPECT_TRUE(peer.core.send(bulk(1, 200 * 1024), peer.now));
    EXPECT_EQ(peer.transmitted().size(), 64U);
}

// Ends

TEST(HostLinkCore, GoodbyeEndsTheSessionForBoth)
{
    SimulatedLink link;
    link.lineUp();
    link.run(10ms);
    ASSERT_TRUE(link.a->send(state(1), link.now));
    link.run(1ms);
    ASSERT_TRUE(link.b->send(state(2), link.now)); // on its way when the goodbye comes
    link.a->goodbye(link.now);
    EXPECT_EQ(link.a->session(), Session::Ended);
    EXPECT_FALSE(link.a->send(state(3), link.now));
    EXPECT_FALSE(link.a->writable(kState, 6));
    link.run(10ms);
    EXPECT_EQ(link.b->session(), Session::Ended);
    EXPECT_FALSE(link.b->send(state(4), link.now));
    EXPECT_EQ(link.b->counters().messagesDiscarded, 1U);
    EXPECT_EQ(link.b->counters().messagesRefused, 1U);
    link.run(10s);
    EXPECT_EQ(link.a->deadline(), HostLinkTime::max());

    link.restart(link.a, false);
    link.run(2s);
    EXPECT_EQ(link.b->session(), Session::Established);
    EXPECT_TRUE(link.b->send(state(5), link.now));
    link.run(10ms);
    EXPECT_EQ(link.a.received, std::vector<ByteArray>{state(5)});
}

TEST(HostLinkCore, AGoodbyeAcknowledgesWhatCameBeforeIt)
{
    const LinkLogCapture log;
    SimulatedLink link;
    link.lineUp();
    link.run(50ms);
    ASSERT_TRUE(link.b->send(state(1), link.now));
    link.run(1ms);
    link.a->goodbye(link.now);
    link.run(10ms);
    EXPECT_EQ(link.b->counters().messagesDiscarded, 0U);
    EXPECT_TRUE(log.lines().empty());
}

TEST(HostLinkCore, WhatWasAcknowledgedIsHandledAlthoughThePeerSaidGoodbye)
{
    ScriptedPeer peer;
    peer.establish();
    const std::uint8_t whole = HostLinkControl::Sequenced | HostLinkControl::First | HostLinkControl::Last;
    peer.receive(whole, 0, 0, state(1));
    peer.receive(HostLinkControl::Goodbye, 1, 0, {0, 0, 0, 0, 0, 0, 0, 7});
    ASSERT_EQ(peer.core.session(), Session::Ended);
    ByteArray taken;
    EXPECT_TRUE(peer.core.take(taken));
    EXPECT_EQ(taken, state(1));
}

TEST(HostLinkCore, GoodbyeWithoutAPeerSaysNothing)
{
    SimulatedLink link;
    link.b.stuck = true;
    ASSERT_TRUE(link.a->send(state(1), link.now));
    link.lineUp();
    link.run(1s);
    const std::uint64_t frames = link.a.frames;
    link.a->goodbye(link.now);
    link.a->goodbye(link.now);
    link.run(10s);
    EXPECT_EQ(link.a.frames, frames);
    EXPECT_FALSE(link.a->send(state(2), link.now));
    EXPECT_TRUE(link.a->allAcknowledged(kState));
}

TEST(HostLinkCore, ARefusalIsSeenUntilTheLineComesUpAgain)
{
    ScriptedPeer peer;
    peer.transmitted();
    EXPECT_FALSE(peer.core.refused());
    peer.receive(HostLinkCore::refusalFrame());
    EXPECT_TRUE(peer.core.refused());
    peer.core.lineDown(peer.now);
    EXPECT_TRUE(peer.core.refused());
    peer.core.lineUp(peer.now);
    EXPECT_FALSE(peer.core.refused());
}

// Everything at once

struct Traffic {
    std::vector<ByteArray> sent;
    std::uint32_t next = 0;
};

/// Random messages both ways through all faults at once: each arrives exactly once, in order within its
/// class.
class HostLinkCoreFaults : public ::testing::TestWithParam<std::uint32_t>
{
};

TEST_P(HostLinkCoreFaults, EveryMessageArrivesOnceAndInOrder)
{
    const std::uint32_t seed = GetParam();
    SCOPED_TRACE(replayWith(seed));
    SimulatedLink::Faults faults;
    faults.drop = faults.flip = faults.duplicate = faults.insert = 0.0005;
    faults.burst = 40;
    faults.split = faults.merge = 0.2;
    faults.cuts.interval = 100ms;
    faults.bytesPerSecond = seed % 2 == 0 ? 1'000'000 : 0;
    HostLinkCore::Settings settings;
    if (seed % 3 == 0) {
        settings.creditBytes[0] = settings.creditBytes[1] = 5000;
    }
    SimulatedLink link(faults, seed, settings);
    link.lineUp();

    std::mt19937 random(seed);
    Traffic traffic[2];
    for (int i = 0; i < 4000; ++i) {
        const int from = static_cast<int>(random() % 2);
        const bool isBulk = random() % 3 == 0;
        const std::size_t size = random() % 20 == 0 ? random() % 5000 : random() % 60;
        Traffic& mine = traffic[from];
        const ByteArray bytes = isBulk ? bulk(mine.next, size) : state(mine.next, size);
        if (!link.ends[from]->writable(isBulk ? kBulk : kState, bytes.size())) {
            link.run(5ms);
            continue;
        }
        ASSERT_TRUE(link.ends[from]->send(bytes, link.now));
        mine.sent.push_back(bytes);
        ++mine.next;
        if (random() % 4 == 0) {
            link.run(std::chrono::microseconds(random() % 2000));
        }
    }
    const auto done = [&] {
        return link.b.received.size() == traffic[0].sent.size()
               && link.a.received.size() == traffic[1].sent.size();
    };
    EXPECT_TRUE(link.runUntil(done, 600s));
    link.run(1s);
    for (const MessageClass each : {kState, kBulk}) {
        EXPECT_TRUE(ofClass(link.b.received, each) == ofClass(traffic[0].sent, each));
        EXPECT_TRUE(ofClass(link.a.received, each) == ofClass(traffic[1].sent, each));
    }
    EXPECT_EQ(link.a->sessionNumber(), 1U);
    EXPECT_EQ(link.b->sessionNumber(), 1U);
    EXPECT_GT(link.a->counters().framesRepeated, 0U);
    EXPECT_GT(link.a->counters().framesDamaged, 0U);
}

/// The same with ends that restart: within each session of the receiver, what arrives is a run of what one
/// life of the sender sent, in order and without repeats.
TEST_P(HostLinkCoreFaults, RestartsLoseOnlyWholeSessions)
{
    const std::uint32_t seed = GetParam();
    SCOPED_TRACE(replayWith(seed));
    SimulatedLink::Faults faults;
    faults.drop = faults.flip = faults.duplicate = faults.insert = 0.0005;
    faults.burst = 40;
    faults.split = 0.1;
    faults.cuts.interval = 100ms;
    SimulatedLink link(faults, seed);
    link.lineUp();
    std::mt19937 random(seed);
    std::uint32_t number = 0;
    for (int i = 0; i < 3000; ++i) {
        link.ends[random() % 2]->send(state(number++, random() % 40), link.now);
        link.run(std::chrono::microseconds(random() % 2000));
        if (random() % 150 == 0) {
            link.restart(link.ends[random() % 2], random() % 2 == 0);
        }
    }
    link.setFaults({});
    link.run(10s);
    EXPECT_EQ(link.a->session(), Session::Established);
    EXPECT_EQ(link.b->session(), Session::Established);
    for (const SimulatedLink::End& end : link.ends) {
        EXPECT_GT(end.received.size(), 100U);
        for (std::size_t i = 1; i < end.received.size(); ++i) {
            ASSERT_LT(readBigEndian<std::uint32_t>(&end.received[i - 1][2]),
                      readBigEndian<std::uint32_t>(&end.received[i][2]));
        }
    }
    link.a.received.clear();
    link.b.received.clear();
    ASSERT_TRUE(link.a->send(state(1), link.now));
    ASSERT_TRUE(link.b->send(state(2), link.now));
    link.run(1s);
    EXPECT_EQ(link.b.received, std::vector<ByteArray>{state(1)});
    EXPECT_EQ(link.a.received, std::vector<ByteArray>{state(2)});
}

INSTANTIATE_TEST_SUITE_P(Seeds, HostLinkCoreFaults, testSeeds(6));

} // namespace
