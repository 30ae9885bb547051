#include "platform/hostlink/FaultLayer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <numeric>
#include <random>

#include "platform/hostlink/BigEndian.h"
#include "platform/hostlink/HostLinkPort.h"
#include "support/LineKind.h"
#include "support/LinkLogCapture.h"
#include "support/MemoryLayer.h"

using namespace std::chrono_literals;

namespace
{

using Layer = HostLinkPhysicalLayer;

FaultSettings faults(const std::string& text)
{
    std::string error;
    const std::optional<FaultSettings> settings = FaultSettings::parse(text, &error);
    EXPECT_TRUE(settings) << error;
    return settings.value_or(FaultSettings{});
}

/// A faulty end and an end without faults of a line in memory, on simulated time.
class FaultLayerTest : public ::testing::Test
{
protected:
    void connect(const std::string& text, std::size_t capacity = 64 * 1024)
    {
        m_line = std::make_shared<MemoryLine>(capacity);
        m_faulty = std::make_unique<FaultLayer>(MemoryLine::makeEnd(m_line, 0), faults(text));
        m_plain = MemoryLine::makeEnd(m_line, 1);
        m_plain->open(m_now);
        m_faulty->open(m_now);
        m_plain->service(m_now);
        m_faulty->service(m_now);
        ASSERT_NE(m_faulty->lineNumber(), 0U);
    }

    std::size_t write(Layer& layer, const ByteArray& bytes)
    {
        return layer.write(bytes.data(), bytes.size(), m_now);
    }

    ByteArray read(Layer& layer, std::size_t most = 4096)
    {
        ByteArray bytes(most);
        bytes.resize(layer.read(bytes.data(), most, m_now));
        return bytes;
    }

    /// Lets the time run from service to service until `predicate` holds.
    bool runUntil(const std::function<bool()>& predicate, HostLinkDuration limit = 10s)
    {
        const HostLinkTime end = m_now + limit;
        for (int idle = 0; !predicate(); ++idle) {
            const HostLinkTime next = m_faulty->nextService();
            if (next > end || idle > 10'000) {
                return false;
            }
            m_now = std::max(m_now, next);
            m_faulty->service(m_now);
        }
        return true;
    }

    /// True when poll() would return for what the faulty end waits for.
    bool isReady()
    {
        std::vector<pollfd> descriptors;
        m_faulty->waitOn(descriptors, false);
        return ::poll(descriptors.data(), descriptors.size(), 0) > 0;
    }

    HostLinkTime m_now{1h};
    std::shared_ptr<MemoryLine> m_line;
    std::unique_ptr<FaultLayer> m_faulty;
    std::unique_ptr<Layer> m_plain;
};

TEST_F(FaultLayerTest, WithoutFaultsItIsTheLineBelow)
{
    connect("");
    EXPECT_EQ(write(*m_faulty, {1, 2}), 2U);
    EXPECT_EQ(m_faulty->unsent(), 0U);
    EXPECT_EQ(read(*m_plain), (ByteArray{1, 2}));
    EXPECT_EQ(write(*m_plain, {3}), 1U);
    EXPECT_EQ(read(*m_faulty), ByteArray{3});
    EXPECT_EQ(m_faulty->nextService(), HostLinkTime::max());
}

TEST_F(FaultLayerTest, EachDirectionHasItsOwnFaults)
{
    connect("drop.in=1&dup.out=1");
    EXPECT_EQ(write(*m_faulty, {1, 2}), 2U);
    EXPECT_EQ(read(*m_plain), (ByteArray{1, 1, 2, 2}));
    EXPECT_EQ(write(*m_plain, {3}), 1U);
    EXPECT_EQ(read(*m_faulty), ByteArray{});
}

TEST_F(FaultLayerTest, DelayedBytesComeWithoutAnybodyBeingReady)
{
    connect("delay.out=5&delay.in=7");
    EXPECT_EQ(write(*m_faulty, {1}), 1U);
    EXPECT_EQ(m_faulty->unsent(), 0U);
    EXPECT_EQ(m_faulty->nextService(), m_now + 5ms);
    EXPECT_EQ(write(*m_plain, {2}), 1U);
    EXPECT_TRUE(isReady());
    EXPECT_EQ(read(*m_faulty), ByteArray{});
    EXPECT_FALSE(isReady());
    m_now += 5ms;
    EXPECT_EQ(read(*m_plain), ByteArray{});
    m_faulty->service(m_now);
    EXPECT_EQ(read(*m_plain), ByteArray{1});
    EXPECT_EQ(m_faulty->nextService(), m_now + 2ms);
    m_now += 2ms;
    EXPECT_EQ(read(*m_faulty), ByteArray{2});
    EXPECT_EQ(m_faulty->nextService(), HostLinkTime::max());
}

TEST_F(FaultLayerTest, ASlowLineTakesLessAndTellsWhatIsUnsent)
{
    connect("rate.out=1000");
    const ByteArray block(1000, 7);
    const std::size_t taken = write(*m_faulty, block);
    EXPECT_GT(taken, 0U);
    EXPECT_LT(taken, block.size());
    EXPECT_EQ(m_faulty->unsent(), taken);
    EXPECT_EQ(write(*m_faulty, block), 0U);
    const HostLinkTime begin = m_now;
    m_now = m_faulty->nextService();
    EXPECT_GT(m_now, begin);
    m_faulty->service(m_now);
    EXPECT_LT(m_faulty->unsent(), taken);
    EXPECT_GT(write(*m_faulty, block), 0U);
}

TEST_F(FaultLayerTest, ASlowLineCarriesItsRateAndNoMore)
{
    connect("rate.out=11520");
    const HostLinkTime begin = m_now;
    std::size_t sent = 0;
    std::size_t got = 0;
    const ByteArray block(511, 7);
    ASSERT_TRUE(runUntil([&] {
        sent += write(*m_faulty, block);
        got += read(*m_plain).size();
        return got >= 50'000;
    }));
    const double seconds = std::chrono::duration<double>(m_now - begin).count();
    EXPECT_LE(double(got) / seconds, 11520.5);
    EXPECT_GE(double(got) / seconds, 11519);
    EXPECT_LE(sent - got, 300U);
}

TEST_F(FaultLayerTest, ASlowLineReadsNoMoreThanItCarriesAndWakesNobodyMeanwhile)
{
    connect("rate.in=1000", 4000);
    EXPECT_EQ(write(*m_plain, ByteArray(10'000, 1)), 4000U);
    read(*m_faulty);
    const std::size_t room = write(*m_plain, ByteArray(10'000, 1));
    EXPECT_LE(room, 300U); // the rest is still below: the other side sees that the line pushes back
    EXPECT_FALSE(isReady());
    const HostLinkTime begin = m_now;
    std::size_t got = 0;
    int services = 0;
    ASSERT_TRUE(runUntil([&] {
        ++services;
        got += read(*m_faulty).size();
        return got >= 4000;
    }));
    EXPECT_NEAR(std::chrono::duration<double>(m_now - begin).count(), 4, 0.1);
    EXPECT_LE(services, 300);
}

TEST_F(FaultLayerTest, APushingLineBelowIsWaitedForAndIsUnsent)
{
    connect("flip=0", 5);
    EXPECT_EQ(write(*m_faulty, {1, 2, 3, 4, 5, 6, 7, 8}), 8U);
    EXPECT_EQ(m_faulty->unsent(), 3U);
    EXPECT_EQ(m_faulty->nextService(), HostLinkTime::max());
    EXPECT_FALSE(isReady());
    EXPECT_EQ(read(*m_plain), (ByteArray{1, 2, 3, 4, 5}));
    EXPECT_TRUE(isReady());
    m_faulty->service(m_now);
    EXPECT_EQ(m_faulty->unsent(), 0U);
    EXPECT_EQ(read(*m_plain), (ByteArray{6, 7, 8}));
}

TEST_F(FaultLayerTest, ACutTakesTheLineDownAndBringsItUpWithAnotherNumber)
{
    connect("cut=1&outage=100&delay=1");
    const std::uint64_t first = m_faulty->lineNumber();
    ASSERT_TRUE(runUntil([&] { return m_faulty->lineNumber() == 0; }));
    EXPECT_EQ(write(*m_faulty, {1}), 0U);
    EXPECT_EQ(write(*m_plain, {2}), 1U); // lost in the cut, which the other side does not see
    EXPECT_NE(m_plain->lineNumber(), 0U);
    EXPECT_EQ(read(*m_faulty), ByteArray{});
    const HostLinkTime down = m_now;
    ASSERT_TRUE(runUntil([&] { return m_faulty->lineNumber() != 0; }));
    EXPECT_LE(m_now - down, 100ms);
    EXPECT_GT(m_faulty->lineNumber(), first);
    EXPECT_EQ(write(*m_plain, {3}), 1U);
    read(*m_faulty);
    m_now += 1ms;
    EXPECT_EQ(read(*m_faulty), ByteArray{3});
}

TEST_F(FaultLayerTest, ACutThatIsOverBeforeAnybodyLooksIsSeenAllTheSame)
{
    connect("cut=1&delay=1");
    const std::uint64_t first = m_faulty->lineNumber();
    EXPECT_EQ(write(*m_faulty, {1}), 1U);
    m_now += 1h;
    for (int i = 0; i < 100 && m_faulty->lineNumber() == 0; ++i, m_now += 10ms) {
        m_faulty->service(m_now);
    }
    m_faulty->service(m_now);
    EXPECT_NE(m_faulty->lineNumber(), first);
    EXPECT_EQ(read(*m_plain), ByteArray{}); // what was on the line is gone
}

TEST_F(FaultLayerTest, WhatThePeerSentBeforeItWentArrivesBeforeTheLineGoesDown)
{
    connect("delay.in=20");
    EXPECT_EQ(write(*m_plain, {1, 2}), 2U);
    m_plain->close();
    EXPECT_EQ(read(*m_faulty), ByteArray{});
    EXPECT_NE(m_faulty->lineNumber(), 0U);
    m_now += 20ms;
    EXPECT_EQ(read(*m_faulty), (ByteArray{1, 2}));
    read(*m_faulty);
    EXPECT_EQ(m_faulty->lineNumber(), 0U);
    m_plain->open(m_now);
    m_faulty->service(m_now);
    EXPECT_NE(m_faulty->lineNumber(), 0U);
}

TEST_F(FaultLayerTest, ClosingHandsOverWhatIsOnTheWire)
{
    connect("delay.out=20");
    EXPECT_EQ(write(*m_faulty, {1, 2}), 2U);
    m_faulty->close();
    EXPECT_EQ(m_faulty->lineNumber(), 0U);
    EXPECT_EQ(read(*m_plain), (ByteArray{1, 2}));
}

TEST_F(FaultLayerTest, APeerThatNeverStopsSendingDoesNotHoldARead)
{
    /// A line with endless bytes on it.
    class EndlessLayer : public Layer
    {
    public:
        void open(HostLinkTime) override {}
        void close() override {}
        void service(HostLinkTime) override {}
        std::uint64_t lineNumber() const override { return 1; }
        std::size_t read(std::uint8_t* to, std::size_t max, HostLinkTime) override
        {
            std::fill_n(to, max, std::uint8_t(0x55));
            return max;
        }
        std::size_t write(const std::uint8_t*, std::size_t size, HostLinkTime) override { return size; }
        void waitOn(std::vector<pollfd>&, bool) const override {}
    };
    FaultLayer layer(std::make_unique<EndlessLayer>(), faults("drop=1"));
    layer.open(m_now);
    EXPECT_EQ(read(layer), ByteArray{});
    FaultLayer cut(std::make_unique<EndlessLayer>(), faults("cut=0.001&outage=60000"));
    cut.open(m_now);
    m_now += 1s;
    EXPECT_EQ(read(cut), ByteArray{});
    EXPECT_EQ(cut.lineNumber(), 0U);
}

TEST(FaultyLayerOfTheRegistry, PropertyFaultsMakesALineFaulty)
{
    Layer::registerType("faults-test", [](const Layer::Properties&) { return memoryLayerPair().first; });
    Layer::Properties properties;
    EXPECT_EQ(dynamic_cast<FaultLayer*>(Layer::create("faults-test", properties).get()), nullptr);
    properties.setString(Layer::Faults, "drop=0.5");
    EXPECT_NE(dynamic_cast<FaultLayer*>(Layer::create("faults-test", properties).get()), nullptr);
}

TEST(FaultyLayerOfTheRegistry, FaultsThatCannotBeReadGiveALineThatStaysDownAndSaysWhy)
{
    const LinkLogCapture log;
    Layer::registerType("faults-test", [](const Layer::Properties&) { return memoryLayerPair().first; });
    Layer::Properties properties;
    properties.setString(Layer::Faults, "drop=5");
    const auto layer = Layer::create("faults-test", properties);
    layer->open(HostLinkTime(1h));
    EXPECT_EQ(layer->lineNumber(), 0U);
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{
                  "drop is a probability per byte, a number from 0 to 1, not '5': the link stays down"});
}

/// Two ports with a faulty line below the first one, on simulated time.
class FaultyPorts : public ::testing::TestWithParam<const char*>
{
protected:
    bool stepUntil(const std::function<bool()>& predicate)
    {
        const HostLinkTime limit = m_now + 10min;
        while (m_now < limit) {
            for (int i = 0; i < 3; ++i) {
                m_port.step(m_now);
                m_peer.step(m_now);
                collect(m_port, m_atPort);
                collect(m_peer, m_atPeer);
                if (predicate()) {
                    return true;
                }
            }
            m_now = std::max(m_now + 50us, std::min(m_port.deadline(), m_peer.deadline()));
        }
        return false;
    }

    void collect(HostLinkPort& port, std::vector<ByteArray>& to)
    {
        ByteArray message;
        while (port.core().take(message)) {
            port.core().handled();
            to.push_back(message);
        }
    }

    HostLinkTime m_now{1h};
    std::shared_ptr<MemoryLine> m_line = std::make_shared<MemoryLine>();
    HostLinkPort m_port{std::make_unique<FaultLayer>(MemoryLine::makeEnd(m_line, 0), faults(GetParam()))};
    HostLinkPort m_peer{MemoryLine::makeEnd(m_line, 1)};
    std::vector<ByteArray> m_atPort;
    std::vector<ByteArray> m_atPeer;
};

TEST_P(FaultyPorts, EveryMessageArrivesOnceAndInOrder)
{
    m_port.open(m_now);
    m_peer.open(m_now);
    std::mt19937 random(1);
    std::vector<ByteArray> sent;
    for (std::uint16_t i = 0; i < 500; ++i) {
        ByteArray message(4 + random() % 300, std::uint8_t(i));
        message[0] = 0;
        message[1] = 1;
        writeBigEndian(&message[2], i);
        sent.push_back(message);
    }
    for (const ByteArray& message : sent) {
        ASSERT_TRUE(m_port.core().send(message, m_now));
        ASSERT_TRUE(m_peer.core().send(message, m_now));
        const HostLinkTime next = m_now + std::chrono::microseconds(random() % 20'000);
        stepUntil([&] { return m_now >= next; });
    }
    EXPECT_TRUE(stepUntil([&] { return m_atPeer.size() >= sent.size() && m_atPort.size() >= sent.size(); }));
    EXPECT_EQ(m_atPeer, sent);
    EXPECT_EQ(m_atPort, sent);
    EXPECT_EQ(m_port.core().sessionNumber(), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, FaultyPorts,
    ::testing::Values("", "drop=0.0005&flip=0.0005&dup=0.0005&insert=0.0005&burst=50", "delay=3&rate=50000",
                      "cut=0.5&delay=0.2", "split=0.5&merge=0.5", "cut.in=0.5&outage=30",
                      "cut.out=0.5&outage=30",
                      "drop=0.0002&flip=0.0002&dup=0.0002&insert=0.0002&burst=20&split=0.1"
                      "&merge=0.1&delay=1&rate=40000&cut=2&cut.in=3&cut.out=3"));

} // namespace
