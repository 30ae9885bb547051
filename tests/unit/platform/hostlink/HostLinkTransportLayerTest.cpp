#include "platform/hostlink/HostLinkTransportLayer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/hostlink/HostLinkPort.h"
#include "platform/hostlink/HostLinkTrace.h"
#include "support/LineKind.h"
#include "support/LinkLogCapture.h"

using namespace std::chrono_literals;

namespace
{

using Layer = HostLinkPhysicalLayer;

constexpr auto kPatience = 20s; ///< for what must happen, however slow the machine

ByteArray stateMessage(std::size_t size, std::uint8_t fill)
{
    ByteArray message(size, fill);
    message[0] = 0;
    message[1] = MSG_GetState;
    return message;
}

ByteArray bulkMessage(std::size_t size)
{
    ByteArray message(size, 0x5a);
    message[0] = 0;
    message[1] = MSG_DataTransfer;
    return message;
}

/// Something that happens on other threads and is waited for.
class Event
{
public:
    void set()
    {
        const std::lock_guard lock(m_mutex);
        m_set = true;
        m_changed.notify_all();
    }
    bool wait()
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, kPatience, [this] { return m_set; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_set = false;
};

/// Messages that an observer got.
class Inbox
{
public:
    HostLinkTransportLayer::MessageReceivedObserver observer()
    {
        return [this](const ByteArray& message) {
            const std::lock_guard lock(m_mutex);
            m_messages.push_back(message);
            m_bytes += message.size();
            m_changed.notify_all();
        };
    }

    /// The next message; empty when none comes.
    ByteArray next()
    {
        std::unique_lock lock(m_mutex);
        if (!m_changed.wait_for(lock, kPatience, [this] { return !m_messages.empty(); })) {
            return {};
        }
        ByteArray message = std::move(m_messages.front());
        m_messages.pop_front();
        return message;
    }

    std::size_t bytes() const
    {
        const std::lock_guard lock(m_mutex);
        return m_bytes;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<ByteArray> m_messages;
    std::size_t m_bytes = 0;
};

/// A transport with an inbox, which tells the transport of each message that it was handled.
struct End {
    explicit End(std::unique_ptr<Layer> layer) : transport(std::move(layer))
    {
        transport.addMessageReceivedObserver(inbox.observer());
        transport.addMessageReceivedObserver([this](const ByteArray&) { transport.messageHandled(); });
    }
    ~End() { transport.stop(); }

    Inbox inbox;
    HostLinkTransportLayer transport;
};

/// A host that steps its port inline until something holds.
class InlineHost
{
public:
    explicit InlineHost(std::unique_ptr<Layer> layer) : m_port(std::move(layer))
    {
        m_port.open(HostLinkClock::now());
    }
    ~InlineHost() { m_port.close(); }

    template <typename Predicate>
    bool stepUntil(Predicate predicate)
    {
        const HostLinkTime limit = HostLinkClock::now() + kPatience;
        for (;;) {
            m_port.step(HostLinkClock::now());
            if (predicate()) {
                return true;
            }
            const HostLinkTime now = HostLinkClock::now();
            if (now >= limit) {
                return false;
            }
            std::vector<pollfd> descriptors;
            m_port.waitOn(descriptors);
            const HostLinkTime due = std::min(m_port.deadline(), limit);
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(std::max(due, now) - now);
            ::poll(descriptors.data(), descriptors.size(), int(left.count()));
        }
    }

    ByteArray next()
    {
        ByteArray message;
        stepUntil([&] { return m_port.core().take(message); });
        return message;
    }

    bool establish()
    {
        return stepUntil([&] { return m_port.core().session() == HostLinkCore::Session::Established; });
    }

    HostLinkPort& port() { return m_port; }
    HostLinkCore& core() { return m_port.core(); }

private:
    HostLinkPort m_port;
};

class TransportOnAnyLine : public ::testing::TestWithParam<const char*>
{
protected:
    const std::unique_ptr<LineKind> m_line = LineKind::make(GetParam());
};

INSTANTIATE_TEST_SUITE_P(Kinds, TransportOnAnyLine, ::testing::ValuesIn(kAllLines),
                         [](const auto& kind) { return std::string(kind.param); });

class TransportTest : public ::testing::Test
{
protected:
    std::shared_ptr<MemoryLine> m_line = std::make_shared<MemoryLine>();

    std::unique_ptr<Layer> layer() const { return MemoryLine::makeEnd(m_line, 0); }
    std::unique_ptr<Layer> hostLayer() const { return MemoryLine::makeEnd(m_line, 1); }
};

/// A device that can get stuck in a transfer. It says on which threads transfers were done.
class BlockingLayer : public Layer
{
public:
    struct Device {
        std::mutex mutex;
        std::condition_variable changed;
        bool stuck = false;
        bool inTransfer = false;
        bool destroyed = false;
        bool writeDue = false;  ///< something was sent that has not been written
        bool sleptOnIt = false; ///< the thread went to sleep meanwhile
        std::vector<std::thread::id> threads;

        void setStuck(bool value)
        {
            const std::lock_guard lock(mutex);
            stuck = value;
            changed.notify_all();
        }
        template <typename Predicate>
        bool waitFor(Predicate predicate)
        {
            std::unique_lock lock(mutex);
            return changed.wait_for(lock, kPatience, predicate);
        }
    };

    BlockingLayer(std::unique_ptr<Layer> layer, std::shared_ptr<Device> device)
        : m_layer(std::move(layer)), m_device(std::move(device))
    {
    }
    ~BlockingLayer() override
    {
        const std::lock_guard lock(m_device->mutex);
        m_device->destroyed = true;
        m_device->changed.notify_all();
    }
    void open(HostLinkTime now) override { m_layer->open(now); }
    void close() override { m_layer->close(); }
    void service(HostLinkTime now) override { m_layer->service(now); }
    std::uint64_t lineNumber() const override { return m_layer->lineNumber(); }
    std::size_t read(std::uint8_t* to, std::size_t max, HostLinkTime now) override
    {
        transfer();
        return m_layer->read(to, max, now);
    }
    std::size_t write(const std::uint8_t* from, std::size_t size, HostLinkTime now) override
    {
        transfer();
        const std::lock_guard lock(m_device->mutex);
        m_device->writeDue = false;
        return m_layer->write(from, size, now);
    }
    void waitOn(std::vector<pollfd>& descriptors, bool writing) const override
    {
        const std::lock_guard lock(m_device->mutex);
        m_device->sleptOnIt = m_device->sleptOnIt || m_device->writeDue;
        m_layer->waitOn(descriptors, writing);
    }
    bool blocks() const override { return true; }

private:
    void transfer()
    {
        std::unique_lock lock(m_device->mutex);
        m_device->threads.push_back(std::this_thread::get_id());
        m_device->inTransfer = true;
        m_device->changed.notify_all();
        m_device->changed.wait(lock, [this] { return !m_device->stuck; });
        m_device->inTransfer = false;
    }

    std::unique_ptr<Layer> m_layer;
    std::shared_ptr<Device> m_device;
};

/// Loses one write when told to.
class LossyLayer : public Layer
{
public:
    LossyLayer(std::unique_ptr<Layer> layer, std::atomic<bool>& loseNext)
        : m_layer(std::move(layer)), m_loseNext(loseNext)
    {
    }
    void open(HostLinkTime now) override { m_layer->open(now); }
    void close() override { m_layer->close(); }
    void service(HostLinkTime now) override { m_layer->service(now); }
    std::uint64_t lineNumber() const override { return m_layer->lineNumber(); }
    std::size_t read(std::uint8_t* to, std::size_t max, HostLinkTime now) override
    {
        return m_layer->read(to, max, now);
    }
    std::size_t write(const std::uint8_t* from, std::size_t size, HostLinkTime now) override
    {
        return m_loseNext.exchange(false) ? size : m_layer->write(from, size, now);
    }
    void waitOn(std::vector<pollfd>& descriptors, bool writing) const override
    {
        m_layer->waitOn(descriptors, writing);
    }

private:
    std::unique_ptr<Layer> m_layer;
    std::atomic<bool>& m_loseNext;
};

/// The place of a virtual function in its class, in the C++ ABI that all our platforms use.
template <typename Function>
std::ptrdiff_t placeOf(Function function)
{
    std::ptrdiff_t place = 0;
    std::memcpy(&place, &function, sizeof place);
    return place;
}

} // namespace

TEST_P(TransportOnAnyLine, CarriesMessagesBothWays)
{
    End module(m_line->listening());
    End host(m_line->connecting());
    EXPECT_NE(module.transport.start(), 0);
    EXPECT_NE(host.transport.start(), 0);
    for (std::uint8_t i = 0; i < 50; ++i) {
        ASSERT_NE(host.transport.send(stateMessage(20, i)), 0);
        ASSERT_EQ(module.inbox.next(), stateMessage(20, i));
        ASSERT_NE(module.transport.send(stateMessage(3000, i)), 0);
        ASSERT_EQ(host.inbox.next(), stateMessage(3000, i));
    }
}

TEST_P(TransportOnAnyLine, WhatWasSentBeforeAnyPeerWaitsForTheFirst)
{
    End module(m_line->listening());
    EXPECT_NE(module.transport.send(stateMessage(10, 1)), 0);
    module.transport.start();
    EXPECT_NE(module.transport.send(stateMessage(10, 2)), 0);
    End host(m_line->connecting());
    host.transport.start();
    EXPECT_EQ(host.inbox.next(), stateMessage(10, 1));
    EXPECT_EQ(host.inbox.next(), stateMessage(10, 2));
}

TEST_P(TransportOnAnyLine, TheConnectingSideMayStartFirst)
{
    End host(m_line->connecting());
    host.transport.start();
    EXPECT_NE(host.transport.send(stateMessage(10, 1)), 0);
    End module(m_line->listening());
    module.transport.start();
    EXPECT_EQ(module.inbox.next(), stateMessage(10, 1));
}

TEST_P(TransportOnAnyLine, OneHostAfterTheOtherIsServed)
{
    End module(m_line->listening());
    module.transport.start();
    for (std::uint8_t i = 0; i < 10; ++i) {
        End host(m_line->connecting());
        host.transport.start();
        ASSERT_NE(host.transport.send(stateMessage(20, i)), 0);
        ASSERT_EQ(module.inbox.next(), stateMessage(20, i));
        ASSERT_NE(module.transport.send(stateMessage(30, i)), 0);
        ASSERT_EQ(host.inbox.next(), stateMessage(30, i));
    }
}

TEST_P(TransportOnAnyLine, AHostThatDiedIsFollowedByAnother)
{
    End module(m_line->listening());
    module.transport.start();
    for (std::uint8_t i = 0; i < 10; ++i) {
        InlineHost host(m_line->connecting()); // goes without a goodbye
        ASSERT_TRUE(host.establish());
        ASSERT_TRUE(host.core().send(stateMessage(20, i), HostLinkClock::now()));
        ASSERT_TRUE(host.stepUntil([&] { return host.core().allAcknowledged(MessageClass::State); }));
        ASSERT_EQ(module.inbox.next(), stateMessage(20, i));
    }
}

TEST_P(TransportOnAnyLine, AHostServesARestartedModule)
{
    End host(m_line->connecting());
    host.transport.start();
    for (std::uint8_t i = 0; i < 5; ++i) {
        InlineHost module(m_line->listening()); // goes without a goodbye
        ASSERT_TRUE(module.core().send(stateMessage(20, i), HostLinkClock::now()));
        ASSERT_TRUE(module.stepUntil([&] { return module.core().allAcknowledged(MessageClass::State); }));
        ASSERT_EQ(host.inbox.next(), stateMessage(20, i));
    }
}

TEST_P(TransportOnAnyLine, LargeMessagesOfBothClassesFromManyThreadsAllArrive)
{
    constexpr int kThreads = 4;
    constexpr int kMessagesEach = 50;
    End module(m_line->listening());
    End host(m_line->connecting());
    module.transport.start();
    host.transport.start();
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            const ByteArray message = t % 2 ? bulkMessage(2000) : stateMessage(500, std::uint8_t(t));
            for (int i = 0; i < kMessagesEach; ++i) {
                EXPECT_NE(module.transport.send(message), 0);
            }
        });
    }
    std::size_t bytes = 0;
    for (int i = 0; i < kThreads * kMessagesEach; ++i) {
        const ByteArray message = host.inbox.next();
        ASSERT_FALSE(message.empty());
        bytes += message.size();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(bytes, std::size_t(kMessagesEach) * (2 * 2000 + 2 * 500));
}

TEST_P(TransportOnAnyLine, StopSendsWhatWaitsAndSaysGoodbye)
{
    InlineHost host(m_line->connecting());
    End module(m_line->listening());
    module.transport.start();
    ASSERT_TRUE(host.establish());
    ASSERT_TRUE(host.core().send(stateMessage(5, 0), HostLinkClock::now()));
    ASSERT_TRUE(host.stepUntil([&] { return host.core().allAcknowledged(MessageClass::State); }));
    for (std::uint8_t i = 0; i < 20; ++i) {
        EXPECT_NE(module.transport.send(stateMessage(1000, i)), 0);
    }
    std::thread stopper([&] { module.transport.stop(); });
    for (std::uint8_t i = 0; i < 20; ++i) {
        EXPECT_EQ(host.next(), stateMessage(1000, i));
        host.core().handled();
    }
    EXPECT_TRUE(host.stepUntil([&] { return host.core().session() == HostLinkCore::Session::Ended; }));
    stopper.join();
}

TEST_P(TransportOnAnyLine, TheSessionGoesOnAcrossCutsAndNothingIsLostOrRepeated)
{
    constexpr std::uint8_t kCuts = 3;
    End module(m_line->listening());
    module.transport.start();
    InlineHost host(m_line->connecting());
    ASSERT_TRUE(host.establish());
    for (std::uint8_t i = 0; i < kCuts; ++i) {
        ASSERT_TRUE(host.core().send(stateMessage(800, i), HostLinkClock::now()));
        ASSERT_NE(module.transport.send(stateMessage(900, i)), 0);
        host.port().flush(HostLinkClock::now());
        m_line->cut(host.port().layer());
        ASSERT_EQ(host.next(), stateMessage(900, i));
        host.core().handled();
        ASSERT_TRUE(host.stepUntil([&] { return host.core().allAcknowledged(MessageClass::State); }));
    }
    for (std::uint8_t i = 0; i < kCuts; ++i) {
        EXPECT_EQ(module.inbox.next(), stateMessage(800, i));
    }
    EXPECT_EQ(module.inbox.bytes(), std::size_t(kCuts) * 800);
    EXPECT_EQ(host.core().sessionNumber(), 1u);
    EXPECT_EQ(host.core().session(), HostLinkCore::Session::Established);
}

TEST_F(TransportTest, StartStopAndSendAreConsecutiveVirtualFunctions)
{
    const std::ptrdiff_t start = placeOf(&HostLinkTransportLayer::start);
    EXPECT_EQ(placeOf(&HostLinkTransportLayer::stop), start + std::ptrdiff_t(sizeof(void*)));
    EXPECT_EQ(placeOf(&HostLinkTransportLayer::send), start + 2 * std::ptrdiff_t(sizeof(void*)));
}

TEST_F(TransportTest, StartingTwiceIsHarmlessAndAStoppedOneDoesNotStart)
{
    HostLinkTransportLayer transport(layer());
    EXPECT_NE(transport.start(), 0);
    EXPECT_NE(transport.start(), 0);
    transport.stop();
    EXPECT_EQ(transport.start(), 0);
}

TEST_F(TransportTest, SendsAfterStopReturnZero)
{
    HostLinkTransportLayer transport(layer());
    transport.start();
    EXPECT_NE(transport.send(stateMessage(10, 1)), 0);
    transport.stop();
    EXPECT_EQ(transport.send(stateMessage(10, 2)), 0);
    EXPECT_FALSE(transport.writable(MessageClass::State, 10));
    transport.messageHandled();
    transport.stop();
    EXPECT_EQ(transport.send(stateMessage(10, 2)), 0);
}

TEST_F(TransportTest, OneThatNeverStartedStopsToo)
{
    HostLinkTransportLayer transport(layer());
    transport.stop();
    EXPECT_EQ(transport.send(stateMessage(10, 1)), 0);
}

TEST_F(TransportTest, StopEndsAlthoughThePeerNeverAnswers)
{
    const auto silent = hostLayer();
    silent->open(HostLinkClock::now());
    HostLinkTransportLayer transport(layer());
    transport.send(stateMessage(10, 1));
    transport.start();
    transport.stop();
}

TEST_F(TransportTest, StopFromSeveralThreadsAtOnceEnds)
{
    HostLinkTransportLayer transport(layer());
    transport.start();
    std::thread other([&] { transport.stop(); });
    transport.stop();
    other.join();
    EXPECT_EQ(transport.send(stateMessage(10, 1)), 0);
}

TEST_F(TransportTest, ObserversRunOnOneOtherThreadAndMayUseTheTransport)
{
    HostLinkTransportLayer transport(layer());
    Event answered;
    std::atomic<std::thread::id> thread;
    transport.addMessageReceivedObserver([&](const ByteArray& message) {
        thread = std::this_thread::get_id();
        EXPECT_TRUE(transport.writable(MessageClass::State, message.size()));
        transport.messageHandled();
        EXPECT_NE(transport.send(message), 0);
        answered.set();
    });
    transport.start();
    InlineHost host(hostLayer());
    ASSERT_TRUE(host.core().send(stateMessage(10, 3), HostLinkClock::now()));
    EXPECT_EQ(host.next(), stateMessage(10, 3));
    EXPECT_TRUE(answered.wait());
    EXPECT_NE(thread.load(), std::this_thread::get_id());
}

TEST_F(TransportTest, AnAnswerOfAnObserverCarriesTheAcknowledgement)
{
    HostLinkTransportLayer transport(layer());
    transport.addMessageReceivedObserver([&](const ByteArray& message) {
        transport.messageHandled();
        transport.send(message);
    });
    transport.start();
    InlineHost host(hostLayer());
    ASSERT_TRUE(host.establish());
    ASSERT_TRUE(host.core().send(stateMessage(10, 3), HostLinkClock::now()));
    const std::uint64_t before = host.core().counters().framesReceived;
    EXPECT_EQ(host.next(), stateMessage(10, 3));
    EXPECT_TRUE(host.core().allAcknowledged(MessageClass::State));
    EXPECT_LE(host.core().counters().framesReceived, before + 2); // at most the end of the greeting beside it
}

TEST_F(TransportTest, ASendFromAnotherThreadIsRepeatedInTimeWhenItWasLost)
{
    std::atomic<bool> loseNext = false;
    HostLinkTransportLayer transport(std::make_unique<LossyLayer>(layer(), loseNext));
    transport.start();
    InlineHost host(hostLayer());
    for (std::uint8_t i = 0; i < 5; ++i) {
        ASSERT_NE(transport.send(stateMessage(10, i)), 0);
        ASSERT_EQ(host.next(), stateMessage(10, i));
        host.core().handled();
        host.stepUntil([&] { return host.port().deadline() > HostLinkClock::now() + 500ms; });
    }
    const std::uint64_t sent = host.core().counters().framesSent;
    loseNext = true;
    ASSERT_NE(transport.send(stateMessage(10, 9)), 0);
    ASSERT_FALSE(loseNext);
    EXPECT_EQ(host.next(), stateMessage(10, 9));
    // The time-out of the sending side did it, not a question of this side after the keep-alive.
    EXPECT_EQ(host.core().counters().framesSent, sent);
}

TEST_F(TransportTest, StopFromAnObserverDoesNotWaitForItself)
{
    HostLinkTransportLayer transport(layer());
    Event stopped;
    std::atomic<int> calls = 0;
    transport.addMessageReceivedObserver([&](const ByteArray&) {
        ++calls;
        transport.stop();
        EXPECT_EQ(transport.send(stateMessage(10, 1)), 0);
        stopped.set();
    });
    transport.addMessageReceivedObserver([&](const ByteArray&) { ++calls; });
    transport.start();
    InlineHost host(hostLayer());
    ASSERT_TRUE(host.establish());
    ASSERT_TRUE(host.core().send(stateMessage(10, 1), HostLinkClock::now()));
    ASSERT_TRUE(host.core().send(stateMessage(10, 2), HostLinkClock::now()));
    EXPECT_TRUE(host.stepUntil([&] { return host.core().session() == HostLinkCore::Session::Ended; }));
    EXPECT_TRUE(stopped.wait());
    transport.stop();
    EXPECT_EQ(calls, 1);
}

TEST_F(TransportTest, AnObserverMayDestroyTheTransport)
{
    auto transport = std::make_unique<HostLinkTransportLayer>(layer());
    Event destroyed;
    transport->addMessageReceivedObserver([&](const ByteArray&) {
        transport.reset();
        destroyed.set();
    });
    transport->start();
    InlineHost host(hostLayer());
    ASSERT_TRUE(host.core().send(stateMessage(10, 1), HostLinkClock::now()));
    EXPECT_TRUE(host.stepUntil([&] { return host.core().session() == HostLinkCore::Session::Ended; }));
    EXPECT_TRUE(destroyed.wait());
}

TEST_F(TransportTest, StopWaitsForAnObserverThatRuns)
{
    HostLinkTransportLayer transport(layer());
    Event entered;
    Event leave;
    std::atomic<bool> left = false;
    transport.addMessageReceivedObserver([&](const ByteArray&) {
        entered.set();
        leave.wait();
        left = true;
    });
    transport.start();
    InlineHost host(hostLayer());
    ASSERT_TRUE(host.core().send(stateMessage(10, 1), HostLinkClock::now()));
    std::thread stopper([&] {
        EXPECT_TRUE(entered.wait());
        std::thread releaser([&] { leave.set(); });
        transport.stop();
        EXPECT_TRUE(left);
        releaser.join();
    });
    EXPECT_TRUE(host.stepUntil([&] { return left.load(); }));
    stopper.join();
}

TEST_F(TransportTest, TheDestructorStops)
{
    InlineHost host(hostLayer());
    {
        HostLinkTransportLayer transport(layer());
        transport.start();
        ASSERT_TRUE(host.establish());
        ASSERT_TRUE(host.core().send(stateMessage(10, 1), HostLinkClock::now()));
        ASSERT_TRUE(host.stepUntil([&] { return host.core().allAcknowledged(MessageClass::State); }));
    }
    EXPECT_TRUE(host.stepUntil([&] { return host.core().session() == HostLinkCore::Session::Ended; }));
}

TEST_F(TransportTest, StopAllStopsEveryTransportOfTheProcess)
{
    HostLinkTransportLayer first(layer());
    HostLinkTransportLayer second(hostLayer());
    HostLinkTransportLayer stoppedBefore(memoryLayerPair().first);
    HostLinkTransportLayer notStarted(memoryLayerPair().first);
    first.start();
    second.start();
    stoppedBefore.start();
    stoppedBefore.stop();
    HostLinkTransportLayer::stopAll();
    EXPECT_EQ(first.send(stateMessage(10, 1)), 0);
    EXPECT_EQ(second.send(stateMessage(10, 1)), 0);
    EXPECT_NE(notStarted.send(stateMessage(10, 1)), 0);
    HostLinkTransportLayer::stopAll();
}

TEST(LiveTransports, AreListedWithNamesAndCountersWhileTheyRun)
{
    EXPECT_TRUE(HostLinkTransportLayer::live().empty());
    const TemporaryDirectory directory;
    const std::string path = directory.file("link");
    End module(makeLayer("unix", path, true));
    End host(makeLayer("unix", path, false, "flip=0"));
    EXPECT_TRUE(HostLinkTransportLayer::live().empty());
    module.transport.start();
    host.transport.start();
    ASSERT_NE(host.transport.send(stateMessage(10, 1)), 0);
    ASSERT_EQ(module.inbox.next(), stateMessage(10, 1));

    const std::vector<HostLinkTransportLayer::Live> both = HostLinkTransportLayer::live();
    ASSERT_EQ(both.size(), 2U);
    EXPECT_EQ(both[0].name, "unix:" + path);
    EXPECT_EQ(both[1].name, "unix:" + path);
    EXPECT_EQ(both[0].counters.messagesReceived, 1U);
    EXPECT_EQ(both[0].counters.messagesSent, 0U);
    EXPECT_EQ(both[1].counters.messagesSent, 1U);
    EXPECT_EQ(both[1].counters.sessions, 1U);

    module.transport.stop();
    ASSERT_EQ(HostLinkTransportLayer::live().size(), 1U);
    EXPECT_EQ(module.transport.counters().messagesReceived, 1U); // they stay readable
    host.transport.stop();
    EXPECT_TRUE(HostLinkTransportLayer::live().empty());
}

TEST(StartedTransports, StayListedWithTheirCountersUntilTheyAreDestroyed)
{
    EXPECT_TRUE(HostLinkTransportLayer::started().empty());
    auto [moduleEnd, hostEnd] = memoryLayerPair();
    End module(std::move(moduleEnd));
    {
        End host(std::move(hostEnd));
        host.transport.start();
        module.transport.start();
        ASSERT_NE(host.transport.send(stateMessage(10, 1)), 0);
        ASSERT_EQ(module.inbox.next(), stateMessage(10, 1));
        module.transport.stop();
        host.transport.stop();
        const std::vector<HostLinkTransportLayer::Live> both = HostLinkTransportLayer::started();
        ASSERT_EQ(both.size(), 2U);
        EXPECT_EQ(both[0].counters.messagesSent, 1U);
        EXPECT_EQ(both[1].counters.messagesReceived, 1U);
    }
    ASSERT_EQ(HostLinkTransportLayer::started().size(), 1U);
    EXPECT_EQ(HostLinkTransportLayer::started()[0].counters.messagesReceived, 1U);
}

TEST(LiveTransports, CanBeReadWhileOthersWorkStartAndStop)
{
    std::atomic<bool> done{false};
    std::thread reader([&] {
        std::uint64_t seen = 0;
        while (!done) {
            for (const HostLinkTransportLayer::Live& each : HostLinkTransportLayer::live()) {
                seen += each.counters.messagesReceived + each.name.size();
            }
        }
        EXPECT_GT(seen, 0U);
    });
    for (int i = 0; i < 5; ++i) {
        auto [moduleEnd, hostEnd] = memoryLayerPair();
        End module(std::move(moduleEnd));
        End host(std::move(hostEnd));
        module.transport.start();
        host.transport.start();
        for (std::uint8_t n = 0; n < 100; ++n) {
            ASSERT_NE(host.transport.send(stateMessage(20, n)), 0);
            ASSERT_EQ(module.inbox.next(), stateMessage(20, n));
        }
    }
    done = true;
    reader.join();
}

TEST(LiveTransports, CanBeTracedWhileTheyWorkAndTheTraceTurnedOff)
{
    auto [moduleEnd, hostEnd] = memoryLayerPair();
    End module(std::move(moduleEnd));
    End host(std::move(hostEnd));
    module.transport.start();
    host.transport.start();
    for (std::uint8_t n = 0; n < 50; ++n) {
        std::size_t lines = 0; // only while it listens, and by one thread at a time
        HostLinkTrace::setSink([&lines](const std::string& line) { lines += line.empty() ? 0 : 1; });
        ASSERT_NE(host.transport.send(stateMessage(20, n)), 0);
        ASSERT_EQ(module.inbox.next(), stateMessage(20, n));
        HostLinkTrace::setSink({});
        EXPECT_GE(lines, 2U);
    }
}

TEST_F(TransportTest, AnObserverMayStopAll)
{
    HostLinkTransportLayer transport(layer());
    Event stopped;
    transport.addMessageReceivedObserver([&](const ByteArray&) {
        HostLinkTransportLayer::stopAll();
        stopped.set();
    });
    transport.start();
    InlineHost host(hostLayer());
    ASSERT_TRUE(host.core().send(stateMessage(10, 1), HostLinkClock::now()));
    EXPECT_TRUE(host.stepUntil([&] { return host.core().session() == HostLinkCore::Session::Ended; }));
    EXPECT_TRUE(stopped.wait());
}

TEST_F(TransportTest, APeerCannotFillTheMemoryOfOneThatNeverHandles)
{
    Inbox inbox;
    HostLinkTransportLayer transport(layer());
    transport.addMessageReceivedObserver(inbox.observer());
    transport.start();
    InlineHost host(hostLayer());
    ASSERT_TRUE(host.establish());
    constexpr std::size_t kMessage = 4000;
    const std::size_t window = HostLinkCore::Settings{}.creditBytes[1] / kMessage * kMessage;
    const auto fill = [&] {
        while (host.core().writable(MessageClass::Bulk, kMessage)) {
            ASSERT_TRUE(host.core().send(bulkMessage(kMessage), HostLinkClock::now()));
        }
    };
    fill();
    ASSERT_TRUE(host.stepUntil([&] { return inbox.bytes() >= window; }));
    fill();
    // The other class has a window of its own; by the time that this one is through nothing else went.
    ASSERT_TRUE(host.core().send(stateMessage(10, 1), HostLinkClock::now()));
    ASSERT_TRUE(host.stepUntil([&] { return host.core().allAcknowledged(MessageClass::State); }));
    EXPECT_LE(inbox.bytes(), window + 10);
    EXPECT_FALSE(host.core().writable(MessageClass::Bulk, kMessage));

    const std::size_t before = inbox.bytes();
    for (std::size_t bytes = 0; bytes < window; bytes += kMessage) {
        transport.messageHandled();
    }
    EXPECT_TRUE(host.stepUntil([&] { return inbox.bytes() > before + 30'000; }));
}

TEST_F(TransportTest, AFullBulkQueueIsVisibleAndItsDrainingIsTold)
{
    HostLinkTransportLayer transport(layer());
    Event drained;
    std::atomic<int> drains = 0;
    transport.addBulkDrainedObserver([&] {
        ++drains;
        EXPECT_TRUE(transport.writable(MessageClass::Bulk, 60'000));
        drained.set();
    });
    transport.start();
    std::size_t queued = 0;
    while (transport.writable(MessageClass::Bulk, 4000)) {
        ASSERT_NE(transport.send(bulkMessage(4000)), 0);
        queued += 4000;
        ASSERT_LT(queued, 1024u * 1024);
    }
    EXPECT_EQ(transport.send(bulkMessage(4000)), 0);
    EXPECT_NE(transport.send(stateMessage(10, 1)), 0);
    EXPECT_EQ(drains, 0);

    InlineHost host(hostLayer());
    std::size_t received = 0;
    ASSERT_TRUE(host.stepUntil([&] {
        ByteArray message;
        while (host.core().take(message)) {
            host.core().handled();
            received += message[1] == MSG_DataTransfer ? message.size() : 0;
        }
        return received >= queued;
    }));
    EXPECT_TRUE(drained.wait());
    EXPECT_EQ(received, queued);
    transport.stop();
    EXPECT_EQ(drains, 1);
}

TEST_F(TransportTest, WhoAsksTooMuchOfAnEmptyQueueIsNotToldThatItDrained)
{
    std::atomic<int> drains = 0;
    HostLinkTransportLayer transport(layer());
    transport.addBulkDrainedObserver([&] { ++drains; });
    End host(hostLayer());
    transport.start();
    host.transport.start();
    EXPECT_FALSE(transport.writable(MessageClass::Bulk, 10u * 1024 * 1024));
    ASSERT_NE(transport.send(stateMessage(10, 1)), 0);
    EXPECT_EQ(host.inbox.next(), stateMessage(10, 1));
    transport.stop();
    EXPECT_EQ(drains, 0);
}

TEST_F(TransportTest, OnlyTheTransportsThreadTouchesADeviceThatBlocks)
{
    const auto device = std::make_shared<BlockingLayer::Device>();
    Inbox inbox;
    std::atomic<std::thread::id> thread;
    HostLinkTransportLayer transport(std::make_unique<BlockingLayer>(layer(), device));
    transport.addMessageReceivedObserver([&](const ByteArray&) {
        thread = std::this_thread::get_id();
        transport.messageHandled();
    });
    transport.addMessageReceivedObserver(inbox.observer());
    transport.start();
    End host(hostLayer());
    host.transport.start();
    for (std::uint8_t i = 0; i < 20; ++i) {
        ASSERT_NE(transport.send(stateMessage(700, i)), 0);
        ASSERT_EQ(host.inbox.next(), stateMessage(700, i));
        ASSERT_NE(host.transport.send(stateMessage(700, i)), 0);
        ASSERT_EQ(inbox.next(), stateMessage(700, i));
    }
    transport.stop();
    const std::lock_guard lock(device->mutex);
    for (const std::thread::id& id : device->threads) {
        EXPECT_EQ(id, thread.load());
    }
}

TEST_F(TransportTest, SendingDoesNotWaitForADeviceThatIsStuck)
{
    const auto device = std::make_shared<BlockingLayer::Device>();
    HostLinkTransportLayer transport(std::make_unique<BlockingLayer>(layer(), device));
    End host(hostLayer());
    transport.start();
    host.transport.start();
    ASSERT_NE(transport.send(stateMessage(10, 1)), 0);
    ASSERT_EQ(host.inbox.next(), stateMessage(10, 1));
    device->setStuck(true);
    ASSERT_NE(transport.send(stateMessage(10, 2)), 0);
    ASSERT_TRUE(device->waitFor([&] { return device->inTransfer; }));
    EXPECT_NE(transport.send(stateMessage(10, 3)), 0); // this would hang if it waited
    EXPECT_TRUE(transport.writable(MessageClass::State, 10));
    device->setStuck(false);
    EXPECT_EQ(host.inbox.next(), stateMessage(10, 2));
    EXPECT_EQ(host.inbox.next(), stateMessage(10, 3));
}

TEST_F(TransportTest, StopLeavesAStuckDeviceBehind)
{
    const LinkLogCapture log;
    const auto device = std::make_shared<BlockingLayer::Device>();
    {
        HostLinkTransportLayer transport(std::make_unique<BlockingLayer>(layer(), device));
        device->setStuck(true);
        transport.start();
        ASSERT_TRUE(device->waitFor([&] { return device->inTransfer; }));
        transport.stop(); // this would hang if it waited for the transfer
        EXPECT_EQ(transport.send(stateMessage(10, 1)), 0);
    }
    EXPECT_EQ(log.count("stuck"), 1u);
    EXPECT_FALSE(device->destroyed);
    device->setStuck(false);
    EXPECT_TRUE(device->waitFor([&] { return device->destroyed; }));
}

TEST_F(TransportTest, WhatIsSentWhileAnObserverRunsIsWrittenBeforeTheThreadSleeps)
{
    const auto device = std::make_shared<BlockingLayer::Device>();
    HostLinkTransportLayer transport(std::make_unique<BlockingLayer>(layer(), device));
    transport.addBulkDrainedObserver([&] {
        std::thread([&] { EXPECT_NE(transport.send(stateMessage(10, 7)), 0); }).join();
        const std::lock_guard lock(device->mutex);
        device->writeDue = true;
    });
    transport.start();
    {
        End host(hostLayer());
        host.transport.start();
        ASSERT_NE(transport.send(stateMessage(10, 1)), 0);
        ASSERT_EQ(host.inbox.next(), stateMessage(10, 1));
    } // its goodbye ends the session
    while (transport.writable(MessageClass::Bulk, 100)) {
        std::this_thread::yield();
    }
    InlineHost host(hostLayer());
    EXPECT_EQ(host.next(), stateMessage(10, 7));
    const std::lock_guard lock(device->mutex);
    EXPECT_FALSE(device->sleptOnIt);
}

class TransportOnI2cTest : public ::testing::Test
{
protected:
    const std::shared_ptr<I2cBus> m_bus = std::make_shared<I2cBus>();
};

TEST_F(TransportOnI2cTest, OnlyTheTransportsThreadTouchesTheBus)
{
    End module(I2cBus::moduleEnd(m_bus));
    End host(I2cBus::hostEnd(m_bus));
    std::atomic<std::thread::id> thread;
    module.transport.addMessageReceivedObserver(
        [&](const ByteArray&) { thread = std::this_thread::get_id(); });
    module.transport.start();
    host.transport.start();
    for (std::uint8_t i = 0; i < 10; ++i) {
        ASSERT_NE(module.transport.send(stateMessage(700, i)), 0);
        ASSERT_EQ(host.inbox.next(), stateMessage(700, i));
        ASSERT_NE(host.transport.send(stateMessage(700, i)), 0);
        ASSERT_EQ(module.inbox.next(), stateMessage(700, i));
    }
    module.transport.stop();
    for (const std::thread::id& id : m_bus->threads()) {
        EXPECT_EQ(id, thread.load());
    }
    EXPECT_EQ(m_bus->breaches(), std::vector<std::string>());
    EXPECT_EQ(m_bus->openNodes(), 0);
}

TEST_F(TransportOnI2cTest, SendingDoesNotWaitForABusThatHangs)
{
    End module(I2cBus::moduleEnd(m_bus));
    End host(I2cBus::hostEnd(m_bus));
    module.transport.start();
    host.transport.start();
    ASSERT_NE(module.transport.send(stateMessage(10, 1)), 0);
    ASSERT_EQ(host.inbox.next(), stateMessage(10, 1));
    m_bus->setStuck(true);
    ASSERT_TRUE(m_bus->waitUntilStuck());
    EXPECT_NE(module.transport.send(stateMessage(10, 2)), 0); // these would hang if they waited
    EXPECT_NE(module.transport.send(stateMessage(10, 3)), 0);
    EXPECT_TRUE(module.transport.writable(MessageClass::State, 10));
    m_bus->setStuck(false);
    EXPECT_EQ(host.inbox.next(), stateMessage(10, 2));
    EXPECT_EQ(host.inbox.next(), stateMessage(10, 3));
}

TEST_F(TransportOnI2cTest, StopLeavesABusThatHangsBehindAndItsThreadEndsWhenItMay)
{
    const LinkLogCapture log;
    {
        HostLinkTransportLayer transport(I2cBus::moduleEnd(m_bus));
        const auto host = I2cBus::hostEnd(m_bus);
        host->open(HostLinkClock::now());
        m_bus->setStuck(true);
        transport.start();
        ASSERT_TRUE(m_bus->waitUntilStuck());
        transport.stop(); // this would hang if it waited
        EXPECT_EQ(log.count("stuck"), 1u);
        EXPECT_EQ(m_bus->openNodes(), 1);
    }
    m_bus->setStuck(false);
    EXPECT_TRUE(m_bus->waitUntilClosed());
}
