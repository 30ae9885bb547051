#include "platform/hostlink/FaultEngine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <set>

using namespace std::chrono_literals;

namespace
{

using Faults = FaultSettings::Direction;

constexpr HostLinkTime kBegin{1h};
constexpr std::size_t kMany = 200'000;

ByteArray taken(FaultEngine& line, HostLinkTime now)
{
    const FaultEngine::Bytes bytes = line.arrived(now);
    ByteArray result(bytes.data, bytes.data + bytes.size);
    line.consume(bytes.size);
    return result;
}

void put(FaultEngine& line, const ByteArray& bytes, HostLinkTime now)
{
    line.put(bytes.data(), bytes.size(), now);
}

/// Bytes of which no two within 250 are alike.
ByteArray countingBytes(std::size_t size)
{
    ByteArray bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<std::uint8_t>(i % 251);
    }
    return bytes;
}

/// What is left of many bytes that go through the line in portions of one size.
ByteArray sentThrough(FaultEngine& line, const ByteArray& bytes, std::size_t portion)
{
    ByteArray result;
    for (std::size_t at = 0; at < bytes.size(); at += portion) {
        line.put(bytes.data() + at, std::min(portion, bytes.size() - at), kBegin);
        const ByteArray some = taken(line, kBegin + 1h);
        result.insert(result.end(), some.begin(), some.end());
    }
    return result;
}

ByteArray sentThrough(const Faults& faults, std::uint32_t seed, const ByteArray& bytes,
                      std::size_t portion = 1000)
{
    FaultEngine line(faults, seed);
    return sentThrough(line, bytes, portion);
}

double share(std::size_t hits)
{
    return static_cast<double>(hits) / kMany;
}

TEST(FaultEngine, WithoutFaultsTheBytesArriveAtOnceAsTheyAre)
{
    FaultEngine line({}, 1);
    EXPECT_TRUE(line.empty());
    EXPECT_EQ(line.nextArrival(), HostLinkTime::max());
    put(line, {1, 0, 255}, kBegin);
    EXPECT_FALSE(line.empty());
    EXPECT_EQ(line.unsent(kBegin), 0U);
    EXPECT_EQ(taken(line, kBegin), (ByteArray{1, 0, 255}));
    EXPECT_TRUE(line.empty());
}

TEST(FaultEngine, DroppedBytesAreMissingAndTheOthersAreInOrder)
{
    Faults faults;
    faults.drop = 0.01;
    const ByteArray sent = countingBytes(kMany);
    const ByteArray got = sentThrough(faults, 7, sent);
    EXPECT_NEAR(share(sent.size() - got.size()), 0.01, 0.002);
    auto at = sent.begin();
    for (const std::uint8_t byte : got) {
        at = std::find(at, sent.end(), byte);
        ASSERT_NE(at++, sent.end());
    }
}

TEST(FaultEngine, FlippedBytesDifferInOneBit)
{
    Faults faults;
    faults.flip = 0.01;
    const ByteArray sent = countingBytes(kMany);
    const ByteArray got = sentThrough(faults, 7, sent);
    ASSERT_EQ(got.size(), sent.size());
    std::size_t hits = 0;
    std::set<int> bits;
    for (std::size_t i = 0; i < sent.size(); ++i) {
        const int difference = sent[i] ^ got[i];
        hits += difference != 0 ? 1 : 0;
        ASSERT_EQ(difference & (difference - 1), 0);
        bits.insert(difference);
    }
    EXPECT_NEAR(share(hits), 0.01, 0.002);
    EXPECT_EQ(bits.size(), 9U);
}

TEST(FaultEngine, DuplicatedBytesFollowThemselves)
{
    Faults faults;
    faults.duplicate = 0.01;
    const ByteArray got = sentThrough(faults, 7, countingBytes(kMany));
    EXPECT_NEAR(share(got.size() - kMany), 0.01, 0.002);
    std::size_t twins = 0;
    for (std::size_t i = 1; i < got.size(); ++i) {
        twins += got[i] == got[i - 1] ? 1 : 0;
    }
    EXPECT_EQ(twins, got.size() - kMany);
}

TEST(FaultEngine, InsertedBytesAreRandomOnes)
{
    Faults faults;
    faults.insert = 0.01;
    const ByteArray got = sentThrough(faults, 7, ByteArray(kMany, 0x55));
    EXPECT_NEAR(share(got.size() - kMany), 0.01, 0.002);
    EXPECT_EQ(std::set<std::uint8_t>(got.begin(), got.end()).size(), 256U);
}

TEST(FaultEngine, ABurstHitsARunOfUpToItsSize)
{
    Faults faults;
    faults.drop = 0.0005;
    faults.burst = 20;
    const ByteArray got = sentThrough(faults, 7, countingBytes(kMany));
    std::set<int> gaps;
    for (std::size_t i = 1; i < got.size(); ++i) {
        gaps.insert((got[i] - got[i - 1] + 251) % 251 - 1);
    }
    gaps.erase(0);
    EXPECT_EQ(*gaps.begin(), 1);
    EXPECT_TRUE(gaps.count(20));
    EXPECT_LE(gaps.size(), 42U); // two bursts may meet
}

TEST(FaultEngine, ALongBurstRepeatsWholeRuns)
{
    Faults faults;
    faults.duplicate = 0.0002;
    faults.burst = 100;
    const ByteArray got = sentThrough(faults, 7, countingBytes(kMany), 10);
    std::set<int> stepsBack;
    for (std::size_t i = 1; i < got.size(); ++i) {
        const int step = (got[i] - got[i - 1] + 251) % 251;
        if (step != 1) {
            stepsBack.insert((1 - step + 251) % 251);
        }
    }
    EXPECT_GT(stepsBack.size(), 20U);
    EXPECT_LE(*stepsBack.rbegin(), 100);
}

TEST(FaultEngine, CertainFaultsHitEveryByte)
{
    Faults faults;
    faults.drop = 1;
    EXPECT_TRUE(sentThrough(faults, 1, countingBytes(1000)).empty());
    faults = {};
    faults.duplicate = 1;
    EXPECT_EQ(sentThrough(faults, 1, {1, 2, 3}), (ByteArray{1, 1, 2, 2, 3, 3}));
    faults = {};
    faults.insert = 1;
    EXPECT_EQ(sentThrough(faults, 1, countingBytes(1000)).size(), 2000U);
}

TEST(FaultEngine, TheSeedDecidesAndThePortionsDoNot)
{
    Faults faults;
    faults.drop = faults.flip = faults.duplicate = faults.insert = 0.002;
    faults.burst = 30;
    const ByteArray sent = countingBytes(50'000);
    const ByteArray got = sentThrough(faults, 7, sent, 1000);
    EXPECT_EQ(sentThrough(faults, 7, sent, 1000), got);
    EXPECT_EQ(sentThrough(faults, 7, sent, 1), got);
    EXPECT_EQ(sentThrough(faults, 7, sent, 333), got);
    EXPECT_NE(sentThrough(faults, 8, sent, 1000), got);
    Faults slow = faults;
    slow.bytesPerSecond = 1'000'000;
    EXPECT_EQ(sentThrough(slow, 7, sent, 1000), got);
}

TEST(FaultEngine, ADelayHoldsBytesBackButNotTheSender)
{
    Faults faults;
    faults.delay = 5ms;
    FaultEngine line(faults, 1);
    put(line, {1, 2}, kBegin);
    put(line, {3}, kBegin + 1ms);
    EXPECT_EQ(line.unsent(kBegin + 1ms), 0U);
    EXPECT_EQ(line.nextArrival(), kBegin + 5ms);
    EXPECT_EQ(taken(line, kBegin + 5ms - 1ns), ByteArray{});
    EXPECT_EQ(taken(line, kBegin + 5ms), (ByteArray{1, 2}));
    EXPECT_EQ(line.nextArrival(), kBegin + 6ms);
    EXPECT_EQ(taken(line, kBegin + 6ms), ByteArray{3});
}

TEST(FaultEngine, ALimitedRateIsReachedAndNeverExceeded)
{
    Faults faults;
    faults.bytesPerSecond = 1000;
    FaultEngine line(faults, 1);
    put(line, countingBytes(200), kBegin);
    EXPECT_EQ(line.sentAt(), kBegin + 200ms);
    EXPECT_EQ(line.unsent(kBegin), 200U);
    EXPECT_EQ(line.unsent(kBegin + 150ms), 50U);
    EXPECT_EQ(line.unsent(kBegin + 200ms), 0U);
    std::size_t got = 0;
    for (auto time = 0ms; time <= 200ms; time += 1ms) {
        got += taken(line, kBegin + time).size();
        EXPECT_LE(got, std::size_t(time.count()));
        EXPECT_GE(got + 32, std::size_t(time.count())); // it comes in portions
    }
    EXPECT_EQ(got, 200U);
    put(line, {1}, kBegin + 1s); // an idle line is not ahead of its time
    EXPECT_EQ(line.nextArrival(), kBegin + 1001ms);
}

TEST(FaultEngine, ASlowLinePushesBackUntilItHasSentSome)
{
    Faults faults;
    faults.bytesPerSecond = 1000;
    FaultEngine line(faults, 1);
    const std::size_t most = line.room(kBegin);
    EXPECT_GT(most, 0U);
    EXPECT_LT(most, 1000U);
    put(line, countingBytes(most), kBegin);
    EXPECT_EQ(line.room(kBegin), 0U);
    EXPECT_GT(line.roomAt(), kBegin);
    EXPECT_LT(line.roomAt(), line.sentAt());
    EXPECT_GE(line.room(line.roomAt()), most / 2);
    EXPECT_EQ(line.room(line.sentAt()), most);
}

TEST(FaultEngine, ALineThatNobodyReadsPushesBack)
{
    FaultEngine line({}, 1);
    std::size_t held = 0;
    while (line.room(kBegin) > 0) {
        const std::size_t size = std::min<std::size_t>(4096, line.room(kBegin));
        put(line, countingBytes(size), kBegin);
        held += size;
        ASSERT_LE(held, 1024U * 1024);
    }
    EXPECT_EQ(line.arrived(kBegin).size, held);
    EXPECT_EQ(line.roomAt(), HostLinkTime::max());
    line.consume(1000);
    EXPECT_EQ(line.room(kBegin), 1000U);
    EXPECT_EQ(taken(line, kBegin).size(), held - 1000);
}

TEST(FaultEngine, ASplitWriteComesInTwoParts)
{
    Faults faults;
    faults.split = 1;
    std::set<std::size_t> firstParts;
    for (std::uint32_t seed = 0; seed < 100; ++seed) {
        FaultEngine line(faults, seed);
        put(line, {1, 2, 3, 4}, kBegin);
        ByteArray all = taken(line, kBegin);
        firstParts.insert(all.size());
        const ByteArray rest = taken(line, line.nextArrival());
        all.insert(all.end(), rest.begin(), rest.end());
        EXPECT_EQ(all, (ByteArray{1, 2, 3, 4}));
    }
    EXPECT_EQ(firstParts, (std::set<std::size_t>{1, 2, 3}));
}

TEST(FaultEngine, AMergedWriteWaitsForTheNextOne)
{
    Faults faults;
    faults.merge = 1;
    FaultEngine line(faults, 1);
    put(line, {1, 2}, kBegin);
    EXPECT_EQ(taken(line, kBegin), ByteArray{});
    const HostLinkTime arrival = line.nextArrival();
    line.setFaults({});
    put(line, {3}, kBegin);
    EXPECT_EQ(line.nextArrival(), arrival);
    EXPECT_EQ(taken(line, arrival), (ByteArray{1, 2, 3}));
}

TEST(FaultEngine, WhatWasMergedOrSplitStaysInOrder)
{
    Faults faults;
    faults.split = faults.merge = 0.5;
    faults.delay = 100us;
    FaultEngine line(faults, 3);
    const ByteArray sent = countingBytes(20'000);
    ByteArray got;
    HostLinkTime now = kBegin;
    for (std::size_t at = 0; at < sent.size(); at += 10, now += 300us) {
        line.put(&sent[at], 10, now);
        const ByteArray some = taken(line, now);
        got.insert(got.end(), some.begin(), some.end());
    }
    const ByteArray rest = taken(line, now + 1s);
    got.insert(got.end(), rest.begin(), rest.end());
    EXPECT_EQ(got, sent);
}

TEST(FaultEngine, InACutWhatArrivesIsLost)
{
    Faults faults;
    faults.cuts = {100ms, 50ms};
    FaultEngine line(faults, 5);
    int lost = 0;
    int outages = 0;
    bool wasLost = false;
    for (int i = 0; i < 20'000; ++i) {
        const HostLinkTime now = kBegin + i * 1ms;
        put(line, {7}, now);
        const bool isLost = taken(line, now).empty();
        lost += isLost ? 1 : 0;
        outages += isLost && !wasLost ? 1 : 0;
        wasLost = isLost;
    }
    EXPECT_NEAR(lost / 20'000.0, 0.2, 0.05); // 25 ms of each 125
    EXPECT_NEAR(outages, 160, 40);
}

TEST(FaultEngine, ClearLosesWhatIsOnItsWayOnly)
{
    Faults faults;
    faults.bytesPerSecond = 1000;
    faults.delay = 10ms;
    FaultEngine line(faults, 1);
    put(line, countingBytes(100), kBegin);
    line.clear();
    EXPECT_TRUE(line.empty());
    EXPECT_EQ(line.unsent(kBegin), 0U);
    EXPECT_EQ(taken(line, kBegin + 1s), ByteArray{});
    put(line, {1}, kBegin);
    EXPECT_EQ(line.nextArrival(), kBegin + 11ms);
}

TEST(FaultEngine, BytesThatAreNotConsumedAreGivenOutAgain)
{
    FaultEngine line({}, 1);
    put(line, {1, 2, 3}, kBegin);
    EXPECT_EQ(line.arrived(kBegin).size, 3U);
    line.consume(1);
    EXPECT_EQ(line.waiting(), 2U);
    put(line, {4}, kBegin);
    EXPECT_EQ(taken(line, kBegin), (ByteArray{2, 3, 4}));
}

TEST(CutSchedule, WithoutAnIntervalThereAreNoCuts)
{
    CutSchedule cuts({}, 1);
    cuts.advance(kBegin);
    cuts.advance(kBegin + 1000h);
    EXPECT_FALSE(cuts.isCut());
    EXPECT_EQ(cuts.cuts(), 0U);
    EXPECT_EQ(cuts.nextChange(), HostLinkTime::max());
}

TEST(CutSchedule, CutsComeAroundTheirIntervalAndAreNoLongerThanAllowed)
{
    CutSchedule cuts({1s, 50ms}, 9);
    cuts.advance(kBegin);
    HostLinkTime changed = kBegin;
    while (cuts.cuts() < 1000) {
        const bool wasCut = cuts.isCut();
        const HostLinkTime next = cuts.nextChange();
        EXPECT_LE(next - changed, wasCut ? 50ms : 2s);
        changed = next;
        cuts.advance(next - 1ns);
        ASSERT_EQ(cuts.isCut(), wasCut);
        cuts.advance(next);
        ASSERT_NE(cuts.isCut(), wasCut);
    }
    EXPECT_NEAR(std::chrono::duration<double>(changed - kBegin).count(), 1025, 60);
}

TEST(CutSchedule, CutsThatNobodyLookedAtAreCounted)
{
    CutSchedule seen({1s, 50ms}, 9);
    CutSchedule missed({1s, 50ms}, 9);
    seen.advance(kBegin);
    missed.advance(kBegin);
    for (auto time = 0ms; time <= 100s; time += 1ms) {
        seen.advance(kBegin + time);
    }
    missed.advance(kBegin + 100s);
    EXPECT_GT(missed.cuts(), 80U);
    EXPECT_EQ(missed.cuts(), seen.cuts());
    EXPECT_EQ(missed.nextChange(), seen.nextChange());
}

} // namespace
