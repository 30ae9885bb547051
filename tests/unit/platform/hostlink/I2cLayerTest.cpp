#include "platform/hostlink/I2cLayer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <iterator>
#include <numeric>
#include <random>

#include "platform/hostlink/HostLinkPort.h"
#include "support/CountingBytes.h"
#include "support/I2cBus.h"
#include "support/LinkLogCapture.h"

using namespace std::chrono_literals;

namespace
{

using Layer = HostLinkPhysicalLayer;

/// A module's end and a host on a bus, on simulated time.
class I2cLayerTest : public ::testing::Test
{
protected:
    explicit I2cLayerTest(std::size_t maxTransfer = 64) : m_bus(std::make_shared<I2cBus>(maxTransfer)) {}
    ~I2cLayerTest() override { EXPECT_EQ(m_bus->breaches(), std::vector<std::string>()); }

    std::unique_ptr<Layer> makeLayer(const Layer::Properties& properties) const
    {
        return std::make_unique<I2cLayer>(properties, I2cBus::calls(m_bus), I2cBus::gpio(m_bus));
    }

    /// Services the layer when it is due, for as long as that, but reads nothing.
    int serviceFor(Layer& layer, HostLinkDuration span)
    {
        const HostLinkTime end = m_now + span;
        int services = 0;
        for (HostLinkTime due = layer.nextService(); due <= end; due = layer.nextService()) {
            m_now = std::max(m_now, due);
            layer.service(m_now);
            ++services;
            if (layer.nextService() == due) {
                break; // it is a read that is due
            }
        }
        m_now = end;
        return services;
    }

    bool comeUp()
    {
        m_host->open(m_now);
        m_layer->open(m_now);
        m_layer->service(m_now);
        m_bus->forgetTransfers();
        return m_layer->lineNumber() != 0;
    }

    ByteArray read(std::size_t max = 4096)
    {
        ByteArray bytes(max);
        bytes.resize(m_layer->read(bytes.data(), max, m_now));
        return bytes;
    }
    std::size_t write(const ByteArray& bytes) { return m_layer->write(bytes.data(), bytes.size(), m_now); }

    void hostWrites(const ByteArray& bytes)
    {
        EXPECT_EQ(m_host->write(bytes.data(), bytes.size(), m_now), bytes.size());
    }
    ByteArray hostReads()
    {
        ByteArray bytes(64 * 1024);
        bytes.resize(m_host->read(bytes.data(), bytes.size(), m_now));
        return bytes;
    }

    /// The sizes of the transfers since the last question, negative for reads.
    std::vector<int> transferSizes()
    {
        std::vector<int> sizes;
        for (const I2cBus::Transfer& transfer : m_bus->transfers()) {
            sizes.push_back(transfer.isRead ? -int(transfer.bytes.size()) : int(transfer.bytes.size()));
        }
        m_bus->forgetTransfers();
        return sizes;
    }

    HostLinkTime m_now = HostLinkTime(1h);
    const std::shared_ptr<I2cBus> m_bus;
    std::unique_ptr<Layer> m_layer = I2cBus::moduleEnd(m_bus);
    std::unique_ptr<Layer> m_host = I2cBus::hostEnd(m_bus);
};

class I2cLongTransferTest : public I2cLayerTest
{
protected:
    I2cLongTransferTest() : I2cLayerTest(8192) {}
};

/// The module's end has an interrupt line.
class I2cInterruptTest : public I2cLayerTest
{
protected:
    I2cInterruptTest() { m_layer = I2cBus::moduleEnd(m_bus, true); }

    bool isEdgeSeen() const
    {
        std::vector<pollfd> descriptors;
        m_layer->waitOn(descriptors, false);
        return ::poll(descriptors.data(), descriptors.size(), 0) == 1;
    }
};

/// Two whole links ends on a bus, on simulated time.
class I2cLinkTest : public I2cLayerTest
{
protected:
    I2cLinkTest()
    {
        m_module.open(m_now);
        m_peer.open(m_now);
    }

    bool stepUntil(const std::function<bool()>& predicate)
    {
        const HostLinkTime limit = m_now + 5min;
        while (m_now < limit) {
            for (int i = 0; i < 100; ++i) {
                m_module.step(m_now);
                m_peer.step(m_now);
                if (predicate()) {
                    return true;
                }
            }
            m_now = std::max(m_now + 1ms, std::min(m_module.deadline(), m_peer.deadline()));
        }
        return false;
    }

    bool established() const
    {
        return m_module.core().session() == HostLinkCore::Session::Established
               && m_peer.core().session() == HostLinkCore::Session::Established;
    }

    HostLinkPort m_module{I2cBus::moduleEnd(m_bus)};
    HostLinkPort m_peer{I2cBus::hostEnd(m_bus)};
};

} // namespace

TEST_F(I2cLayerTest, APollReadsOneByteAndNothingElseWhenThereIsNothing)
{
    ASSERT_TRUE(comeUp());
    EXPECT_EQ(read(), ByteArray());
    EXPECT_EQ(transferSizes(), (std::vector<int>{-1}));
}

TEST_F(I2cLayerTest, WhatIsReadyIsReadWithItsCountInOneTransfer)
{
    ASSERT_TRUE(comeUp());
    hostWrites(countingBytes(10));
    EXPECT_EQ(read(), countingBytes(10));
    EXPECT_EQ(transferSizes(), (std::vector<int>{-1, -11}));
    EXPECT_EQ(m_layer->nextService(), m_now); // there may be more by now
    EXPECT_EQ(read(), ByteArray());
    EXPECT_EQ(transferSizes(), (std::vector<int>{-1}));
}

TEST_F(I2cLayerTest, MoreThanATransferCarriesIsReadInSeveral)
{
    ASSERT_TRUE(comeUp());
    hostWrites(countingBytes(150));
    ByteArray got;
    for (const std::size_t part : {63u, 63u, 24u}) {
        EXPECT_EQ(m_layer->nextService() <= m_now, !got.empty());
        const ByteArray more = read();
        EXPECT_EQ(more.size(), part);
        got.insert(got.end(), more.begin(), more.end());
    }
    EXPECT_EQ(got, countingBytes(150));
    EXPECT_EQ(transferSizes(), (std::vector<int>{-1, -64, -64, -25}));
}

TEST_F(I2cLongTransferTest, ACountSaysAtMost254)
{
    ASSERT_TRUE(comeUp());
    hostWrites(countingBytes(600));
    ByteArray got;
    for (const std::size_t part : {254u, 254u, 92u}) {
        const ByteArray more = read();
        EXPECT_EQ(more.size(), part);
        got.insert(got.end(), more.begin(), more.end());
    }
    EXPECT_EQ(got, countingBytes(600));
    EXPECT_EQ(transferSizes(), (std::vector<int>{-1, -255, -1, -255, -1, -93}));
}

TEST_F(I2cLayerTest, WhatAReaderHasNoRoomForStaysWithTheHost)
{
    ASSERT_TRUE(comeUp());
    hostWrites(countingBytes(3));
    EXPECT_EQ(read(3), countingBytes(3));
    EXPECT_EQ(transferSizes(), (std::vector<int>{-1, -4}));
}

TEST_F(I2cLayerTest, BytesBeyondTheSecondCountAreNone)
{
    ASSERT_TRUE(comeUp());
    hostWrites(countingBytes(100));
    EXPECT_EQ(read(), countingBytes(63)); // 37 are left
    m_host->close();
    m_host->open(m_now); // and lost
    hostWrites({8, 9});
    EXPECT_EQ(read(), (ByteArray{8, 9}));
    EXPECT_EQ(transferSizes(), (std::vector<int>{-1, -64, -38}));
    EXPECT_EQ(read(), ByteArray());
}

TEST_F(I2cLayerTest, AWriteIsCutIntoTransfers)
{
    ASSERT_TRUE(comeUp());
    EXPECT_EQ(write(countingBytes(150)), 150u);
    EXPECT_EQ(hostReads(), countingBytes(150));
    EXPECT_EQ(transferSizes(), (std::vector<int>{64, 64, 22}));
    EXPECT_EQ(m_layer->unsent(), 0u);
}

TEST_F(I2cLayerTest, AWriteThatIsRefusedIsNotDoneAgainAndTheNextBeginsWithAZero)
{
    ASSERT_TRUE(comeUp());
    const std::uint64_t number = m_layer->lineNumber();
    m_bus->refuse(1);
    EXPECT_EQ(write(countingBytes(20)), 20u); // taken, as if it had been sent
    EXPECT_EQ(write({1, 2, 3}), 0u);          // the host is left in peace for a while
    m_now = m_layer->nextService();
    m_layer->service(m_now);
    EXPECT_EQ(write({4, 5}), 2u);
    EXPECT_EQ(write({6}), 1u);
    EXPECT_EQ(hostReads(), (ByteArray{0, 4, 5, 6}));
    EXPECT_EQ(m_layer->lineNumber(), number);
}

TEST_F(I2cLayerTest, AWriteThatBreaksOffIsNotResumedInside)
{
    ASSERT_TRUE(comeUp());
    EXPECT_EQ(write(countingBytes(64)), 64u);
    m_bus->breakOffAfter(10);
    EXPECT_EQ(write(countingBytes(200)), 200u);
    serviceFor(*m_layer, 5ms);
    EXPECT_EQ(write({7, 8}), 2u);
    ByteArray expected = countingBytes(64);
    const ByteArray begun = countingBytes(10);
    expected.insert(expected.end(), begun.begin(), begun.end());
    expected.insert(expected.end(), {0, 7, 8});
    EXPECT_EQ(hostReads(), expected);
}

TEST_F(I2cLayerTest, TheZeroCountsAmongTheBytesOfATransfer)
{
    ASSERT_TRUE(comeUp());
    m_bus->refuse(1);
    write({1});
    serviceFor(*m_layer, 5ms);
    m_bus->forgetTransfers();
    EXPECT_EQ(write(countingBytes(64)), 64u);
    EXPECT_EQ(transferSizes(), (std::vector<int>{64, 1}));
    ByteArray expected = countingBytes(64);
    expected.insert(expected.begin(), 0);
    EXPECT_EQ(hostReads(), expected);
}

TEST_F(I2cLayerTest, TheZeroIsStillDueWhenItsOwnTransferFails)
{
    ASSERT_TRUE(comeUp());
    m_bus->refuse(1);
    write({1});
    serviceFor(*m_layer, 5ms);
    m_bus->refuse(1);
    EXPECT_EQ(write({2}), 1u);
    serviceFor(*m_layer, 5ms);
    EXPECT_EQ(write({3}), 1u);
    EXPECT_EQ(hostReads(), (ByteArray{0, 3}));
}

TEST_F(I2cLayerTest, AfterAReadThatFailedTheNextWriteBeginsWithAZeroToo)
{
    ASSERT_TRUE(comeUp());
    hostWrites(countingBytes(20));
    m_bus->breakOffAfter(5);
    EXPECT_EQ(read(), ByteArray());
    EXPECT_EQ(read(), ByteArray());
    serviceFor(*m_layer, 5ms);
    EXPECT_EQ(write({3}), 1u);
    EXPECT_EQ(hostReads(), (ByteArray{0, 3}));
    EXPECT_EQ(read(), countingBytes(16, 5)); // four bytes were clocked out and are gone
}

TEST_F(I2cLayerTest, AHostThatIsBusyForAMomentKeepsTheLine)
{
    ASSERT_TRUE(comeUp());
    const std::uint64_t number = m_layer->lineNumber();
    m_bus->refuse(4);
    read();
    serviceFor(*m_layer, 240ms);
    EXPECT_EQ(m_layer->lineNumber(), number);
    hostWrites({1});
    EXPECT_EQ(read(), ByteArray{1});
}

TEST_F(I2cLayerTest, AHostThatStaysAwayTakesTheLineDownUntilItAnswersAgain)
{
    ASSERT_TRUE(comeUp());
    const std::uint64_t number = m_layer->lineNumber();
    m_host->close();
    read();
    serviceFor(*m_layer, 10s);
    EXPECT_EQ(m_layer->lineNumber(), 0u);
    EXPECT_EQ(write({1}), 0u);
    m_host->open(m_now);
    serviceFor(*m_layer, 1s);
    EXPECT_NE(m_layer->lineNumber(), 0u);
    EXPECT_NE(m_layer->lineNumber(), number);
}

TEST_F(I2cLayerTest, TroubleIsSaidOnceAndRetriedSeldom)
{
    const LinkLogCapture log;
    m_layer->open(m_now);
    const int attempts = serviceFor(*m_layer, 1min);
    EXPECT_GE(attempts, 60);
    EXPECT_LE(attempts, 70);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count("i2c:/dev/i2c-3: no answer from address 0x77: No such device or address"), 1u);
}

TEST_F(I2cLayerTest, TroubleThatComesBackLaterIsSaidAgain)
{
    const LinkLogCapture log;
    ASSERT_TRUE(comeUp());
    for (int i = 1; i <= 3; ++i) {
        m_host->close();
        read();
        serviceFor(*m_layer, 10s);
        EXPECT_EQ(log.lines().size(), std::size_t(i));
        m_host->open(m_now);
        serviceFor(*m_layer, 1s);
        ASSERT_NE(m_layer->lineNumber(), 0u);
    }
}

TEST_F(I2cLayerTest, AHostThatRefusesNowAndThenIsNotTalkedAboutEachTime)
{
    const LinkLogCapture log;
    ASSERT_TRUE(comeUp());
    for (int i = 0; i < 100; ++i) {
        m_bus->refuse(1);
        EXPECT_EQ(write({1}), 1u);
        serviceFor(*m_layer, 5ms);
    }
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(I2cLayerTest, ADeviceThatVanishesIsLetGoOfAndTakenAgain)
{
    const LinkLogCapture log;
    ASSERT_TRUE(comeUp());
    const std::uint64_t number = m_layer->lineNumber();
    EXPECT_EQ(m_bus->openNodes(), 1);
    m_bus->setMissing(true);
    read();
    EXPECT_EQ(m_bus->openNodes(), 0); // an adapter cannot go while somebody holds it
    serviceFor(*m_layer, 10s);
    EXPECT_EQ(m_layer->lineNumber(), 0u);
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count("not there"), 1u);
    m_bus->setMissing(false);
    serviceFor(*m_layer, 1s);
    EXPECT_GT(m_layer->lineNumber(), number);
    hostWrites({1});
    EXPECT_EQ(read(), ByteArray{1});
}

TEST_F(I2cLayerTest, ADeviceThatIsMissingAtTheStartIsWaitedFor)
{
    const LinkLogCapture log;
    m_bus->setMissing(true);
    m_host->open(m_now);
    m_layer->open(m_now);
    serviceFor(*m_layer, 10s);
    EXPECT_EQ(m_layer->lineNumber(), 0u);
    EXPECT_EQ(log.lines().size(), 1u);
    m_bus->setMissing(false);
    serviceFor(*m_layer, 1s);
    EXPECT_NE(m_layer->lineNumber(), 0u);
}

TEST_F(I2cLayerTest, ABusThatNobodyDrivesGivesNoBytes)
{
    const LinkLogCapture log;
    ASSERT_TRUE(comeUp());
    m_bus->setUndriven(true);
    EXPECT_EQ(read(), ByteArray());
    EXPECT_EQ(transferSizes(), (std::vector<int>{-1}));
    EXPECT_EQ(write({1}), 0u);
    serviceFor(*m_layer, 1s);
    EXPECT_EQ(m_layer->lineNumber(), 0u);
    EXPECT_EQ(log.count("nobody drives the bus"), 1u);
    EXPECT_EQ(log.lines().size(), 1u);
    m_bus->setUndriven(false);
    serviceFor(*m_layer, 1s);
    EXPECT_NE(m_layer->lineNumber(), 0u);
}

TEST_F(I2cLayerTest, ABusThatIsNoMoreDrivenBetweenPollAndReadGivesNoBytes)
{
    ASSERT_TRUE(comeUp());
    hostWrites(countingBytes(100));
    EXPECT_EQ(read(), countingBytes(63));
    m_bus->setUndriven(true);
    EXPECT_EQ(read(), ByteArray());
}

TEST_F(I2cLayerTest, AnAdapterWithoutPlainTransfersIsSaid)
{
    const LinkLogCapture log;
    m_bus->setAbilities(I2C_FUNC_SMBUS_BYTE);
    m_host->open(m_now);
    m_layer->open(m_now);
    serviceFor(*m_layer, 10s);
    EXPECT_EQ(m_layer->lineNumber(), 0u);
    EXPECT_EQ(log.count("SMBus only"), 1u);
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(m_bus->openNodes(), 0);
}

TEST_F(I2cLayerTest, ARealFileThatIsNoBusIsSaid)
{
    const LinkLogCapture log;
    Layer::Properties properties;
    properties.setString(Layer::Device, "/dev/null");
    const auto layer = Layer::create("i2c", properties);
    layer->open(m_now);
    serviceFor(*layer, 10s);
    EXPECT_EQ(layer->lineNumber(), 0u);
    EXPECT_EQ(log.count("i2c:/dev/null: the device is no I2C bus"), 1u);
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(I2cLayerTest, ARealDeviceThatIsMissingIsSaid)
{
    const LinkLogCapture log;
    Layer::Properties properties;
    properties.setString(Layer::Device, "/dev/i2c-that-is-not-there");
    const auto layer = Layer::create("i2c", properties);
    layer->open(m_now);
    serviceFor(*layer, 10s);
    EXPECT_EQ(log.count("not there"), 1u);
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(I2cLayerTest, PropertiesThatCannotBeAreSaidOnceAndNothingIsTried)
{
    using Set = std::function<void(Layer::Properties&)>;
    const std::pair<Set, const char*> kWrong[] = {
        {[](auto& p) { p.setString(Layer::Device, ""); }, "no device"},
        {[](auto& p) { p.setInt(Layer::Address, 7); }, "not 7"},
        {[](auto& p) { p.setInt(Layer::Address, 120); }, "not 120"},
        {[](auto& p) { p.setInt(Layer::Address, -1); }, "not -1"},
        {[](auto& p) { p.setInt(Layer::MaxTransfer, 1); }, "not 1"},
        {[](auto& p) { p.setInt(Layer::MaxTransfer, 8193); }, "not 8193"},
        {[](auto& p) { p.setInt(Layer::BusTimeout, 0); }, "not 0"},
        {[](auto& p) { p.setInt(Layer::InterruptLine, -2); }, "GPIO line"},
        {[](auto& p) { p.setInt(Layer::ResetLine, -2); }, "GPIO line"},
    };
    for (const auto& [set, text] : kWrong) {
        const LinkLogCapture log;
        Layer::Properties properties = I2cBus::properties();
        set(properties);
        const auto layer = makeLayer(properties);
        layer->open(m_now);
        layer->open(m_now);
        EXPECT_EQ(layer->nextService(), HostLinkTime::max()) << text;
        EXPECT_EQ(log.lines().size(), 1u) << text;
        EXPECT_EQ(log.count(text), 1u) << text;
    }
    EXPECT_EQ(m_bus->transferCount(), 0u);
}

TEST_F(I2cLayerTest, TheBusTimeOutIsRoundedUpToTheKernelsUnit)
{
    Layer::Properties properties = I2cBus::properties();
    properties.setInt(Layer::BusTimeout, 31);
    m_layer = makeLayer(properties);
    ASSERT_TRUE(comeUp());
    EXPECT_EQ(m_bus->timeoutUnits(), 4u);
}

TEST_F(I2cLayerTest, TheWorkersFixedLinkWorks)
{
    Layer::Properties properties;
    properties.setString(0, "/dev/i2c-3");
    properties.setInt(1, 7);
    properties.setInt(2, 119);
    properties.setInt(4, 1000);
    properties.setInt(5, 115200);
    properties.setString(6, "none");
    properties.setInt(7, 1);
    properties.setInt(8, 64);
    m_layer = makeLayer(properties);
    ASSERT_TRUE(comeUp());
    EXPECT_EQ(m_bus->timeoutUnits(), 100u);
    EXPECT_EQ(m_bus->resetLevels(), std::vector<bool>());
    std::vector<pollfd> descriptors;
    m_layer->waitOn(descriptors, false);
    EXPECT_EQ(descriptors.size(), 1u); // the interrupt line
    hostWrites(countingBytes(100));
    EXPECT_EQ(read(), countingBytes(63));
    EXPECT_EQ(write(countingBytes(100)), 100u);
    EXPECT_EQ(transferSizes(), (std::vector<int>{-1, -64, 64, 36}));
}

TEST_F(I2cLayerTest, WhatIsNotSetIsTheWorkersLinkWithoutLines)
{
    Layer::Properties properties;
    properties.setString(Layer::Device, I2cBus::kDevice);
    m_layer = makeLayer(properties);
    ASSERT_TRUE(comeUp());
    EXPECT_EQ(m_bus->timeoutUnits(), 100u);
    EXPECT_EQ(write(countingBytes(65)), 65u);
    EXPECT_EQ(transferSizes(), (std::vector<int>{64, 1}));
    EXPECT_NE(m_layer->nextService(), HostLinkTime::max());
}

TEST_F(I2cLayerTest, OpeningTouchesNoDevice)
{
    m_bus->setMissing(true);
    m_layer->open(m_now);
    m_bus->setMissing(false);
    m_host->open(m_now);
    EXPECT_EQ(m_bus->transferCount(), 0u);
    EXPECT_EQ(m_layer->nextService(), m_now);
    m_layer->service(m_now);
    EXPECT_NE(m_layer->lineNumber(), 0u);
}

TEST_F(I2cLayerTest, IsPolledEach5MsForASecondAfterTrafficAndThenLessAndLess)
{
    ASSERT_TRUE(comeUp());
    hostWrites(countingBytes(11));
    EXPECT_EQ(read().size(), 11u);
    const HostLinkTime traffic = m_now;
    std::vector<int> pauses;
    while (m_now < traffic + 2s) {
        EXPECT_EQ(read(), ByteArray());
        pauses.push_back(int((m_layer->nextService() - m_now) / 1ms));
        m_now = m_layer->nextService();
    }
    EXPECT_EQ(std::count(pauses.begin(), pauses.end(), 5), 200);
    EXPECT_EQ(std::vector<int>(pauses.begin() + 200, pauses.begin() + 204),
              (std::vector<int>{10, 20, 40, 40}));
    EXPECT_EQ(pauses.back(), 40);
}

TEST_F(I2cLayerTest, AWriteIsTrafficToo)
{
    ASSERT_TRUE(comeUp());
    m_now += 2s;
    for (int i = 0; i < 5; ++i) {
        read();
    }
    EXPECT_EQ(m_layer->nextService(), m_now + 40ms);
    EXPECT_EQ(write(countingBytes(11)), 11u);
    EXPECT_EQ(m_layer->nextService(), m_now + 5ms);
}

TEST_F(I2cLayerTest, AKeepAliveIsNoTraffic)
{
    ASSERT_TRUE(comeUp());
    m_now += 2s;
    for (int i = 0; i < 5; ++i) {
        read();
    }
    EXPECT_EQ(write(countingBytes(10)), 10u);
    hostWrites(countingBytes(10));
    EXPECT_EQ(read().size(), 10u);
    EXPECT_EQ(read(), ByteArray());
    EXPECT_EQ(m_layer->nextService(), m_now + 40ms);
}

TEST_F(I2cLayerTest, BytesNeverLieLongerThanThePollTime)
{
    ASSERT_TRUE(comeUp());
    EXPECT_EQ(m_layer->pollTime(), 40ms);
    for (int i = 0; i < 1000; ++i) {
        read();
        EXPECT_LE(m_layer->nextService() - m_now, m_layer->pollTime());
        m_now = m_layer->nextService();
    }
}

TEST_F(I2cInterruptTest, ReplacesPolling)
{
    ASSERT_TRUE(comeUp());
    EXPECT_EQ(read(), ByteArray());
    EXPECT_EQ(m_layer->nextService(), HostLinkTime::max());
    EXPECT_FALSE(isEdgeSeen());
    hostWrites(countingBytes(70));
    EXPECT_TRUE(isEdgeSeen());
    EXPECT_EQ(read(), countingBytes(63));
    EXPECT_FALSE(isEdgeSeen());
    EXPECT_EQ(m_layer->nextService(), m_now);
    EXPECT_EQ(read(), countingBytes(7, 64));
    EXPECT_EQ(read(), ByteArray());
    EXPECT_EQ(m_layer->nextService(), HostLinkTime::max());
    EXPECT_EQ(write(countingBytes(20)), 20u);
    EXPECT_EQ(m_layer->nextService(), HostLinkTime::max());
}

TEST_F(I2cInterruptTest, BytesThatComeBetweenTheEdgeAndTheEndOfDrainingAreFound)
{
    ASSERT_TRUE(comeUp());
    hostWrites(countingBytes(70));
    EXPECT_EQ(read(), countingBytes(63));
    hostWrites(countingBytes(5, 71)); // the line is low already: no edge
    EXPECT_FALSE(isEdgeSeen());
    EXPECT_LE(m_layer->nextService(), m_now);
    EXPECT_EQ(read(), countingBytes(7, 64)); // what the host had told of
    EXPECT_LE(m_layer->nextService(), m_now);
    EXPECT_EQ(read(), countingBytes(5, 71));
}

TEST_F(I2cInterruptTest, ALineThatIsStillLowAfterDrainingIsPolled)
{
    ASSERT_TRUE(comeUp());
    m_bus->fixInterrupt(true);
    EXPECT_EQ(read(), ByteArray());
    EXPECT_EQ(m_layer->nextService(), m_now + 5ms);
    m_bus->fixInterrupt(false);
    m_now += 5ms;
    EXPECT_EQ(read(), ByteArray());
    EXPECT_EQ(m_layer->nextService(), HostLinkTime::max());
}

TEST_F(I2cInterruptTest, ALineThatIsNotConnectedCostsTimeButNoBytes)
{
    m_bus->fixInterrupt(false);
    ASSERT_TRUE(comeUp());
    hostWrites(countingBytes(5));
    EXPECT_FALSE(isEdgeSeen());
    EXPECT_EQ(read(), countingBytes(5)); // as with each step of the link
}

TEST_F(I2cInterruptTest, WithoutAChipItIsPolledWithoutAWord)
{
    const LinkLogCapture log;
    m_bus->setGpio(false);
    ASSERT_TRUE(comeUp());
    read();
    EXPECT_EQ(m_layer->nextService(), m_now + 5ms);
    std::vector<pollfd> descriptors;
    m_layer->waitOn(descriptors, false);
    EXPECT_TRUE(descriptors.empty());
    EXPECT_EQ(log.lines().size(), 0u);
}

TEST_F(I2cInterruptTest, ALineThatIsNotToBeHadIsSaidAndPolled)
{
    const LinkLogCapture log;
    m_bus->setGpio(true, "Device or resource busy");
    ASSERT_TRUE(comeUp());
    read();
    EXPECT_EQ(m_layer->nextService(), m_now + 5ms);
    EXPECT_EQ(log.count("interrupt line: Device or resource busy"), 1u);
}

TEST_F(I2cInterruptTest, AHostThatIsNotThereIsNotWaitedForByItsLine)
{
    ASSERT_TRUE(comeUp());
    hostWrites({1});
    m_bus->refuse(1);
    read();
    std::vector<pollfd> descriptors;
    m_layer->waitOn(descriptors, false);
    EXPECT_TRUE(descriptors.empty()); // nobody would take the edge, and the thread would spin
    serviceFor(*m_layer, 5ms);
    EXPECT_EQ(read(), ByteArray{1});
}

TEST_F(I2cLayerTest, AResetLineResetsTheHostBeforeTheFirstTransfer)
{
    Layer::Properties properties = I2cBus::properties();
    properties.setInt(Layer::ResetLine, 9);
    m_layer = makeLayer(properties);
    m_host->open(m_now);
    m_layer->open(m_now);
    m_layer->service(m_now);
    EXPECT_EQ(m_bus->resetLevels(), (std::vector<bool>{true}));
    EXPECT_EQ(m_layer->nextService(), m_now + 10ms);
    EXPECT_EQ(m_bus->transferCount(), 0u);
    serviceFor(*m_layer, 10ms);
    EXPECT_EQ(m_bus->resetLevels(), (std::vector<bool>{true, false}));
    EXPECT_NE(m_layer->lineNumber(), 0u);
    m_host->close();
    read();
    serviceFor(*m_layer, 10s);
    m_host->open(m_now);
    serviceFor(*m_layer, 1s);
    EXPECT_NE(m_layer->lineNumber(), 0u);
    EXPECT_EQ(m_bus->resetLevels().size(), 2u); // a host that was away is not reset
}

TEST_F(I2cLayerTest, AResetThatIsNotToBeHadIsSaidAndDoneWithout)
{
    const LinkLogCapture log;
    m_bus->setGpio(false);
    Layer::Properties properties = I2cBus::properties();
    properties.setInt(Layer::ResetLine, 9);
    m_layer = makeLayer(properties);
    EXPECT_TRUE(comeUp());
    EXPECT_EQ(log.count("cannot reset the host: there is no GPIO chip"), 1u);
}

TEST_F(I2cLinkTest, MessagesOfAllSizesGoBothWays)
{
    ASSERT_TRUE(stepUntil([&] { return established(); }));
    for (const std::size_t size : {2u, 50u, 63u, 64u, 65u, 501u, 502u, 4000u}) {
        ByteArray message = countingBytes(size);
        message[0] = 0;
        message[1] = 1;
        ByteArray got;
        ASSERT_TRUE(m_module.core().send(message, m_now));
        ASSERT_TRUE(stepUntil([&] { return m_peer.core().take(got); }));
        EXPECT_EQ(got, message);
        m_peer.core().handled();
        ASSERT_TRUE(m_peer.core().send(message, m_now));
        ASSERT_TRUE(stepUntil([&] { return m_module.core().take(got); }));
        EXPECT_EQ(got, message);
        m_module.core().handled();
    }
    EXPECT_EQ(m_module.core().counters().framesDamaged, 0u);
    EXPECT_EQ(m_peer.core().counters().framesDamaged, 0u);
}

TEST_F(I2cLinkTest, ABusThatFailsAllTheTimeLosesAndRepeatsNothing)
{
    const LinkLogCapture log;
    ASSERT_TRUE(stepUntil([&] { return established(); }));
    std::mt19937 random(4711);
    const auto below = [&](std::size_t bound) {
        return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random);
    };
    constexpr int kRounds = 150;
    int received[2] = {0, 0};
    const auto take = [&](HostLinkPort& port, int* count) {
        ByteArray message;
        while (port.core().take(message)) {
            EXPECT_EQ(message[2], std::uint8_t(*count));
            ++*count;
            port.core().handled();
        }
    };
    for (int i = 0; i < kRounds; ++i) {
        ByteArray message(3 + below(700));
        message[1] = 1;
        message[2] = std::uint8_t(i);
        ASSERT_TRUE(m_module.core().send(message, m_now));
        ASSERT_TRUE(m_peer.core().send(message, m_now));
        if (below(2) == 0) {
            m_bus->breakOffAfter(below(64));
        } else {
            m_bus->refuse(int(below(4)));
        }
        ASSERT_TRUE(stepUntil([&] {
            take(m_module, &received[0]);
            take(m_peer, &received[1]);
            return received[0] > i - 5 && received[1] > i - 5;
        }));
    }
    EXPECT_TRUE(stepUntil([&] {
        take(m_module, &received[0]);
        take(m_peer, &received[1]);
        return received[0] == kRounds && received[1] == kRounds;
    }));
    EXPECT_EQ(m_module.core().sessionNumber(), 1u);
    EXPECT_EQ(m_peer.core().sessionNumber(), 1u);
    EXPECT_GT(m_module.core().counters().framesRepeated + m_peer.core().counters().framesRepeated, 0u);
    EXPECT_LE(log.lines().size(), 2u); // no answer, for each of two reasons
}

TEST_F(I2cLinkTest, ALongStreamOneWayDoesNotKeepTheOtherWaiting)
{
    ASSERT_TRUE(stepUntil([&] { return established(); }));
    m_bus->forgetTransfers();
    ASSERT_TRUE(m_module.core().send(ByteArray(20'000, 1), m_now));
    ASSERT_TRUE(m_peer.core().send({0, 1, 2}, m_now));
    m_peer.step(m_now);
    ByteArray message;
    while (!m_module.core().take(message)) {
        m_module.step(m_now);
        ASSERT_LT(m_bus->transferCount(), 40u); // one frame and its polls are some ten
    }
    EXPECT_EQ(message, (ByteArray{0, 1, 2}));
}
