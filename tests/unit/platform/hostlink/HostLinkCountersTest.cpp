#include "platform/hostlink/HostLinkCounters.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "platform/hostlink/HostLinkCore.h"
#include "support/LinkMessages.h"
#include "support/ScriptedPeer.h"
#include "support/SimulatedLink.h"

using namespace std::chrono_literals;

namespace
{

TEST(HostLinkCounters, EveryMemberHasOneRowInItsPlace)
{
    std::uint64_t numbers[HostLinkCounters::kSize];
    for (int i = 0; i < HostLinkCounters::kSize; ++i) {
        numbers[i] = 1000 + unsigned(i);
    }
    HostLinkCounters counters;
    std::memcpy(&counters, numbers, sizeof counters);
    std::set<std::string> names;
    for (int i = 0; i < HostLinkCounters::kSize; ++i) {
        EXPECT_EQ(counters.*HostLinkCounters::kRows[i].value, 1000U + unsigned(i));
        names.insert(HostLinkCounters::kRows[i].name);
    }
    EXPECT_EQ(names.size(), std::size_t(HostLinkCounters::kSize));
}

TEST(HostLinkCounters, TextNamesEachInOneLine)
{
    HostLinkCounters counters;
    counters.bytesSent = 7;
    counters.roundTrip = 1234;
    const std::string text = counters.text();
    EXPECT_EQ(text.find("bytesSent=7 bytesReceived=0 framesSent=0 "), 0U) << text;
    EXPECT_NE(text.find(" roundTrip=1234"), std::string::npos) << text;
    EXPECT_EQ(text.find('\n'), std::string::npos);
}

TEST(HostLinkCounters, EveryNameAndMeaningStandInTheDocuments)
{
    std::ifstream document(HOSTLINK_SOURCE_DIR "/docs/architecture.md");
    const std::string text{std::istreambuf_iterator<char>(document), {}};
    for (const HostLinkCounters::Row& row : HostLinkCounters::kRows) {
        const std::string line = std::string("\n| `") + row.name + "` | " + row.meaning + " |\n";
        EXPECT_NE(text.find(line), std::string::npos) << line;
    }
}

TEST(HostLinkCounters, ACleanExchangeCountsWhatWentOverTheLine)
{
    SimulatedLink link;
    link.lineUp();
    link.run(10ms);
    for (std::uint32_t i = 0; i < 10; ++i) {
        ASSERT_TRUE(link.a->send(state(i, 100), link.now));
        ASSERT_TRUE(link.a->send(bulk(i, 600), link.now));
        link.run(10ms);
    }
    const HostLinkCounters a = link.a->counters();
    const HostLinkCounters b = link.b->counters();
    EXPECT_EQ(a.bytesSent, link.a.bytes);
    EXPECT_EQ(a.framesSent, link.a.frames);
    EXPECT_EQ(a.bytesReceived, link.b.bytes);
    EXPECT_EQ(a.framesReceived, link.b.frames);
    EXPECT_EQ(b.bytesReceived, a.bytesSent);
    EXPECT_EQ(b.framesReceived, a.framesSent);
    EXPECT_EQ(a.messagesSent, 20U);
    EXPECT_EQ(b.messagesReceived, 20U);
    for (const HostLinkCounters& each : {a, b}) {
        EXPECT_EQ(each.sessions, 1U);
        EXPECT_EQ(each.greetings, 1U);
        EXPECT_EQ(each.framesRepeated + each.framesDamaged + each.framesDuplicate + each.framesIgnored, 0U);
        EXPECT_EQ(each.resyncs + each.timeouts + each.refusals, 0U);
        EXPECT_EQ(each.stateQueued + each.bulkQueued + each.framesUnacknowledged + each.messagesUnhandled,
                  0U);
    }
    EXPECT_GE(a.roundTrip, 200U); // 100 us each way, and up to 5 ms in which an acknowledgement waits
    EXPECT_LE(a.roundTrip, 5300U);
    EXPECT_EQ(b.roundTrip, 0U); // its acknowledgements are not acknowledged
}

TEST(HostLinkCounters, QueuesAreShownAsTheyStand)
{
    SimulatedLink link;
    link.b.handles = false;
    link.lineUp();
    link.run(10ms);
    link.b.stuck = true;
    for (std::uint32_t i = 0; i < 100; ++i) {
        ASSERT_TRUE(link.a->send(state(i, 96), link.now));
    }
    ASSERT_TRUE(link.a->send(bulk(1, 500), link.now));
    link.run(1ms);
    HostLinkCounters a = link.a->counters();
    EXPECT_EQ(a.framesUnacknowledged, 64U);
    EXPECT_EQ(a.stateQueued, link.a->queuedBytes(MessageClass::State));
    EXPECT_EQ(a.bulkQueued, link.a->queuedBytes(MessageClass::Bulk));
    EXPECT_GT(a.stateQueued, 3000U);
    link.b.stuck = false;
    link.run(1s);
    a = link.a->counters();
    EXPECT_EQ(a.framesUnacknowledged + a.stateQueued + a.bulkQueued, 0U);
    EXPECT_EQ(link.b->counters().messagesUnhandled, 101U);
    link.b->handled();
    EXPECT_EQ(link.b->counters().messagesUnhandled, 100U);
}

TEST(HostLinkCounters, TroubleIsCountedByItsKind)
{
    ScriptedPeer peer;
    const auto counted = [&](std::uint64_t HostLinkCounters::*member) {
        return peer.core.counters().*member;
    };
    peer.transmitted();
    peer.receive(HostLinkCore::refusalFrame());
    EXPECT_EQ(counted(&HostLinkCounters::refusals), 1U);
    peer.establish();

    peer.receive(kWhole, 0, 0, state(1));
    peer.receive(kWhole, 0, 0, state(1));
    EXPECT_EQ(counted(&HostLinkCounters::framesDuplicate), 1U);
    peer.receive(kWhole, 100, 0, state(1));
    EXPECT_EQ(counted(&HostLinkCounters::framesIgnored), 1U);
    peer.transmitted();

    peer.receive({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 0});
    EXPECT_EQ(counted(&HostLinkCounters::framesDamaged), 1U);
    EXPECT_EQ(peer.transmitted().size(), 1U);
    EXPECT_EQ(counted(&HostLinkCounters::resyncs), 1U);

    ASSERT_TRUE(peer.core.send(state(2), peer.now));
    EXPECT_EQ(peer.transmitted().size(), 1U);
    peer.now += 1s;
    EXPECT_EQ(peer.transmitted().size(), 1U);
    EXPECT_EQ(counted(&HostLinkCounters::timeouts), 1U);
    EXPECT_EQ(counted(&HostLinkCounters::framesRepeated), 1U);

    EXPECT_FALSE(peer.core.send({}, peer.now));
    EXPECT_EQ(counted(&HostLinkCounters::messagesRefused), 1U);
    peer.receive(HostLinkControl::Sequenced, 1, 0, state(3));
    EXPECT_EQ(counted(&HostLinkCounters::messagesBroken), 1U);
    peer.receive(peer.hello(8));
    EXPECT_EQ(counted(&HostLinkCounters::messagesDiscarded), 1U);
    EXPECT_EQ(counted(&HostLinkCounters::sessions), 2U);
    EXPECT_EQ(counted(&HostLinkCounters::greetings), 2U);
}

} // namespace
