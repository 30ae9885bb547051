#include "platform/hostlink/HostLinkPort.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "support/MemoryLayer.h"

using namespace std::chrono_literals;

namespace
{

const ByteArray kRequest{0x00, 0x01, 0x12, 0x34};

/// Passes calls on, counts reads and writes, and can hold back what was written.
class ProbeLayer : public HostLinkPhysicalLayer
{
public:
    struct Probe {
        int reads = 0;
        int writes = 0;
        int services = 0;
        std::size_t unsent = 0;
        std::size_t batchSize = 0;
        HostLinkTime nextService = HostLinkTime::max();
        HostLinkDuration pollTime{};
    };

    ProbeLayer(std::unique_ptr<HostLinkPhysicalLayer> layer, Probe& probe)
        : m_layer(std::move(layer)), m_probe(probe)
    {
    }
    void open(HostLinkTime now) override { m_layer->open(now); }
    void close() override { m_layer->close(); }
    void service(HostLinkTime now) override
    {
        ++m_probe.services;
        m_layer->service(now);
    }
    std::uint64_t lineNumber() const override { return m_layer->lineNumber(); }
    std::size_t read(std::uint8_t* to, std::size_t max, HostLinkTime now) override
    {
        ++m_probe.reads;
        return m_layer->read(to, max, now);
    }
    std::size_t write(const std::uint8_t* from, std::size_t size, HostLinkTime now) override
    {
        ++m_probe.writes;
        return m_layer->write(from, size, now);
    }
    std::size_t unsent() const override { return m_probe.unsent; }
    std::size_t batchSize() const override { return m_probe.batchSize; }
    void waitOn(std::vector<pollfd>& descriptors, bool writing) const override
    {
        m_layer->waitOn(descriptors, writing);
    }
    HostLinkTime nextService() const override { return m_probe.nextService; }
    HostLinkDuration pollTime() const override { return m_probe.pollTime; }

private:
    std::unique_ptr<HostLinkPhysicalLayer> m_layer;
    Probe& m_probe;
};

/// Two ports on a line in memory, on simulated time. The first one's layer is probed.
class PortTest : public ::testing::Test
{
protected:
    explicit PortTest(std::size_t capacity = 64 * 1024) : m_line(std::make_shared<MemoryLine>(capacity))
    {
        m_port.open(m_now);
        m_peer.open(m_now);
    }

    void stepBoth()
    {
        m_port.step(m_now);
        m_peer.step(m_now);
    }

    /// Steps both and lets the time run from deadline to deadline, for a minute at most.
    bool stepUntil(const std::function<bool()>& predicate)
    {
        const HostLinkTime limit = m_now + 1min;
        while (m_now < limit) {
            for (int i = 0; i < 200; ++i) { // a narrow line takes many steps at one time
                stepBoth();
                if (predicate()) {
                    return true;
                }
            }
            m_now = std::max(m_now + 1ms, std::min(m_port.deadline(), m_peer.deadline()));
        }
        return false;
    }

    bool established()
    {
        return m_port.core().session() == HostLinkCore::Session::Established
               && m_peer.core().session() == HostLinkCore::Session::Established;
    }

    bool peerGot(const ByteArray& expected)
    {
        ByteArray message;
        return m_peer.core().take(message) && message == expected;
    }

    HostLinkTime m_now = HostLinkTime(1h);
    std::shared_ptr<MemoryLine> m_line;
    ProbeLayer::Probe m_probe;
    HostLinkPort m_port{std::make_unique<ProbeLayer>(MemoryLine::makeEnd(m_line, 0), m_probe)};
    HostLinkPort m_peer{MemoryLine::makeEnd(m_line, 1)};
};

class NarrowLinePortTest : public PortTest
{
protected:
    NarrowLinePortTest() : PortTest(5) {}
};

} // namespace

TEST_F(PortTest, CarriesMessagesBothWays)
{
    ASSERT_TRUE(stepUntil([&] { return established(); }));
    EXPECT_TRUE(m_port.core().send(kRequest, m_now));
    EXPECT_TRUE(stepUntil([&] { return peerGot(kRequest); }));
    EXPECT_TRUE(m_peer.core().send(kRequest, m_now));
    ByteArray message;
    EXPECT_TRUE(stepUntil([&] { return m_port.core().take(message); }));
    EXPECT_EQ(message, kRequest);
}

TEST_F(PortTest, ALayerGetsFramesTogetherAsItLikesThem)
{
    ASSERT_TRUE(stepUntil([&] { return established(); }));
    const auto writesFor = [&](std::size_t batchSize) {
        m_probe.batchSize = batchSize;
        m_probe.writes = 0;
        ByteArray large(4000, 0x55);
        large[0] = 0;
        EXPECT_TRUE(m_port.core().send(large, m_now));
        m_port.step(m_now);
        const int writes = m_probe.writes;
        EXPECT_TRUE(stepUntil([&] { return peerGot(large); }));
        return writes;
    };
    EXPECT_EQ(writesFor(0), 8);
    EXPECT_EQ(writesFor(1000), 4);
    EXPECT_EQ(writesFor(100'000), 1);
}

TEST_F(NarrowLinePortTest, FramesTogetherSurviveALineThatTakesThemInParts)
{
    m_probe.batchSize = 1000;
    ASSERT_TRUE(stepUntil([&] { return established(); }));
    ByteArray large(3000, 0x55);
    large[0] = 0;
    EXPECT_TRUE(m_port.core().send(large, m_now));
    EXPECT_TRUE(stepUntil([&] { return peerGot(large); }));
    EXPECT_EQ(m_port.core().counters().framesRepeated, 0U);
}

TEST_F(PortTest, ASmallMessageCostsOneReadAndNothingElseBelow)
{
    ASSERT_TRUE(stepUntil([&] { return established(); }));
    EXPECT_TRUE(m_peer.core().send(kRequest, m_now));
    m_peer.flush(m_now);
    m_probe = {};
    m_port.step(m_now);
    ByteArray message;
    EXPECT_TRUE(m_port.core().take(message));
    EXPECT_EQ(m_probe.reads, 1);
    EXPECT_EQ(m_probe.services, 0);
}

TEST_F(PortTest, ASmallMessageIsOneWrite)
{
    ASSERT_TRUE(stepUntil([&] { return established(); }));
    m_probe = {};
    EXPECT_TRUE(m_port.core().send(kRequest, m_now));
    m_port.flush(m_now);
    EXPECT_EQ(m_probe.writes, 1);
    EXPECT_EQ(m_probe.reads, 0);
    m_peer.step(m_now);
    EXPECT_TRUE(peerGot(kRequest));
}

TEST_F(PortTest, ALineThatIsNeverQuietIsServicedAllTheSame)
{
    ASSERT_TRUE(stepUntil([&] { return established(); }));
    m_probe = {};
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(m_peer.core().send(kRequest, m_now));
        m_peer.step(m_now);
        m_port.step(m_now);
        ByteArray message;
        ASSERT_TRUE(m_port.core().take(message));
        m_port.core().handled();
        m_now += 1ms;
    }
    EXPECT_GE(m_probe.services, 5);
    EXPECT_LE(m_probe.services, 20);
}

TEST_F(PortTest, AServiceThatIsDueIsDoneEvenWhenBytesComeIn)
{
    ASSERT_TRUE(stepUntil([&] { return established(); }));
    EXPECT_TRUE(m_peer.core().send(kRequest, m_now));
    m_peer.flush(m_now);
    m_probe = {};
    m_probe.nextService = m_now;
    m_port.step(m_now);
    EXPECT_EQ(m_probe.services, 1);
    EXPECT_EQ(m_port.deadline(), m_now);
}

TEST_F(PortTest, NoSecondFrameGoesBelowTheLinkWhileOneIsNotOnTheWire)
{
    ASSERT_TRUE(stepUntil([&] { return established(); }));
    m_probe = {};
    m_probe.unsent = 3;
    m_probe.nextService = m_now + 2ms;
    EXPECT_TRUE(m_port.core().send(kRequest, m_now));
    m_port.flush(m_now);
    EXPECT_EQ(m_probe.writes, 0);
    EXPECT_TRUE(m_port.sending());
    EXPECT_EQ(m_port.deadline(), m_now + 2ms);
    m_probe.unsent = 0;
    m_port.flush(m_now);
    EXPECT_EQ(m_probe.writes, 1);
    EXPECT_FALSE(m_port.sending());
}

TEST_F(PortTest, APeerThatNeverStopsSendingDoesNotHoldAStep)
{
    /// A line with endless bytes on it.
    class EndlessLayer : public HostLinkPhysicalLayer
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
    HostLinkPort port(std::make_unique<EndlessLayer>());
    port.open(m_now);
    port.step(m_now);
    EXPECT_GT(port.core().counters().framesSent, 0u); // its own greeting went out all the same
}

TEST_F(PortTest, WithoutALineItWaitsForTheLayerOnly)
{
    m_peer.close();
    ASSERT_TRUE(stepUntil([&] { return m_port.layer().lineNumber() == 0; }));
    m_probe = {};
    EXPECT_EQ(m_port.deadline(), HostLinkTime::max());
    EXPECT_TRUE(m_port.core().send(kRequest, m_now));
    m_port.flush(m_now);
    EXPECT_EQ(m_probe.writes, 0);
    m_probe.nextService = m_now + 7ms;
    EXPECT_EQ(m_port.deadline(), m_now + 7ms);
}

TEST_F(PortTest, ACutLineLosesAndRepeatsNothing)
{
    ASSERT_TRUE(stepUntil([&] { return established(); }));
    std::uint8_t next = 0;
    for (std::uint8_t i = 0; i < 50; ++i) {
        EXPECT_TRUE(m_port.core().send({0, 1, i}, m_now));
        m_port.flush(m_now);
        m_line->cut();
        m_line->mend();
        m_port.step(m_now);
        m_peer.step(m_now);
    }
    EXPECT_TRUE(stepUntil([&] {
        ByteArray message;
        while (m_peer.core().take(message)) {
            EXPECT_EQ(message, (ByteArray{0, 1, next++}));
        }
        return next == 50;
    }));
    EXPECT_EQ(m_port.core().sessionNumber(), 1u);
}

TEST_F(PortTest, TheLinksTimeOutsAllowForALayerThatPolls)
{
    ProbeLayer::Probe polling;
    polling.pollTime = 400ms;
    const auto line = std::make_shared<MemoryLine>();
    HostLinkPort port(std::make_unique<ProbeLayer>(MemoryLine::makeEnd(line, 0), polling));
    HostLinkPort peer(MemoryLine::makeEnd(line, 1));
    port.open(m_now);
    peer.open(m_now);
    for (int i = 0; i < 10; ++i) {
        port.step(m_now);
        peer.step(m_now);
    }
    ASSERT_EQ(port.core().session(), HostLinkCore::Session::Established);
    for (int i = 0; i < 20; ++i) { // quick round trips bring the time-out down to its floor
        EXPECT_TRUE(port.core().send(kRequest, m_now));
        port.step(m_now);
        peer.step(m_now);
        m_now += 5ms;
        peer.step(m_now);
        port.step(m_now);
    }
    EXPECT_TRUE(port.core().send(kRequest, m_now));
    port.flush(m_now);
    EXPECT_GE(port.deadline(), m_now + 400ms);
}

TEST_F(NarrowLinePortTest, AFrameThatDoesNotFitGoesOutInPieces)
{
    ASSERT_TRUE(stepUntil([&] { return established(); }));
    ByteArray message(1000);
    message[1] = 1;
    EXPECT_TRUE(m_port.core().send(message, m_now));
    m_port.flush(m_now);
    EXPECT_TRUE(m_port.writing());
    EXPECT_TRUE(stepUntil([&] { return peerGot(message); }));
}

TEST_F(NarrowLinePortTest, WhileTheLinePushesBackItWaitsForRoomOnly)
{
    ASSERT_TRUE(stepUntil([&] { return established(); }));
    EXPECT_TRUE(m_port.core().send(ByteArray(1000, 1), m_now));
    m_port.flush(m_now);
    EXPECT_EQ(m_port.deadline(), HostLinkTime::max());
}

TEST_F(NarrowLinePortTest, AFrameThatWasCutOffIsNotResumedOnTheNextLine)
{
    ASSERT_TRUE(stepUntil([&] { return established(); }));
    EXPECT_TRUE(m_port.core().send(kRequest, m_now));
    m_port.flush(m_now);
    ASSERT_TRUE(m_port.writing());
    m_line->cut();
    stepBoth();
    m_line->mend();
    EXPECT_TRUE(stepUntil([&] { return peerGot(kRequest); }));
    EXPECT_EQ(m_peer.core().counters().framesDamaged, 0u);
}

TEST_F(PortTest, ClosingEndsTheLineForThePeer)
{
    ASSERT_TRUE(stepUntil([&] { return established(); }));
    m_port.close();
    EXPECT_TRUE(stepUntil([&] { return m_peer.layer().lineNumber() == 0; }));
}
