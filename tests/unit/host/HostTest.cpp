#include "host/Host.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/ScriptedModule.h"
#include "unit/host/SimulatedSystem.h"

using namespace std::chrono_literals;

namespace
{
using Event = Host::Event;

const ByteArray kRequest{0x00, 0x02, 0x00, 0x07};
const ByteArray kEvent{0x00, 0x04, 0x00, 0x07, 0xCC, 0x01};

/// A pipe with a byte in it.
class ReadableInput
{
public:
    ReadableInput() { EXPECT_TRUE(pipe(m_ends) == 0 && write(m_ends[1], "x", 1) == 1); }
    ~ReadableInput()
    {
        close(m_ends[0]);
        close(m_ends[1]);
    }
    ReadableInput(const ReadableInput&) = delete;
    ReadableInput& operator=(const ReadableInput&) = delete;

    int descriptor() const { return m_ends[0]; }

private:
    int m_ends[2];
};

class HostTest : public testing::Test
{
protected:
    HostTest()
    {
        m_module.onMessage = [](const ByteArray&) {};
        m_system.onWait = [this] { m_module.step(m_system.now()); };
        m_module.start(m_system.now());
    }

    std::unique_ptr<HostLinkPhysicalLayer> line()
    {
        return HostLinkPhysicalLayer::create("unix", unixLine(m_directory.socket(), false));
    }

    Event next(Host& host, HostLinkDuration within = 2s)
    {
        m_message.clear();
        return host.receive(&m_message, m_system.now() + within);
    }

    /// Lets the module work on until `condition` holds; the host does nothing meanwhile.
    template <typename Condition>
    void runUntil(Condition condition)
    {
        std::vector<pollfd> none;
        for (int i = 0; i < 2000 && !condition(); ++i) {
            m_system.wait(none, HostLinkTime::max());
        }
        ASSERT_TRUE(condition());
    }

    void expectInputToWaitBehind(MessageId id)
    {
        const ReadableInput input;
        Host host(line(), -1, m_system);
        ASSERT_EQ(next(host), Event::NewSession);
        host.setInput(input.descriptor());
        m_system.onWait = [] {}; // the module takes nothing
        ByteArray message(2000);
        message[0] = static_cast<std::uint8_t>(id >> 8);
        message[1] = static_cast<std::uint8_t>(id);
        for (int i = 0; i < 60; ++i) { // of which the socket takes a quarter
            ASSERT_TRUE(host.send(message));
        }
        EXPECT_EQ(next(host, 100ms), Event::TimedOut);
        m_system.onWait = [this] { m_module.step(m_system.now()); };
        EXPECT_EQ(next(host), Event::Input);
    }

    SocketDirectory m_directory;
    SimulatedSystem m_system;
    ScriptedModule m_module{m_directory.socket()};
    ByteArray m_message;
};
} // namespace

TEST_F(HostTest, TellsItsFirstSession)
{
    Host host(line(), -1, m_system);
    EXPECT_FALSE(host.isInSession());
    EXPECT_EQ(next(host), Event::NewSession);
    EXPECT_TRUE(host.isInSession());
    EXPECT_TRUE(host.isLineUp());
    EXPECT_EQ(next(host), Event::TimedOut);
}

TEST_F(HostTest, MayStartBeforeTheModule)
{
    m_module.kill();
    Host host(line(), -1, m_system);
    EXPECT_EQ(next(host, 500ms), Event::TimedOut);
    m_module.start(m_system.now());
    EXPECT_EQ(next(host), Event::NewSession);
}

TEST_F(HostTest, TimesOutAtTheDeadline)
{
    m_module.kill();
    Host host(line(), -1, m_system);
    const HostLinkTime start = m_system.now();
    EXPECT_EQ(next(host, 1234ms), Event::TimedOut);
    EXPECT_EQ(m_system.now() - start, 1234ms);
    EXPECT_FALSE(host.isLineUp());
}

TEST_F(HostTest, CarriesMessagesBothWays)
{
    Host host(line(), -1, m_system);
    ASSERT_EQ(next(host), Event::NewSession);
    EXPECT_TRUE(host.send(kRequest));
    EXPECT_EQ(host.waitAcknowledged(m_system.now() + 2s), Event::Acknowledged);
    EXPECT_EQ(m_module.received, std::vector<ByteArray>{kRequest});
    m_module.send(kEvent, m_system.now());
    EXPECT_EQ(next(host), Event::Message);
    EXPECT_EQ(m_message, kEvent);
}

TEST_F(HostTest, LooksOnceAfterItsDeadline)
{
    Host host(line(), -1, m_system);
    ASSERT_EQ(next(host), Event::NewSession);
    m_module.send(kEvent, m_system.now());
    m_module.step(m_system.now());
    EXPECT_EQ(next(host, 0ms), Event::Message);
    EXPECT_EQ(next(host, 0ms), Event::TimedOut);
}

TEST_F(HostTest, HandsOutAllThatItsLookAfterTheDeadlineFound)
{
    Host host(line(), -1, m_system);
    ASSERT_EQ(next(host), Event::NewSession);
    for (int look = 0; look < 2; ++look) {
        m_module.send(kEvent, m_system.now());
        m_module.send(kEvent, m_system.now());
        m_module.step(m_system.now());
        EXPECT_EQ(next(host, 0ms), Event::Message);
        EXPECT_EQ(next(host, 0ms), Event::Message);
        EXPECT_EQ(next(host, 0ms), Event::TimedOut);
    }
}

TEST_F(HostTest, ItsDeadlineHoldsWhileMessagesPourIn)
{
    Host host(line(), -1, m_system);
    ASSERT_EQ(next(host), Event::NewSession);
    const HostLinkTime deadline = m_system.now() + 50ms;
    std::vector<pollfd> none;
    Event event = Event::Message;
    while (event == Event::Message && m_system.now() < deadline + 1s) {
        m_module.send(kEvent, m_system.now());
        m_system.wait(none, HostLinkTime::max());
        event = host.receive(&m_message, deadline);
    }
    EXPECT_EQ(event, Event::TimedOut);
    EXPECT_LE(m_system.now(), deadline + 2ms);
    EXPECT_EQ(next(host), Event::Message) << "what has come since is there for the next wait";
}

TEST_F(HostTest, ItsDeadlineHoldsWhileInputIsReadable)
{
    const ReadableInput input;
    Host host(line(), -1, m_system);
    ASSERT_EQ(next(host), Event::NewSession);
    host.setInput(input.descriptor());
    EXPECT_EQ(next(host, 0ms), Event::TimedOut);
    EXPECT_EQ(next(host), Event::Input);
}

TEST_F(HostTest, GivesTheWindowBackForWhatItReceived)
{
    Host host(line(), -1, m_system);
    ASSERT_EQ(next(host), Event::NewSession);
    ByteArray big(50'000, 0x5A);
    big[0] = 0x00;
    big[1] = 0x04;
    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(m_module.send(big, m_system.now()));
        ASSERT_EQ(next(host), Event::Message) << i;
        EXPECT_EQ(m_message, big);
    }
}

TEST_F(HostTest, WaitingForAcknowledgementLeavesMessagesWaiting)
{
    Host host(line(), -1, m_system);
    ASSERT_EQ(next(host), Event::NewSession);
    m_module.onMessage = [this](const ByteArray&) { m_module.send(kEvent, m_module.now()); };
    host.send(kRequest);
    EXPECT_EQ(host.waitAcknowledged(m_system.now() + 2s), Event::Acknowledged);
    EXPECT_EQ(next(host), Event::Message);
    EXPECT_EQ(m_message, kEvent);
}

TEST_F(HostTest, WaitingForAcknowledgementTimesOut)
{
    Host host(line(), -1, m_system);
    ASSERT_EQ(next(host), Event::NewSession);
    m_system.onWait = [] {};
    host.send(kRequest);
    EXPECT_EQ(host.waitAcknowledged(m_system.now() + 50ms), Event::TimedOut);
}

TEST_F(HostTest, TellsThatAnotherHostHoldsTheLink)
{
    Host first(line(), -1, m_system);
    ASSERT_EQ(next(first), Event::NewSession);
    Host second(line(), -1, m_system);
    const HostLinkTime start = m_system.now();
    EXPECT_EQ(next(second), Event::Refused);
    EXPECT_LT(m_system.now() - start, 100ms);
    EXPECT_EQ(next(first, 10ms), Event::TimedOut) << "the first host's session goes on";
}

TEST_F(HostTest, LinkIsFreeAfterAGoodbye)
{
    for (int i = 0; i < 5; ++i) {
        Host host(line(), -1, m_system);
        ASSERT_EQ(next(host), Event::NewSession) << i;
        host.goodbye();
    }
}

TEST_F(HostTest, GoodbyeEndsTheModulesSession)
{
    Host host(line(), -1, m_system);
    ASSERT_EQ(next(host), Event::NewSession);
    runUntil([this] { return m_module.port().core().session() == HostLinkCore::Session::Established; });
    host.goodbye();
    runUntil([this] { return m_module.port().core().session() == HostLinkCore::Session::Ended; });
    EXPECT_FALSE(host.send(kRequest));
    host.goodbye();
}

TEST_F(HostTest, DestructionSaysGoodbye)
{
    {
        Host host(line(), -1, m_system);
        ASSERT_EQ(next(host), Event::NewSession);
    }
    runUntil([this] { return m_module.port().core().session() == HostLinkCore::Session::Ended; });
}

TEST_F(HostTest, GoodbyeToNobodyIsQuick)
{
    m_module.kill();
    Host host(line(), -1, m_system);
    const HostLinkTime start = m_system.now();
    host.goodbye();
    EXPECT_LE(m_system.now() - start, 100ms);
}

TEST_F(HostTest, TellsThatTheModuleEndedTheSessionOnce)
{
    Host host(line(), -1, m_system);
    ASSERT_EQ(next(host), Event::NewSession);
    m_module.goodbye(m_system.now());
    EXPECT_EQ(next(host), Event::Ended);
    EXPECT_FALSE(host.isInSession());
    EXPECT_FALSE(host.send(kRequest));
    EXPECT_EQ(next(host, 100ms), Event::TimedOut);
}

TEST_F(HostTest, RestartedModuleIsANewSession)
{
    Host host(line(), -1, m_system);
    ASSERT_EQ(next(host), Event::NewSession);
    m_module.start(m_system.now());
    EXPECT_EQ(next(host), Event::NewSession);
    m_module.send(kEvent, m_system.now());
    EXPECT_EQ(next(host), Event::Message);
}

TEST_F(HostTest, NewSessionIsToldBeforeItsFirstMessage)
{
    Host host(line(), -1, m_system);
    ASSERT_EQ(next(host), Event::NewSession);
    m_module.start(m_system.now());
    m_module.send(kEvent, m_system.now());
    runUntil([&] {
        host.waitAcknowledged(m_system.now());
        return m_module.port().core().session() == HostLinkCore::Session::Established
               && m_module.port().core().allAcknowledged(MessageClass::State);
    });
    EXPECT_EQ(next(host), Event::NewSession);
    EXPECT_EQ(next(host), Event::Message);
    EXPECT_EQ(m_message, kEvent);
}

TEST_F(HostTest, FormerSessionsMessagesComeBeforeTheNewSessionIsTold)
{
    Host host(line(), -1, m_system);
    ASSERT_EQ(next(host), Event::NewSession);
    m_module.onMessage = [this](const ByteArray&) {
        m_module.send(kEvent, m_module.now());
        m_module.port().step(m_module.now());
        m_module.start(m_module.now());
    };
    host.send(kRequest);
    ASSERT_EQ(host.waitAcknowledged(m_system.now() + 2s), Event::Acknowledged);
    runUntil([&] { return host.waitAcknowledged(m_system.now()) == Event::NewSession; });
    EXPECT_EQ(next(host), Event::Message);
    EXPECT_EQ(m_message, kEvent);
    EXPECT_FALSE(host.send({0x80, 0x04})) << "an answer never reaches a peer that did not ask";
    EXPECT_EQ(next(host), Event::NewSession);
    EXPECT_TRUE(host.send(kRequest));
}

TEST_F(HostTest, MessagesComeBeforeTheEndThatFollowedThem)
{
    Host host(line(), -1, m_system);
    ASSERT_EQ(next(host), Event::NewSession);
    m_module.onMessage = [this](const ByteArray&) {
        m_module.send(kEvent, m_module.now());
        m_module.send(kEvent, m_module.now());
        m_module.port().step(m_module.now());
        m_module.goodbye(m_module.now());
    };
    host.send(kRequest);
    EXPECT_EQ(next(host), Event::Message);
    EXPECT_EQ(next(host), Event::Message);
    EXPECT_EQ(next(host), Event::Ended);
}

TEST_F(HostTest, InterruptEndsAWait)
{
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    Host host(line(), pipe[0], m_system);
    ASSERT_EQ(next(host), Event::NewSession);
    ASSERT_EQ(write(pipe[1], "x", 1), 1);
    const HostLinkTime start = m_system.now();
    EXPECT_EQ(next(host), Event::Interrupted);
    EXPECT_EQ(next(host), Event::Interrupted) << "until somebody reads it";
    EXPECT_EQ(host.waitAcknowledged(m_system.now() + 1s), Event::Acknowledged) << "nothing was sent";
    host.send(kRequest);
    EXPECT_EQ(host.waitAcknowledged(m_system.now() + 1s), Event::Interrupted);
    EXPECT_EQ(m_system.now(), start);
    host.goodbye();
    runUntil([this] { return m_module.port().core().session() == HostLinkCore::Session::Ended; });
    close(pipe[0]);
    close(pipe[1]);
}

TEST_F(HostTest, InterruptIsNoticedWhileMessagesPourIn)
{
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    Host host(line(), pipe[0], m_system);
    ASSERT_EQ(next(host), Event::NewSession);
    for (int i = 0; i < 100; ++i) {
        m_module.send(kEvent, m_system.now());
    }
    ASSERT_EQ(next(host), Event::Message);
    ASSERT_EQ(write(pipe[1], "x", 1), 1);
    EXPECT_EQ(next(host), Event::Interrupted);
    close(pipe[0]);
    close(pipe[1]);
}

TEST_F(HostTest, TellsInputBehindEverythingElse)
{
    int input[2];
    ASSERT_EQ(pipe(input), 0);
    Host host(line(), -1, m_system);
    ASSERT_EQ(next(host), Event::NewSession);
    host.setInput(input[0]);
    EXPECT_EQ(next(host, 10ms), Event::TimedOut);
    ASSERT_EQ(write(input[1], "x", 1), 1);
    m_module.send(kEvent, m_system.now());
    m_module.step(m_system.now());
    EXPECT_EQ(next(host), Event::Message);
    EXPECT_EQ(next(host), Event::Input);
    EXPECT_EQ(next(host), Event::Input) << "until somebody reads it";
    char byte;
    ASSERT_EQ(read(input[0], &byte, 1), 1);
    EXPECT_EQ(next(host, 10ms), Event::TimedOut);
    close(input[1]);
    EXPECT_EQ(next(host), Event::Input) << "its end is readable too";
    close(input[0]);
}

TEST_F(HostTest, InputWaitsWhileMuchWaitsToBeSent)
{
    expectInputToWaitBehind(MSG_SetState);
}

TEST_F(HostTest, InputWaitsWhileMuchBulkWaitsToBeSent)
{
    expectInputToWaitBehind(MSG_DataTransferResponse);
}

TEST_F(HostTest, IgnoredInterruptEndsNoWait)
{
    int interrupt[2];
    ASSERT_EQ(pipe(interrupt), 0);
    ASSERT_EQ(write(interrupt[1], "x", 1), 1);
    Host host(line(), interrupt[0], m_system);
    EXPECT_EQ(next(host), Event::Interrupted);
    host.ignoreInterrupts();
    EXPECT_EQ(next(host), Event::NewSession);
    close(interrupt[0]);
    close(interrupt[1]);
}
