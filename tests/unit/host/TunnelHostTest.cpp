#include "host/TunnelHost.h"

#include <gtest/gtest.h>

#include "platform/hostlink/HostLinkPrinter.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "vocabulary/States.h"

using namespace std::chrono_literals;

namespace
{

using Texts = std::vector<std::string>;

class TunnelHostTest : public testing::Test
{
protected:
    static ByteArray bytes(const std::string& text) { return ByteArray(text.begin(), text.end()); }

    void clientSends(int id, const std::string& data)
    {
        HostLinkValueMessage message(MSG_TcpTunnel);
        message.addValueBin16(1, bytes(char(id) + data));
        EXPECT_TRUE(m_tunnel.take(message.serialize(), m_now));
    }

    void clientCloses(int id)
    {
        HostLinkValueMessage message(MSG_TcpTunnel);
        message.addValueUint16(0, std::uint16_t(id));
        EXPECT_TRUE(m_tunnel.take(message.serialize(), m_now));
    }

    void reply(int code, int tag = 1)
    {
        HostLinkValueMessage message(MSG_TcpTunnelReply);
        message.addValueUint8(std::uint16_t(tag), std::uint8_t(code));
        EXPECT_TRUE(m_tunnel.take(message.serialize(), m_now));
    }

    void answerQuestion()
    {
        EXPECT_TRUE(m_tunnel.take(HostLinkValueMessage(MSG_TcpTunnelReply).serialize(), m_now));
    }

    /// What a module says first of all.
    void moduleStarts()
    {
        HostLinkValueMessage message(MSG_StateChanged);
        message.addValueUint8(STA_SystemUp, 1);
        EXPECT_FALSE(m_tunnel.take(message.serialize(), m_now)) << "it is for others too";
    }

    /// What it sends next, in readable form; empty for nothing.
    std::string sent()
    {
        const auto message = m_tunnel.next(m_now);
        return message ? HostLinkPrinter::printMessage(*message) : "";
    }

    /// Bytes of the next piece; 0 for no piece.
    std::size_t sentPiece()
    {
        const auto message = m_tunnel.next(m_now);
        return message ? HostLinkValueMessage(*message).getBin16(0).size() - 1 : 0;
    }

    const std::string kQuestion = "MSG_TcpTunnel"; ///< whether the module is still the same

    Texts m_seen;
    TunnelHost m_tunnel{{
        [this](TunnelHost::Id id, const ByteArray& data) {
            m_seen.push_back(std::to_string(id) + " data " + std::string(data.begin(), data.end()));
        },
        [this](TunnelHost::Id id) { m_seen.push_back(std::to_string(id) + " closed"); },
        [this](TunnelHost::Id id, const std::string& what) {
            m_seen.push_back(std::to_string(id) + " failed: " + what);
        },
    }};
    HostLinkTime m_now{1h};
};

TEST_F(TunnelHostTest, TellsWhatClientsSendAndThatTheyClose)
{
    clientSends(0, "hello");
    clientSends(255, "other");
    clientCloses(0);
    EXPECT_EQ(m_seen, (Texts{"0 data hello", "255 data other", "0 closed"}));
    EXPECT_TRUE(m_tunnel.hasConnections());
    EXPECT_EQ(sent(), "") << "nothing of it is answered";
}

TEST_F(TunnelHostTest, ValuesThatAreNothingOfTheTunnelsArePassedOver)
{
    HostLinkValueMessage message(MSG_TcpTunnel);
    message.addValueBin16(1, {});
    message.addValueUint8(1, 5);
    message.addValueUint16(0, 0x0100);
    message.addValueNil(9);
    message.addValueBin16(1, bytes(std::string(1, '\3') + "x"));
    EXPECT_TRUE(m_tunnel.take(message.serialize(), m_now));
    EXPECT_EQ(m_seen, Texts{"3 data x"});
    for (const int id : {0x0007, 0x8008, 0x8007}) {
        EXPECT_FALSE(m_tunnel.take(HostLinkValueMessage(MessageId(id)).serialize(), m_now));
    }
}

TEST_F(TunnelHostTest, OnePieceOfAConnectionIsUnderWay)
{
    clientSends(0, "x");
    m_tunnel.write(0, ByteArray(10'000, 'a'));
    m_tunnel.write(0, bytes("bb"));
    EXPECT_EQ(sentPiece(), 8192u);
    EXPECT_EQ(sentPiece(), 0u);
    reply(0);
    EXPECT_EQ(sentPiece(), 10'000u - 8192 + 2);
    reply(0);
    EXPECT_EQ(sentPiece(), 0u);
}

TEST_F(TunnelHostTest, WhatWasNotWrittenIsSentAgainAfterAPauseThatGrows)
{
    m_tunnel.write(4, bytes("data"));
    const std::string piece = "MSG_TcpTunnel 1=bin:0464617461";
    EXPECT_EQ(sent(), piece);
    EXPECT_EQ(m_tunnel.deadline(), HostLinkTime::max()) << "nothing to do before the answer";
    HostLinkDuration last{};
    for (int i = 0; i < 8; ++i) {
        reply(3);
        EXPECT_EQ(sent(), "");
        const HostLinkDuration pause = m_tunnel.deadline() - m_now;
        EXPECT_GE(pause, last);
        EXPECT_LE(pause, 200ms);
        last = pause;
        m_now = m_tunnel.deadline();
        EXPECT_EQ(sent(), piece) << "nothing of it was written";
    }
    EXPECT_GT(last, 100ms);
    reply(0);
    m_tunnel.write(4, bytes("x"));
    sent();
    reply(3);
    EXPECT_LT(m_tunnel.deadline() - m_now, 10ms) << "after a success it begins anew";
}

TEST_F(TunnelHostTest, AClientThatDoesNotReadStopsNoOther)
{
    m_tunnel.write(1, bytes("stuck"));
    m_tunnel.write(2, bytes("first"));
    m_tunnel.write(2, ByteArray(8192, 'z'));
    EXPECT_EQ(sent(), "MSG_TcpTunnel 1=bin:01737475636b");
    EXPECT_EQ(sentPiece(), 8192u);
    reply(3);
    reply(0);
    EXPECT_EQ(sentPiece(), 5u);
    reply(0);
    clientSends(1, "still talks");
    EXPECT_EQ(m_seen, Texts{"1 data still talks"});
}

TEST_F(TunnelHostTest, ConnectionsHaveTheirTurns)
{
    for (const int id : {0, 1, 2}) {
        m_tunnel.write(TunnelHost::Id(id), ByteArray(20'000, 'a'));
    }
    std::vector<int> order;
    for (int i = 0; i < 6; ++i) {
        const HostLinkValueMessage piece(m_tunnel.next(m_now).value_or(ByteArray()));
        order.push_back(piece.getBin16(0).front());
        reply(0);
    }
    EXPECT_EQ(order, (std::vector<int>{1, 2, 0, 1, 2, 0}));
}

TEST_F(TunnelHostTest, AllTogetherHaveABoundOfWhatIsUnderWay)
{
    for (int id = 0; id < 50; ++id) {
        m_tunnel.write(TunnelHost::Id(id), ByteArray(8192, 'a'));
    }
    std::size_t underWay = 0;
    while (const std::size_t size = sentPiece()) {
        underWay += size;
    }
    EXPECT_EQ(underWay, TunnelHost::kMostUnderWay);
    EXPECT_EQ(m_tunnel.deadline(), HostLinkTime::max());
    reply(0);
    EXPECT_EQ(sentPiece(), 8192u);
}

TEST_F(TunnelHostTest, ClosesBehindWhatWaits)
{
    m_tunnel.write(5, bytes("bye"));
    m_tunnel.close(5);
    EXPECT_EQ(sent(), "MSG_TcpTunnel 1=bin:05627965");
    EXPECT_EQ(sent(), "");
    reply(0);
    EXPECT_EQ(sent(), "MSG_TcpTunnel 2=u16:5");
    m_tunnel.write(5, bytes("too late"));
    EXPECT_EQ(m_seen, Texts{"5 failed: it is being closed"});
    clientCloses(5);
    reply(0, 2);
    EXPECT_FALSE(m_tunnel.hasConnections());
    EXPECT_EQ(sent(), "");
}

TEST_F(TunnelHostTest, ACloseIsAskedForOnceThoughTheNoticeComesLate)
{
    m_tunnel.close(5);
    EXPECT_EQ(sent(), "MSG_TcpTunnel 2=u16:5");
    reply(0, 2);
    EXPECT_EQ(sent(), "");
    EXPECT_TRUE(m_tunnel.hasConnections());
    clientCloses(5);
    EXPECT_FALSE(m_tunnel.hasConnections());
}

TEST_F(TunnelHostTest, AConnectionThatDoesNotExistIsForgotten)
{
    m_tunnel.write(9, bytes("hello"));
    sent();
    reply(2);
    EXPECT_EQ(m_seen, Texts{"9 failed: there is no such connection"});
    EXPECT_FALSE(m_tunnel.hasConnections());
    EXPECT_EQ(sent(), "");
}

TEST_F(TunnelHostTest, AnAnswerThatNobodyUnderstandsEndsTheConnectionNotALoop)
{
    m_tunnel.write(9, bytes("hello"));
    sent();
    EXPECT_TRUE(m_tunnel.take(HostLinkValueMessage(MSG_TcpTunnelReply).serialize(), m_now));
    EXPECT_EQ(m_seen, Texts{"9 failed: the module does not understand; closing"});
    EXPECT_EQ(sent(), "MSG_TcpTunnel 2=u16:9");
    reply(4, 2);
    EXPECT_EQ(sent(), "");
}

TEST_F(TunnelHostTest, AnAnswerWithoutARequestIsPassedOver)
{
    reply(3);
    reply(2);
    EXPECT_EQ(sent(), "");
    EXPECT_TRUE(m_seen.empty());
}

TEST_F(TunnelHostTest, TheAnswerForAFormerHolderOfTheIdIsNotTheNewOnes)
{
    m_tunnel.write(0, bytes("for the first"));
    sent();
    clientCloses(0);
    clientSends(0, "a new one");
    m_tunnel.write(0, bytes("for the new one"));
    EXPECT_EQ(sentPiece(), 15u);
    reply(2); // of the first
    EXPECT_TRUE(m_tunnel.hasConnections());
    reply(3);
    m_now = m_tunnel.deadline();
    EXPECT_EQ(sentPiece(), 15u);
    reply(0);
    EXPECT_EQ(m_seen, (Texts{"0 closed", "0 data a new one"}));
}

TEST_F(TunnelHostTest, AClientThatSendsAndNeverReadsIsClosedBeforeTheMemoryIsFull)
{
    m_tunnel.write(0, ByteArray(TunnelHost::kMostWaiting, 'a'));
    EXPECT_EQ(sentPiece(), 8192u);
    m_tunnel.write(0, bytes("b"));
    EXPECT_EQ(m_seen, Texts{"0 failed: the client does not read; closing"});
    reply(3);
    m_now += 1s;
    EXPECT_EQ(sent(), "MSG_TcpTunnel 2=u16:0");
}

TEST_F(TunnelHostTest, AllThatWaitsTogetherIsBoundedAndTheOneWithTheMostIsClosed)
{
    constexpr std::size_t kMegabyte = 1024 * 1024;
    const ByteArray large(TunnelHost::kMostWaiting - kMegabyte, 'a');
    for (const TunnelHost::Id id : {1, 2, 3, 4}) {
        m_tunnel.write(id, id == 3 ? ByteArray(TunnelHost::kMostWaiting, 'a') : large);
    }
    m_tunnel.write(5, ByteArray(3 * kMegabyte, 'b'));
    EXPECT_EQ(m_seen, Texts{}) << "there was just room for all";
    m_tunnel.write(5, bytes("b"));
    EXPECT_EQ(m_seen, Texts{"3 failed: the client does not read; closing"});
    m_tunnel.write(6, ByteArray(TunnelHost::kMostWaiting - 1, 'c'));
    EXPECT_EQ(m_seen.size(), 1u) << "what was closed holds no room";
}

TEST_F(TunnelHostTest, ANewSessionClosesWhatMayHaveLostBytes)
{
    clientSends(3, "x");
    clientSends(7, "y");
    m_tunnel.write(3, bytes("under way"));
    sent();
    m_seen.clear();
    m_tunnel.sessionBegan();
    EXPECT_EQ(m_seen,
              (Texts{"3 failed: a new session began; closing", "7 failed: a new session began; closing"}));
    m_seen.clear();
    EXPECT_EQ(sent(), kQuestion);
    EXPECT_EQ(sent(), "") << "before the answer the module may be another one";
    answerQuestion();
    EXPECT_EQ(sent(), "MSG_TcpTunnel 2=u16:3");
    EXPECT_EQ(sent(), "MSG_TcpTunnel 2=u16:7");
    EXPECT_EQ(sent(), "");
    clientSends(3, "behind a hole");
    EXPECT_EQ(m_seen, Texts{});
    EXPECT_TRUE(m_tunnel.hasConnections());
    clientCloses(3);
    reply(0, 2);
    reply(2, 2);
    EXPECT_EQ(m_seen, (Texts{"3 closed", "7 closed"}));
    EXPECT_FALSE(m_tunnel.hasConnections());
    m_seen.clear();
    m_tunnel.sessionBegan();
    EXPECT_TRUE(m_seen.empty());
    EXPECT_EQ(sent(), "") << "nobody is left to be asked about";
}

TEST_F(TunnelHostTest, ClientsOfAModuleThatRestartedAreNotTakenForThoseOfBefore)
{
    clientSends(0, "of the old one");
    m_tunnel.sessionBegan();
    m_seen.clear();
    EXPECT_EQ(sent(), kQuestion);
    moduleStarts();
    clientSends(0, "of the new one");
    answerQuestion();
    EXPECT_EQ(sent(), "") << "it is not closed";
    m_tunnel.write(0, bytes("hi"));
    EXPECT_EQ(sent(), "MSG_TcpTunnel 1=bin:006869");
    reply(0);
    EXPECT_EQ(m_seen, (Texts{"0 closed", "0 data of the new one"}));
}

TEST_F(TunnelHostTest, OnlyTheFirstMessageOfASessionSaysThatTheModuleRestarted)
{
    clientSends(0, "x");
    m_tunnel.sessionBegan();
    EXPECT_EQ(sent(), kQuestion);
    answerQuestion();
    moduleStarts(); // a subscription's event
    EXPECT_EQ(sent(), "MSG_TcpTunnel 2=u16:0");
}

TEST_F(TunnelHostTest, AClientThatClosedByItselfAfterANewSessionDoesNotTakeTheNextOneAlong)
{
    clientSends(0, "x");
    m_tunnel.sessionBegan();
    EXPECT_EQ(sent(), kQuestion);
    clientCloses(0);
    clientSends(0, "the next one");
    answerQuestion();
    EXPECT_EQ(sent(), "");
    EXPECT_EQ(m_seen.back(), "0 data the next one");
}

TEST_F(TunnelHostTest, WhatAFormerSessionLeftIsClosedThoughThatWasLostWithTheNextSession)
{
    clientSends(0, "x");
    m_tunnel.sessionBegan();
    EXPECT_EQ(sent(), kQuestion);
    answerQuestion();
    EXPECT_EQ(sent(), "MSG_TcpTunnel 2=u16:0");
    m_tunnel.sessionBegan();
    EXPECT_EQ(sent(), kQuestion);
    answerQuestion();
    EXPECT_EQ(sent(), "MSG_TcpTunnel 2=u16:0");
    reply(2, 2);
    EXPECT_FALSE(m_tunnel.hasConnections());
}

TEST_F(TunnelHostTest, NothingIsWrittenToAClientOfAFormerSession)
{
    clientSends(0, "x");
    m_tunnel.sessionBegan();
    EXPECT_EQ(sent(), kQuestion);
    m_seen.clear();
    m_tunnel.write(0, bytes("more"));
    m_tunnel.close(0); // it is closed anyway
    EXPECT_EQ(m_seen, Texts{"0 failed: it is being closed"});
    answerQuestion();
    EXPECT_EQ(sent(), "MSG_TcpTunnel 2=u16:0");
    EXPECT_EQ(sent(), "");
    EXPECT_TRUE(m_tunnel.take(HostLinkValueMessage(MSG_TcpTunnelReply).serialize(), m_now));
    EXPECT_FALSE(m_tunnel.hasConnections()) << "an answer that nobody understands ends it too";
}

TEST_F(TunnelHostTest, ClosingAllDropsWhatWaits)
{
    clientSends(0, "x");
    clientSends(1, "y");
    m_tunnel.write(1, ByteArray(100'000, 'z'));
    m_tunnel.closeAll();
    EXPECT_EQ(sent(), "MSG_TcpTunnel 2=u16:1");
    EXPECT_EQ(sent(), "MSG_TcpTunnel 2=u16:0");
    EXPECT_EQ(sent(), "");
}

} // namespace
