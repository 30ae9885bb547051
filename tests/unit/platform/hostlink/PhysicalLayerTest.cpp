#include "platform/hostlink/HostLinkPhysicalLayer.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <numeric>
#include <string>
#include <thread>

#include "platform/hostlink/ByteArray.h"
#include "support/CountingBytes.h"
#include "support/LineKind.h"
#include "support/LinkLogCapture.h"

namespace
{

using Layer = HostLinkPhysicalLayer;

std::size_t write(Layer& layer, const ByteArray& bytes)
{
    return layer.write(bytes.data(), bytes.size(), now());
}

bool bothUp(const Layer& a, const Layer& b)
{
    return a.lineNumber() != 0 && b.lineNumber() != 0;
}

/// Reads an end until it has brought that many bytes.
ByteArray readBytes(Layer& layer, std::size_t size)
{
    ByteArray all;
    EXPECT_TRUE(serviceUntil({&layer}, [&] {
        const ByteArray more = readNow(layer);
        all.insert(all.end(), more.begin(), more.end());
        return all.size() >= size;
    }));
    return all;
}

bool goesDown(Layer& layer, std::uint64_t lineNumber)
{
    return serviceUntil({&layer}, [&] {
        readNow(layer);
        return layer.lineNumber() != lineNumber;
    });
}

} // namespace

TEST(PhysicalLayerProperties, OneThatWasNotSetHasNoValue)
{
    Layer::Properties properties;
    EXPECT_EQ(properties.string(Layer::Device), std::nullopt);
    EXPECT_EQ(properties.integer(Layer::Address), std::nullopt);
}

TEST(PhysicalLayerProperties, KeepsTextAndNumbersByIndex)
{
    Layer::Properties properties;
    properties.setString(Layer::Device, "/dev/bus");
    properties.setInt(Layer::Address, 0);
    properties.setInt(Layer::BusTimeout, -1);
    EXPECT_EQ(properties.string(Layer::Device), "/dev/bus");
    EXPECT_EQ(properties.integer(Layer::Address), 0);
    EXPECT_EQ(properties.integer(Layer::BusTimeout), -1);
    EXPECT_EQ(properties.integer(Layer::Device), std::nullopt);
    properties.setInt(Layer::Address, 66);
    EXPECT_EQ(properties.integer(Layer::Address), 66);
}

TEST(PhysicalLayerRegistry, AnUnknownTypeStaysDownAndSaysSoOnce)
{
    const LinkLogCapture log;
    const auto layer = Layer::create("carrier-pigeon", {});
    ASSERT_NE(layer, nullptr);
    layer->open(now());
    layer->service(now());
    layer->close();
    layer->open(now());
    EXPECT_EQ(layer->lineNumber(), 0u);
    EXPECT_EQ(layer->nextService(), HostLinkTime::max());
    EXPECT_EQ(log.count("carrier-pigeon"), 1u);
}

TEST(PhysicalLayerRegistry, ATypeCanBeAddedAndReplaced)
{
    std::string device;
    int made = 0;
    Layer::registerType("registry-test", [&](const Layer::Properties& properties) {
        device = properties.string(Layer::Device).value_or("");
        return memoryLayerPair().first;
    });
    Layer::Properties properties;
    properties.setString(Layer::Device, "over there");
    EXPECT_NE(Layer::create("registry-test", properties), nullptr);
    EXPECT_EQ(device, "over there");
    Layer::registerType("registry-test", [&](const Layer::Properties&) {
        ++made;
        return memoryLayerPair().first;
    });
    EXPECT_NE(Layer::create("registry-test", properties), nullptr);
    EXPECT_EQ(made, 1);
}

TEST(PhysicalLayerRegistry, AFactoryThatMakesNothingGivesALayerThatStaysDown)
{
    const LinkLogCapture log;
    Layer::registerType("empty-test", [](const Layer::Properties&) { return nullptr; });
    const auto layer = Layer::create("empty-test", {});
    ASSERT_NE(layer, nullptr);
    layer->open(now());
    EXPECT_EQ(layer->lineNumber(), 0u);
    EXPECT_EQ(log.count("empty-test"), 1u);
}

TEST(PhysicalLayerRegistry, TypesAreAddedWhileOthersAreMade)
{
    std::thread adder([] {
        for (int i = 0; i < 200; ++i) {
            Layer::registerType("busy-" + std::to_string(i),
                                [](const Layer::Properties&) { return nullptr; });
        }
    });
    for (int i = 0; i < 200; ++i) {
        EXPECT_NE(Layer::create("busy-" + std::to_string(i), {}), nullptr);
    }
    adder.join();
}

class LineTest : public ::testing::TestWithParam<const char*>
{
protected:
    void connect()
    {
        m_listening->open(now());
        m_connecting->open(now());
        ASSERT_TRUE(comeUp());
    }

    bool comeUp()
    {
        return serviceUntil({m_listening.get(), m_connecting.get()},
                            [&] { return bothUp(*m_listening, *m_connecting); });
    }

    const std::unique_ptr<LineKind> m_line = LineKind::make(GetParam());
    std::unique_ptr<Layer> m_listening = m_line->listening();
    std::unique_ptr<Layer> m_connecting = m_line->connecting();
};

std::string kindOf(const ::testing::TestParamInfo<const char*>& info)
{
    return info.param;
}

std::ptrdiff_t openDescriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

/// Whether a descriptor of the layer is ready within some milliseconds.
bool isReady(const Layer& layer, bool writing, int milliseconds)
{
    std::vector<pollfd> descriptors;
    layer.waitOn(descriptors, writing);
    return ::poll(descriptors.data(), descriptors.size(), milliseconds) > 0;
}

/// What every line does.
class AnyLine : public LineTest
{
};

INSTANTIATE_TEST_SUITE_P(Kinds, AnyLine, ::testing::ValuesIn(kAllLines), kindOf);

TEST_P(AnyLine, IsDownAndTakesNothingBeforeItIsOpened)
{
    EXPECT_EQ(m_listening->lineNumber(), 0u);
    EXPECT_EQ(write(*m_listening, {1}), 0u);
    EXPECT_EQ(readNow(*m_listening), ByteArray{});
    EXPECT_EQ(m_listening->unsent(), 0u);
    EXPECT_EQ(m_listening->nextService(), HostLinkTime::max());
}

TEST_P(AnyLine, ComesUpWhenTheListeningSideStartsFirst)
{
    m_listening->open(now());
    m_listening->service(now());
    connect();
}

TEST_P(AnyLine, ComesUpWhenTheConnectingSideStartsFirst)
{
    m_connecting->open(now());
    for (int i = 0; i < 5; ++i) { // several attempts, each when it is due
        const HostLinkTime due = m_connecting->nextService();
        m_connecting->service(due == HostLinkTime::max() ? now() : due);
    }
    connect();
}

TEST_P(AnyLine, CarriesBytesInOrderBothWays)
{
    connect();
    const ByteArray there = countingBytes(700);
    const ByteArray back = countingBytes(300);
    EXPECT_EQ(write(*m_connecting, there), there.size());
    EXPECT_EQ(write(*m_listening, back), back.size());
    EXPECT_EQ(readBytes(*m_listening, there.size()), there);
    EXPECT_EQ(readBytes(*m_connecting, back.size()), back);
}

TEST_P(AnyLine, CarriesEveryByte)
{
    connect();
    ByteArray every(256);
    std::iota(every.begin(), every.end(), std::uint8_t(0));
    EXPECT_EQ(write(*m_connecting, every), every.size());
    EXPECT_EQ(write(*m_listening, every), every.size());
    EXPECT_EQ(readBytes(*m_listening, every.size()), every);
    EXPECT_EQ(readBytes(*m_connecting, every.size()), every);
}

TEST_P(AnyLine, GivesNoMoreThanIsAskedFor)
{
    connect();
    const ByteArray sent = countingBytes(100);
    EXPECT_EQ(write(*m_connecting, sent), sent.size());
    ByteArray got;
    EXPECT_TRUE(serviceUntil({m_listening.get()}, [&] {
        std::uint8_t bytes[8] = {0, 0, 0, 0, 0, 0, 0, 0xaa};
        const std::size_t size = m_listening->read(bytes, 7, now());
        EXPECT_LE(size, 7u);
        EXPECT_EQ(bytes[7], 0xaa);
        got.insert(got.end(), bytes, bytes + size);
        return got.size() >= sent.size();
    }));
    EXPECT_EQ(got, sent);
}

TEST_P(AnyLine, ReadingNothingLeavesItUp)
{
    connect();
    EXPECT_EQ(readNow(*m_listening), ByteArray{});
    EXPECT_EQ(readNow(*m_connecting), ByteArray{});
    EXPECT_TRUE(bothUp(*m_listening, *m_connecting));
}

TEST_P(AnyLine, PushesBackAndLosesNothing)
{
    connect();
    const ByteArray block = countingBytes(4096);
    ByteArray sent;
    std::size_t taken = block.size();
    while (taken == block.size()) {
        taken = write(*m_connecting, block);
        sent.insert(sent.end(), block.begin(), block.begin() + std::ptrdiff_t(taken));
        ASSERT_LT(sent.size(), 64u * 1024 * 1024);
    }
    ByteArray received;
    EXPECT_TRUE(serviceUntil({m_listening.get(), m_connecting.get()}, [&] {
        const ByteArray more = readNow(*m_listening);
        received.insert(received.end(), more.begin(), more.end());
        return received.size() >= sent.size();
    }));
    EXPECT_TRUE(received == sent);
    EXPECT_TRUE(isReady(*m_connecting, true, 10'000));
    EXPECT_GT(write(*m_connecting, block), 0u);
}

TEST_P(AnyLine, AQuietLineWakesNobody)
{
    connect();
    readNow(*m_listening);
    readNow(*m_connecting);
    EXPECT_FALSE(isReady(*m_listening, false, 0));
    EXPECT_FALSE(isReady(*m_connecting, false, 0));
    EXPECT_GT(m_listening->nextService(), now());
    EXPECT_GT(m_connecting->nextService(), now());
}

TEST_P(AnyLine, WhatComesInWakesOrIsLookedForWithinThePollTime)
{
    connect();
    for (Layer* layer : {m_listening.get(), m_connecting.get()}) {
        Layer& other = layer == m_listening.get() ? *m_connecting : *m_listening;
        readNow(*layer);
        const HostLinkTime limit = now() + layer->pollTime();
        EXPECT_EQ(write(other, {9}), 1u);
        std::vector<pollfd> descriptors;
        layer->waitOn(descriptors, false);
        EXPECT_TRUE(descriptors.empty() ? layer->nextService() <= limit : isReady(*layer, false, 10'000));
        EXPECT_EQ(readBytes(*layer, 1), ByteArray{9});
    }
}

TEST_P(AnyLine, NothingStaysBelowTheLink)
{
    connect();
    EXPECT_EQ(write(*m_listening, countingBytes(300)), 300u);
    EXPECT_EQ(readBytes(*m_connecting, 300), countingBytes(300));
    EXPECT_TRUE(serviceUntil({m_listening.get()}, [&] { return m_listening->unsent() == 0; }));
}

TEST_P(AnyLine, ClosingTakesItDownAtOnce)
{
    connect();
    m_listening->close();
    EXPECT_EQ(m_listening->lineNumber(), 0u);
    EXPECT_EQ(write(*m_listening, {1}), 0u);
    EXPECT_EQ(readNow(*m_listening), ByteArray{});
    EXPECT_EQ(m_listening->unsent(), 0u);
    EXPECT_EQ(m_listening->nextService(), HostLinkTime::max());
    m_listening->close();
}

TEST_P(AnyLine, CanBeOpenedAgainWithAnotherNumber)
{
    connect();
    const std::uint64_t first = m_listening->lineNumber();
    m_listening->close();
    m_listening->open(now());
    ASSERT_TRUE(serviceUntil({m_listening.get(), m_connecting.get()}, [&] {
        readNow(*m_connecting); // where the line shows it, this end sees that it went down
        return bothUp(*m_listening, *m_connecting) && m_listening->lineNumber() != first;
    }));
    EXPECT_EQ(write(*m_connecting, {7}), 1u);
    EXPECT_EQ(readBytes(*m_listening, 1), ByteArray{7});
}

TEST_P(AnyLine, OpenedAndClosedOftenItLeavesNoDescriptorBehind)
{
    connect();
    m_listening->close();
    m_connecting->close();
    const std::ptrdiff_t before = openDescriptors();
    for (int i = 0; i < 20; ++i) {
        connect();
        EXPECT_EQ(write(*m_connecting, {1, 2, 3}), 3u);
        m_connecting->close();
        m_listening->close();
    }
    EXPECT_EQ(openDescriptors(), before);
}

/// A line that keeps what was sent when the end that sent it closes.
class LineThatKeeps : public LineTest
{
};

INSTANTIATE_TEST_SUITE_P(Kinds, LineThatKeeps, ::testing::ValuesIn(kLinesThatKeep), kindOf);

TEST_P(LineThatKeeps, WhatAPeerSentBeforeItWentIsRead)
{
    connect();
    const ByteArray last = countingBytes(1500);
    EXPECT_EQ(write(*m_connecting, last), last.size());
    m_connecting.reset();
    EXPECT_EQ(readBytes(*m_listening, last.size()), last);
}

TEST_P(LineThatKeeps, AWriteToAPeerThatWentDoesNotCostWhatItSent)
{
    connect();
    const ByteArray last = countingBytes(100);
    EXPECT_EQ(write(*m_connecting, last), last.size());
    m_connecting.reset();
    for (int i = 0; i < 3; ++i) {
        write(*m_listening, {1, 2, 3});
    }
    EXPECT_EQ(readBytes(*m_listening, last.size()), last);
}

TEST_P(LineThatKeeps, WhatLiesUnreadAtOneThatClosesDoesNotCostWhatItSent)
{
    connect();
    EXPECT_EQ(write(*m_listening, {1, 2, 3}), 3u);
    EXPECT_EQ(write(*m_connecting, {4, 5, 6}), 3u);
    m_connecting->close();
    EXPECT_EQ(readBytes(*m_listening, 3), (ByteArray{4, 5, 6}));
}

/// A line that is up only while both ends are open.
class LineWithPeer : public LineTest
{
};

INSTANTIATE_TEST_SUITE_P(Kinds, LineWithPeer, ::testing::ValuesIn(kLinesWithPeer), kindOf);

TEST_P(LineWithPeer, IsDownUntilBothSidesAreOpen)
{
    m_listening->open(now());
    m_listening->service(now());
    EXPECT_EQ(m_listening->lineNumber(), 0u);
    EXPECT_EQ(write(*m_listening, {1}), 0u);
    EXPECT_EQ(readNow(*m_listening), ByteArray{});
    m_listening->close();
    m_connecting->open(now());
    EXPECT_EQ(m_connecting->lineNumber(), 0u);
}

TEST_P(LineWithPeer, GoesDownOnceThePeerThatWentIsReadToItsEnd)
{
    connect();
    const ByteArray last = countingBytes(1500);
    EXPECT_EQ(write(*m_connecting, last), last.size());
    m_connecting.reset();
    EXPECT_EQ(readBytes(*m_listening, last.size()), last);
    EXPECT_TRUE(serviceUntil({m_listening.get()}, [&] {
        EXPECT_EQ(readNow(*m_listening), ByteArray{});
        return m_listening->lineNumber() == 0;
    }));
}

TEST_P(LineWithPeer, GoesDownAfterAWriteToAPeerThatWent)
{
    connect();
    const ByteArray last = countingBytes(100);
    EXPECT_EQ(write(*m_connecting, last), last.size());
    m_connecting.reset();
    for (int i = 0; i < 3; ++i) {
        write(*m_listening, {1, 2, 3});
    }
    EXPECT_EQ(readBytes(*m_listening, last.size()), last);
    EXPECT_TRUE(goesDown(*m_listening, 1));
}

TEST_P(LineWithPeer, ComesUpAgainWithAnotherNumberAfterTheConnectingSideRestarted)
{
    connect();
    const std::uint64_t first = m_listening->lineNumber();
    m_connecting = m_line->connecting();
    m_connecting->open(now());
    EXPECT_TRUE(goesDown(*m_listening, first));
    ASSERT_TRUE(comeUp());
    EXPECT_NE(m_listening->lineNumber(), first);
    EXPECT_EQ(write(*m_connecting, {7}), 1u);
    EXPECT_EQ(readBytes(*m_listening, 1), ByteArray{7});
}

TEST_P(LineWithPeer, ComesUpAgainWithAnotherNumberAfterTheListeningSideRestarted)
{
    connect();
    const std::uint64_t first = m_connecting->lineNumber();
    m_listening.reset();
    EXPECT_TRUE(goesDown(*m_connecting, first));
    m_listening = m_line->listening();
    connect();
    EXPECT_NE(m_connecting->lineNumber(), first);
    EXPECT_EQ(write(*m_listening, {8}), 1u);
    EXPECT_EQ(readBytes(*m_connecting, 1), ByteArray{8});
}
