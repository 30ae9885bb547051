#include "platform/hostlink/HostLinkPhysicalLayer.h"

#include <gtest/gtest.h>

#include <numeric>
#include <string>
#include <thread>

#include "platform/hostlink/ByteArray.h"
#include "support/LineKind.h"
#include "support/LinkLogCapture.h"

namespace
{

using Layer = HostLinkPhysicalLayer;

HostLinkTime now()
{
    return HostLinkClock::now();
}

ByteArray countingBytes(std::size_t size)
{
    ByteArray bytes(size);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t(1));
    return bytes;
}

std::size_t write(Layer& layer, const ByteArray& bytes)
{
    return layer.write(bytes.data(), bytes.size(), now());
}

/// What can be read now.
ByteArray readNow(Layer& layer)
{
    ByteArray all;
    std::uint8_t buffer[512];
    for (;;) {
        const std::size_t size = layer.read(buffer, sizeof buffer, now());
        all.insert(all.end(), buffer, buffer + size);
        if (size < sizeof buffer) {
            return all;
        }
    }
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

/// What every line does.
class AnyLine : public ::testing::TestWithParam<std::string>
{
protected:
    void connect()
    {
        m_listening->open(now());
        m_connecting->open(now());
        ASSERT_TRUE(serviceUntil({m_listening.get(), m_connecting.get()},
                                 [&] { return bothUp(*m_listening, *m_connecting); }));
    }

    const std::unique_ptr<LineKind> m_line = LineKind::make(GetParam());
    std::unique_ptr<Layer> m_listening = m_line->listening();
    std::unique_ptr<Layer> m_connecting = m_line->connecting();
};

INSTANTIATE_TEST_SUITE_P(Kinds, AnyLine, ::testing::Values("unix", "tcp", "memory", "faulty"),
                         [](const auto& kind) { return kind.param; });

TEST_P(AnyLine, IsDownUntilBothSidesAreOpen)
{
    EXPECT_EQ(m_listening->lineNumber(), 0u);
    m_listening->open(now());
    m_listening->service(now());
    EXPECT_EQ(m_listening->lineNumber(), 0u);
    EXPECT_EQ(write(*m_listening, {1}), 0u);
    EXPECT_EQ(readNow(*m_listening), ByteArray{});
}

TEST_P(AnyLine, ComesUpWhenTheListeningSideStartsFirst)
{
    connect();
}

TEST_P(AnyLine, ComesUpWhenTheConnectingSideStartsFirst)
{
    m_connecting->open(now());
    for (int i = 0; i < 5; ++i) { // several attempts, each when it is due
        const HostLinkTime due = m_connecting->nextService();
        m_connecting->service(due == HostLinkTime::max() ? now() : due);
    }
    EXPECT_EQ(m_connecting->lineNumber(), 0u);
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
    std::vector<pollfd> descriptors;
    m_connecting->waitOn(descriptors, true);
    EXPECT_EQ(::poll(descriptors.data(), descriptors.size(), 10'000), 1);
    EXPECT_GT(write(*m_connecting, block), 0u);
}

TEST_P(AnyLine, WhatAPeerSentBeforeItWentIsReadFirst)
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

TEST_P(AnyLine, AWriteToAPeerThatWentDoesNotCostWhatItSent)
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

TEST_P(AnyLine, WhatLiesUnreadAtOneThatClosesDoesNotCostWhatItSent)
{
    connect();
    EXPECT_EQ(write(*m_listening, {1, 2, 3}), 3u);
    EXPECT_EQ(write(*m_connecting, {4, 5, 6}), 3u);
    m_connecting->close();
    EXPECT_EQ(readBytes(*m_listening, 3), (ByteArray{4, 5, 6}));
}

TEST_P(AnyLine, ComesUpAgainWithAnotherNumberAfterTheConnectingSideRestarted)
{
    connect();
    const std::uint64_t first = m_listening->lineNumber();
    m_connecting = m_line->connecting();
    m_connecting->open(now());
    EXPECT_TRUE(goesDown(*m_listening, first));
    ASSERT_TRUE(serviceUntil({m_listening.get(), m_connecting.get()},
                             [&] { return bothUp(*m_listening, *m_connecting); }));
    EXPECT_NE(m_listening->lineNumber(), first);
    EXPECT_EQ(write(*m_connecting, {7}), 1u);
    EXPECT_EQ(readBytes(*m_listening, 1), ByteArray{7});
}

TEST_P(AnyLine, ComesUpAgainWithAnotherNumberAfterTheListeningSideRestarted)
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

TEST_P(AnyLine, ClosingTakesItDownAtOnce)
{
    connect();
    m_listening->close();
    EXPECT_EQ(m_listening->lineNumber(), 0u);
    EXPECT_EQ(write(*m_listening, {1}), 0u);
    m_listening->close();
}

TEST_P(AnyLine, CanBeOpenedAgain)
{
    connect();
    const std::uint64_t first = m_listening->lineNumber();
    m_listening->close();
    EXPECT_TRUE(goesDown(*m_connecting, m_connecting->lineNumber()));
    connect();
    EXPECT_NE(m_listening->lineNumber(), first);
}
