#include <gtest/gtest.h>

#include <deque>
#include <random>

#include "platform/hostlink/HostLinkCore.h"
#include "support/LinkMessages.h"
#include "support/SimulatedLink.h"
#include "support/TestSeeds.h"

using namespace std::chrono_literals;

namespace
{

using Session = HostLinkCore::Session;

constexpr MessageId kStateIds[] = {MSG_SetState, MSG_GetState, MSG_StateChanged, MSG_GetStateResponse,
                                   MessageId(0x0042)};
constexpr MessageId kBulkIds[] = {MSG_DataTransfer, MSG_TcpTunnel, MSG_DataTransferResponse,
                                  MSG_TcpTunnelReply};

/// The n-th message of a class that an end sends: all of it follows from the seed.
ByteArray messageOf(std::uint32_t seed, int from, MessageClass messageClass, std::uint32_t n)
{
    std::minstd_rand random(seed * 4 + std::uint32_t(from) * 2 + std::uint32_t(messageClass) + n * 8);
    random.discard(2);
    const bool isLong = random() % 64 == 0;
    const std::size_t size = 6 + random() % (isLong ? 3000 : 60);
    const MessageId id = messageClass == MessageClass::Bulk ? kBulkIds[random() % std::size(kBulkIds)]
                                                            : kStateIds[random() % std::size(kStateIds)];
    ByteArray bytes = message(id, n, size);
    std::fill(bytes.begin() + 6, bytes.end(), static_cast<std::uint8_t>(random()));
    return bytes;
}

/// What one end sends and what the other has got of it.
struct Direction {
    std::uint32_t sent[2] = {};
    std::uint32_t received[2] = {};
    std::deque<ByteArray> unhandled;
    std::size_t unhandledBytes[2] = {};

    std::uint32_t allSent() const { return sent[0] + sent[1]; }
};

/// Random messages both ways in both classes, over a line on which about one frame of a hundred is hit.
class HostLinkEndurance : public ::testing::TestWithParam<std::uint32_t>
{
protected:
    static constexpr std::uint32_t kMessages = 100'000; ///< of each end

    static SimulatedLink::Faults faults(std::uint32_t seed)
    {
        SimulatedLink::Faults faults;
        faults.drop = faults.flip = faults.duplicate = faults.insert = 0.00003;
        faults.burst = seed % 2 == 0 ? 1 : 60;
        faults.split = faults.merge = 0.01;
        faults.cuts.interval = 2s;
        faults.bytesPerSecond = seed % 3 == 0 ? 1'000'000 : 0;
        faults.delay = seed % 5 == 0 ? 3ms : 100us;
        return faults;
    }

    static HostLinkCore::Settings settings(std::uint32_t seed)
    {
        HostLinkCore::Settings settings;
        if (seed % 4 == 0) {
            settings.creditBytes[0] = settings.creditBytes[1] = 4000;
            settings.queueBytes[0] = settings.queueBytes[1] = 20'000;
        }
        return settings;
    }

    HostLinkEndurance()
    {
        for (SimulatedLink::End& end : m_link.ends) {
            end.handles = m_seed % 2 == 0;
        }
    }

    void sendSome(int from)
    {
        Direction& mine = m_directions[from];
        for (auto left = m_random() % 24; left > 0 && mine.allSent() < kMessages; --left) {
            const auto messageClass = static_cast<MessageClass>(m_random() % 3 == 0);
            const auto c = static_cast<std::size_t>(messageClass);
            const ByteArray bytes = messageOf(m_seed, from, messageClass, mine.sent[c]);
            if (m_link.ends[from]->writable(messageClass, bytes.size())) {
                ASSERT_TRUE(m_link.ends[from]->send(bytes, m_link.now));
                ++mine.sent[c];
            }
            ASSERT_LE(m_link.ends[from]->queuedBytes(messageClass), m_settings.queueBytes[c]);
        }
    }

    /// Each message has to be the next one of its class.
    void checkReceived(int at)
    {
        SimulatedLink::End& end = m_link.ends[at];
        Direction& theirs = m_directions[1 - at];
        for (const ByteArray& bytes : end.received) {
            const MessageClass messageClass = ::messageClass(HostLinkMessage::messageId(bytes));
            const auto c = static_cast<std::size_t>(messageClass);
            ASSERT_TRUE(bytes == messageOf(m_seed, 1 - at, messageClass, theirs.received[c]))
                << "message " << theirs.received[c] << " of class " << c;
            ++theirs.received[c];
            theirs.unhandledBytes[c] += bytes.size();
            ASSERT_TRUE(end.handles || theirs.unhandledBytes[c] <= m_settings.creditBytes[c]);
            if (!end.handles) {
                theirs.unhandled.push_back(bytes);
            }
        }
        end.received.clear();
        end.receivedIn.clear();
    }

    void handleSome(int at, std::size_t most)
    {
        Direction& theirs = m_directions[1 - at];
        for (; most > 0 && !theirs.unhandled.empty(); --most) {
            const ByteArray& bytes = theirs.unhandled.front();
            const auto c = static_cast<std::size_t>(::messageClass(HostLinkMessage::messageId(bytes)));
            theirs.unhandledBytes[c] -= bytes.size();
            m_link.ends[at]->handled();
            theirs.unhandled.pop_front();
        }
    }

    bool allArrived() const
    {
        const auto arrived = [](const Direction& it) {
            return it.allSent() == kMessages && it.received[0] == it.sent[0] && it.received[1] == it.sent[1];
        };
        return arrived(m_directions[0]) && arrived(m_directions[1]);
    }

    const std::uint32_t m_seed = GetParam();
    const HostLinkCore::Settings m_settings = settings(m_seed);
    std::mt19937 m_random{m_seed};
    SimulatedLink m_link{faults(m_seed), m_seed, m_settings};
    Direction m_directions[2]; ///< by the end that sends
};

TEST_P(HostLinkEndurance, AHundredThousandMessagesEachWayArriveOnceAndInOrder)
{
    SCOPED_TRACE(replayWith(m_seed));
    m_link.lineUp();
    const HostLinkTime limit = m_link.now + 1h;
    while (!allArrived() && m_link.now < limit) {
        for (int i = 0; i < 2; ++i) {
            sendSome(i);
            checkReceived(i);
            handleSome(i, m_random() % 40);
            ASSERT_FALSE(HasFatalFailure());
        }
        m_link.run(std::chrono::microseconds(m_random() % 1500));
    }
    m_link.run(5s);
    for (int i = 0; i < 2; ++i) {
        checkReceived(i);
        handleSome(i, kMessages);
    }
    ASSERT_TRUE(allArrived());
    for (SimulatedLink::End& end : m_link.ends) {
        EXPECT_EQ(end->sessionNumber(), 1U);
        EXPECT_TRUE(end->allAcknowledged(MessageClass::State));
        EXPECT_TRUE(end->allAcknowledged(MessageClass::Bulk));
        const HostLinkCore::Counters& counters = end->counters();
        EXPECT_EQ(counters.messagesDiscarded + counters.messagesBroken, 0U);
        const double damaged = double(counters.framesDamaged) / double(counters.framesReceived);
        EXPECT_GT(damaged, 0.002);
        EXPECT_LT(damaged, 0.05);
        EXPECT_GT(counters.greetings, 3U); // the line was cut now and then
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, HostLinkEndurance, testSeeds(12));

} // namespace
