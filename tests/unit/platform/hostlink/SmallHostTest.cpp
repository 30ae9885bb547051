#include "support/SmallHost.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "platform/hostlink/FaultEngine.h"
#include "platform/hostlink/HostLinkCore.h"
#include "support/LinkMessages.h"

using namespace std::chrono_literals;

namespace
{

std::uint64_t drawInstance()
{
    static std::uint64_t last = 900;
    return ++last;
}

/// A module, the library's own end, and a small host on a faulty line.
class SmallHostTest : public ::testing::Test
{
protected:
    using Faults = FaultSettings::Direction;

    void lineUp(const Faults& faults = {})
    {
        m_toHost = FaultEngine(faults, 1);
        m_toModule = FaultEngine(faults, 2);
        m_module.lineUp(m_now);
        m_host->lineUp(milliseconds());
    }

    void restartHost()
    {
        m_host = makeHost();
        m_host->lineUp(milliseconds());
    }

    template <typename Predicate>
    bool runUntil(Predicate predicate, std::chrono::seconds limit = 60s)
    {
        for (const HostLinkTime end = m_now + limit; m_now < end; m_now += 1ms) {
            step();
            if (predicate()) {
                return true;
            }
        }
        return false;
    }
    void run(std::chrono::seconds time)
    {
        runUntil([] { return false; }, time);
    }

    bool isInSession() const
    {
        return m_host->isInSession() && m_module.session() == HostLinkCore::Session::Established;
    }
    bool sendToModule(const ByteArray& message) { return m_host->send(message.data(), message.size()); }

    HostLinkTime m_now{1h};
    HostLinkCore m_module{HostLinkCore::Settings{}};
    std::vector<ByteArray> m_atHost;
    std::vector<ByteArray> m_atModule;

private:
    std::unique_ptr<SmallHost> makeHost()
    {
        return std::make_unique<SmallHost>(
            drawInstance,
            [](void* self, const std::uint8_t* message, std::size_t size) {
                static_cast<SmallHostTest*>(self)->m_atHost.emplace_back(message, message + size);
            },
            this);
    }

    /// Of a clock that wraps around in the middle of each test.
    std::uint32_t milliseconds() const
    {
        return 0xFFFFFF00u + std::uint32_t((m_now - HostLinkTime(1h)) / 1ms);
    }

    void step()
    {
        FaultEngine::Bytes bytes = m_toModule.arrived(m_now);
        m_module.receive(bytes.data, bytes.size, m_now);
        m_toModule.consume(bytes.size);
        bytes = m_toHost.arrived(m_now);
        m_host->receive(bytes.data, bytes.size, milliseconds());
        m_toHost.consume(bytes.size);
        ByteArray message;
        while (m_module.take(message)) {
            m_atModule.push_back(message);
            m_module.handled();
        }
        for (;;) {
            const HostLinkCore::Bytes frame = m_module.transmit(m_now);
            if (frame.size == 0) {
                break;
            }
            m_toHost.put(frame.data, frame.size, m_now);
        }
        std::uint8_t frame[SmallHost::kWire];
        while (const std::size_t size = m_host->transmit(frame, milliseconds())) {
            m_toModule.put(frame, size, m_now);
        }
    }

    std::unique_ptr<SmallHost> m_host = makeHost();
    FaultEngine m_toHost{{}, 1};
    FaultEngine m_toModule{{}, 2};
};

TEST_F(SmallHostTest, TakesAsMuchMemoryAsThePageSays)
{
    EXPECT_LE(sizeof(SmallHost), 2800U);
}

TEST_F(SmallHostTest, CarriesMessagesOfEveryLengthItAnnounces)
{
    lineUp();
    ASSERT_TRUE(runUntil([&] { return isInSession(); }));
    for (const std::size_t size : {6U, 247U, 248U, 253U, 254U, 255U, 500U, 501U, 502U, 1003U, 1024U}) {
        ASSERT_TRUE(m_module.send(state(1, size), m_now));
        ASSERT_TRUE(runUntil([&] { return sendToModule(state(2, size)); })); // the one before is acknowledged
        ASSERT_TRUE(runUntil([&] { return !m_atHost.empty() && !m_atModule.empty(); })) << size;
        EXPECT_EQ(std::exchange(m_atHost, {}), std::vector<ByteArray>{state(1, size)});
        EXPECT_EQ(std::exchange(m_atModule, {}), std::vector<ByteArray>{state(2, size)});
    }
    EXPECT_FALSE(m_module.send(state(1, 1025), m_now));
    EXPECT_FALSE(m_module.send(bulk(1), m_now)); // it can hold none
    EXPECT_EQ(m_module.counters().framesRepeated + m_module.counters().framesDamaged, 0U);
    EXPECT_EQ(m_module.counters().sessions, 1U);
}

TEST_F(SmallHostTest, LosesAndRepeatsNothingOnALineThatDamagesBothDirections)
{
    constexpr std::uint32_t kMessages = 1000;
    Faults faults;
    faults.drop = 0.00005;
    faults.flip = 0.00005;
    faults.insert = 0.00005;
    faults.duplicate = 0.00005;
    faults.delay = 2ms;
    lineUp(faults);
    ASSERT_TRUE(runUntil([&] { return isInSession(); }));
    std::mt19937 random(3);
    std::uint32_t toHost = 0;
    std::uint32_t toModule = 0;
    std::vector<ByteArray> sentToHost;
    std::vector<ByteArray> sentToModule;
    ASSERT_TRUE(runUntil(
        [&] {
            if (toHost < kMessages && m_module.queuedBytes(MessageClass::State) < 3000) {
                sentToHost.push_back(state(toHost++, 6 + random() % 1000));
                EXPECT_TRUE(m_module.send(sentToHost.back(), m_now));
            }
            const ByteArray next = state(toModule, 6 + (toModule * 37) % 1000);
            if (toModule < kMessages && sendToModule(next)) {
                sentToModule.push_back(next);
                ++toModule;
            }
            return m_atHost.size() == kMessages && m_atModule.size() == kMessages;
        },
        600s));
    EXPECT_TRUE(m_atHost == sentToHost);
    EXPECT_TRUE(m_atModule == sentToModule);
    EXPECT_EQ(m_module.counters().sessions, 1U);
    EXPECT_GT(m_module.counters().framesRepeated, 100U);
    EXPECT_GT(m_module.counters().framesDuplicate, 0U);
}

TEST_F(SmallHostTest, StaysInSessionWhileNothingIsSaid)
{
    lineUp();
    run(60s);
    EXPECT_TRUE(isInSession());
    EXPECT_EQ(m_module.counters().sessions, 1U);
    EXPECT_EQ(m_module.counters().greetings, 1U);
}

TEST_F(SmallHostTest, GoesOnAfterACutAndBeginsAnewAfterARestart)
{
    lineUp();
    ASSERT_TRUE(runUntil([&] { return isInSession(); }));
    ASSERT_TRUE(sendToModule(state(1, 900)));
    ASSERT_TRUE(m_module.send(state(2, 900), m_now));
    m_module.lineDown(m_now);
    lineUp();
    ASSERT_TRUE(runUntil([&] { return m_atHost.size() == 1 && m_atModule.size() == 1; }));
    EXPECT_EQ(m_module.counters().sessions, 1U);
    restartHost();
    ASSERT_TRUE(runUntil([&] { return m_module.sessionNumber() == 2 && isInSession(); }));
    ASSERT_TRUE(sendToModule(state(3)));
    ASSERT_TRUE(runUntil([&] { return m_atModule.size() == 2; }));
    m_module.goodbye(m_now);
    EXPECT_TRUE(runUntil([&] { return !isInSession(); }, 1s));
}

} // namespace
