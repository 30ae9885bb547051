#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <condition_variable>
#include <deque>
#include <mutex>

#include "platform/hostlink/BigEndian.h"
#include "platform/hostlink/HostLinkTransportLayer.h"
#include "support/LineKind.h"
#include "support/LinkEcho.h"
#include "support/LinkLogCapture.h"
#include "support/LinkMessages.h"

using namespace std::chrono_literals;

namespace
{

constexpr auto kPatience = 30s;

/// A link_echo that is killed in the end.
class EchoProcess
{
public:
    EchoProcess(const std::string& device, const std::string& faults)
    {
        char* arguments[] = {const_cast<char*>(LINK_ECHO), const_cast<char*>(device.c_str()),
                             const_cast<char*>(faults.c_str()), nullptr};
        EXPECT_EQ(::posix_spawn(&m_pid, LINK_ECHO, nullptr, nullptr, arguments, environ), 0);
    }
    ~EchoProcess()
    {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
    EchoProcess(const EchoProcess&) = delete;
    EchoProcess& operator=(const EchoProcess&) = delete;

private:
    pid_t m_pid = -1;
};

/// This process's end of the link.
class NearEnd
{
public:
    NearEnd(const std::string& device, const std::string& faults)
        : m_transport(makeLayer("unix", device, false, faults))
    {
        m_transport.addMessageReceivedObserver([this](const ByteArray& message) {
            {
                const std::lock_guard lock(m_mutex);
                m_received[messageClass(HostLinkMessage::messageId(message)) == MessageClass::Bulk].push_back(
                    message);
            }
            m_transport.messageHandled();
            m_changed.notify_all();
        });
        m_transport.start();
    }
    ~NearEnd() { m_transport.stop(); }
    NearEnd(const NearEnd&) = delete;
    NearEnd& operator=(const NearEnd&) = delete;

    bool send(const ByteArray& message) { return m_transport.send(message) != 0; }

    /// The next message of a class; empty when none comes.
    ByteArray next(MessageClass messageClass)
    {
        std::unique_lock lock(m_mutex);
        std::deque<ByteArray>& received = m_received[messageClass == MessageClass::Bulk];
        if (!m_changed.wait_for(lock, kPatience, [&] { return !received.empty(); })) {
            return {};
        }
        ByteArray message = std::move(received.front());
        received.pop_front();
        return message;
    }

    /// Asks until it is answered: in the middle of a new session the question may be lost or refused.
    std::uint32_t farSessions()
    {
        const HostLinkTime limit = HostLinkClock::now() + kPatience;
        while (HostLinkClock::now() < limit) {
            m_asked += send(kCountSessions) ? 1 : 0;
            std::unique_lock lock(m_mutex);
            std::deque<ByteArray>& received = m_received[0];
            if (m_changed.wait_for(lock, 100ms, [&] { return !received.empty(); })) {
                const ByteArray answer = std::move(received.front());
                received.clear();
                return readBigEndian<std::uint32_t>(answer.data() + 2);
            }
        }
        return 0;
    }

    /// How often farSessions() asked.
    std::uint32_t asked() const { return m_asked; }

    HostLinkCounters counters() const { return m_transport.counters(); }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::uint32_t m_asked = 0;
    std::deque<ByteArray> m_received[2];
    HostLinkTransportLayer m_transport;
};

class TwoProcesses : public ::testing::Test
{
protected:
    const TemporaryDirectory m_directory;
    const std::string m_device = m_directory.file("link");
    LinkLogCapture m_log;
};

TEST_F(TwoProcesses, NothingIsLostOrRepeatedWhileTheLineIsCutAllTheTime)
{
    constexpr std::uint32_t kRounds = 30;
    constexpr std::size_t kLarge = 40'000;
    const EchoProcess far(m_device, "cut=0.1&outage=10&seed=1");
    NearEnd near(m_device, "cut=0.05&outage=10&rate=4000000&seed=2");
    for (std::uint32_t round = 0; round < kRounds; ++round) {
        for (std::uint32_t i = 0; i < 2; ++i) {
            ASSERT_TRUE(near.send(bulk(2 * round + i, kLarge)));
        }
        for (std::uint32_t i = 0; i < 20; ++i) { // one after the other, as in a conversation
            const ByteArray said = state(20 * round + i, 40);
            ASSERT_TRUE(near.send(said));
            ASSERT_EQ(near.next(MessageClass::State), said);
        }
        for (std::uint32_t i = 0; i < 2; ++i) {
            ASSERT_TRUE(near.next(MessageClass::Bulk) == bulk(2 * round + i, kLarge)) << round;
        }
    }
    const HostLinkCounters counters = near.counters();
    EXPECT_EQ(counters.sessions, 1U);
    EXPECT_EQ(near.farSessions(), 1U);
    EXPECT_GT(counters.greetings, 5U); // it was cut often
    EXPECT_EQ(counters.messagesReceived, kRounds * 22U);
    EXPECT_EQ(counters.messagesDiscarded + counters.messagesBroken + counters.messagesRefused, 0U);
}

TEST_F(TwoProcesses, ARestartOfTheFarOneIsANewSessionForBoth)
{
    auto far = std::make_unique<EchoProcess>(m_device, "seed=1");
    NearEnd near(m_device, "seed=2");
    for (std::uint32_t restarts = 0; restarts < 3; ++restarts) {
        ASSERT_EQ(near.farSessions(), 1U);
        while (near.counters().sessions < restarts + 1) { // a late answer of the killed one
            ASSERT_EQ(near.farSessions(), 1U);
        }
        EXPECT_EQ(near.counters().sessions, restarts + 1);
        ASSERT_TRUE(near.send(bulk(restarts, 60'000)));
        far.reset();
        far = std::make_unique<EchoProcess>(m_device, "seed=1");
    }
}

TEST_F(TwoProcesses, ARestartOfTheNearOneIsANewSessionForBoth)
{
    const EchoProcess far(m_device, "cut=0.1&outage=10&seed=1");
    for (std::uint32_t starts = 1; starts <= 4; ++starts) {
        NearEnd near(m_device, "seed=2");
        EXPECT_EQ(near.farSessions(), starts);
        EXPECT_EQ(near.counters().sessions, 1U);
        EXPECT_LE(near.counters().messagesReceived, near.asked()); // nothing meant for the former one
    }
}

} // namespace
