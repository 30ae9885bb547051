// What messages cost a link in memory while nothing goes wrong: once it has run, nothing new.

#include <gtest/gtest.h>

#include "platform/hostlink/HostLinkCore.h"
#include "support/HeapUse.h"
#include "support/LinkMessages.h"

namespace
{

constexpr int kMany = 2000;

/// Two ends joined by calls, with a session.
class HostLinkMemory : public ::testing::Test
{
protected:
    HostLinkMemory()
    {
        for (HostLinkCore& end : m_ends) {
            end.lineUp(m_now);
        }
        settle();
    }

    /// Lets both ends say what they have to say.
    void settle()
    {
        while (carry(0) || carry(1)) {
        }
    }

    bool carry(int from)
    {
        const HostLinkCore::Bytes bytes = m_ends[from].transmit(m_now);
        m_ends[1 - from].receive(bytes.data, bytes.size, m_now);
        return bytes.size > 0;
    }

    void send(int from, const ByteArray& message)
    {
        ASSERT_TRUE(m_ends[from].send(message, m_now));
        settle();
    }

    void take(int end)
    {
        ASSERT_TRUE(m_ends[end].take(m_taken));
        m_ends[end].handled();
        settle();
    }

    /// Allocations of many messages of a kind there and back, taken one by one.
    std::size_t allocationsOf(const ByteArray& message)
    {
        const auto exchange = [&] {
            for (int from = 0; from < 2; ++from) {
                send(from, message);
                take(1 - from);
                EXPECT_EQ(m_taken, message);
            }
        };
        for (int i = 0; i < 100; ++i) {
            exchange();
        }
        const std::size_t before = heapAllocations();
        for (int i = 0; i < kMany; ++i) {
            exchange();
        }
        return heapAllocations() - before;
    }

    const HostLinkTime m_now{std::chrono::hours(1)};
    HostLinkCore m_ends[2] = {HostLinkCore({}), HostLinkCore({})};
    ByteArray m_taken;
};

TEST_F(HostLinkMemory, StateMessagesAreCarriedInWhatIsThereAlready)
{
    EXPECT_EQ(allocationsOf(state(1, 80)), 0U);
}

TEST_F(HostLinkMemory, ChunksOfAFileAreCarriedInWhatIsThereAlready)
{
    EXPECT_EQ(allocationsOf(bulk(1, 32 * 1024 + 30)), 0U);
}

TEST_F(HostLinkMemory, AReaderThatIsNeverDoneGetsEverythingInOrderAndHoldsLittle)
{
    constexpr std::uint32_t kBehind = 5;
    std::size_t inUse = 0;
    for (std::uint32_t i = 0; i < kMany; ++i) {
        send(0, state(i));
        if (i < kBehind) {
            continue;
        }
        take(1);
        ASSERT_EQ(m_taken, state(i - kBehind));
        inUse = i == 100 ? heapInUse() : inUse;
    }
    EXPECT_LE(heapInUse(), inUse + 1024);
}

} // namespace
