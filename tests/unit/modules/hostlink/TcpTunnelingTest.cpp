#include "modules/hostlink/TcpTunneling.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <QAbstractEventDispatcher>
#include <QTcpServer>
#include <QTcpSocket>
#include <random>

#include "support/HandlerFixture.h"
#include "support/NoDescriptorsLeft.h"

namespace
{

using Texts = std::vector<std::string>;

/// Room in the bulk queue for clients' data is small, so that tests fill it soon.
constexpr std::size_t kReserve = 225 * 1024;

QByteArray randomBytes(int size, unsigned seed)
{
    std::mt19937 random(seed);
    QByteArray bytes(size, 0);
    for (char& byte : bytes) {
        byte = char(random());
    }
    return bytes;
}

class TcpTunnelingTest : public HandlerFixture
{
protected:
    using Client = std::unique_ptr<QTcpSocket>;

    TcpTunnelingTest() : HandlerFixture(kReserve) {}

    /// Makes the tunnel on a port of its own.
    TcpTunneling& open(int maxConnections = 4, std::chrono::milliseconds closing = TcpTunneling::kClosing)
    {
        QTcpServer probe;
        EXPECT_TRUE(probe.listen(QHostAddress::Any, 0));
        m_port = probe.serverPort();
        probe.close();
        m_tunnel = new TcpTunneling(&m_worker, &m_transport, m_port, maxConnections, closing);
        m_handler = m_tunnel;
        return *m_tunnel;
    }

    /// A client that the server has taken, or rejected.
    Client connectClient()
    {
        const std::size_t before = m_log.count(log4cplus::TRACE_LOG_LEVEL, kNewClient);
        Client client = std::make_unique<QTcpSocket>();
        client->connectToHost(QHostAddress::LocalHost, m_port);
        EXPECT_TRUE(waitFor([&] { return m_log.count(log4cplus::TRACE_LOG_LEVEL, kNewClient) > before; }));
        EXPECT_TRUE(waitFor([&] { return client->state() != QTcpSocket::ConnectingState; }));
        return client;
    }

    /// A client that has said hello, and so is known to the host by this id.
    Client connectAs(int id)
    {
        Client client = connectClient();
        client->write("hello");
        EXPECT_EQ(receive(), "MSG_TcpTunnel 1=bin:" + hexByte(id) + "68656c6c6f");
        return client;
    }

    static std::string hexByte(int value) { return QByteArray(1, char(value)).toHex().toStdString(); }

    static void addData(HostLinkValueMessage* message, int id, const QByteArray& data)
    {
        ByteArray bytes(1, std::uint8_t(id));
        bytes.insert(bytes.end(), data.begin(), data.end());
        message->addValueBin16(1, bytes);
    }

    static ByteArray dataFor(int id, const QByteArray& data)
    {
        HostLinkValueMessage message(MSG_TcpTunnel);
        addData(&message, id, data);
        return message.serialize();
    }

    static ByteArray command(int value)
    {
        HostLinkValueMessage message(MSG_TcpTunnel);
        message.addValueUint16(2, std::uint16_t(value));
        return message.serialize();
    }

    static QByteArray received(QTcpSocket& client, int size)
    {
        EXPECT_TRUE(waitFor([&] { return client.bytesAvailable() >= size; }));
        return client.readAll();
    }

    /// A client with the id 0 that reads nothing, and for which the tunnel keeps as much as it takes. The
    /// system keeps little beside, so that it does not take the rest later.
    Client connectFull()
    {
        Client client = connectClient();
        client->setReadBufferSize(1);
        sockets().first()->setSocketOption(QAbstractSocket::SendBufferSizeSocketOption, 4096);
        client->write("x");
        receiveData(0, 1);
        const QByteArray data = randomBytes(32'000, 9);
        m_taken.clear();
        for (int refusals = 0; refusals < 2 && m_taken.size() < 64 * 1024 * 1024;) {
            const bool isTaken = ask(dataFor(0, data)) == "MSG_TcpTunnelReply 1=u8:0";
            m_taken += isTaken ? data : QByteArray();
            refusals = isTaken ? 0 : refusals + 1;
        }
        return client;
    }

    /// The tunnel's own ends of its connections.
    QList<QTcpSocket*> sockets() const { return m_tunnel->findChildren<QTcpSocket*>(); }

    static bool isClosed(const QTcpSocket& client) { return client.state() == QTcpSocket::UnconnectedState; }

    /// The data of one client up to so many bytes, message by message.
    QByteArray receiveData(int id, int size)
    {
        QByteArray all;
        while (all.size() < size) {
            const HostLinkValueMessage message(m_host->receive());
            EXPECT_EQ(message.id(), MSG_TcpTunnel);
            EXPECT_EQ(message.size(), 1);
            EXPECT_EQ(message.getTag(0), 1);
            const ByteArray bytes = message.getBin16(0);
            if (bytes.empty() || bytes.front() != std::uint8_t(id)) {
                ADD_FAILURE() << "no data of connection " << id;
                return all;
            }
            EXPECT_LE(bytes.size(), 8193U);
            all.append(reinterpret_cast<const char*>(bytes.data() + 1), int(bytes.size()) - 1);
        }
        return all;
    }

    std::size_t countReads() const
    {
        std::size_t reads = 0;
        for (const std::string& line : m_log.traces()) {
            reads += line.rfind("Received ", 0) == 0 ? 1 : 0;
        }
        return reads;
    }

    const std::string kNewClient = "New client: ::ffff:127.0.0.1";

    quint16 m_port = 0;
    TcpTunneling* m_tunnel = nullptr; ///< the worker's
    QByteArray m_taken;               ///< what was written for connectFull()'s client
};

TEST_F(TcpTunnelingTest, ItsStartIsLogged)
{
    open(7);
    EXPECT_EQ(m_log.debugs(), Texts{"Starting TCP tunneling server at port: " + std::to_string(m_port)
                                    + ", max allowed connections: 7"});
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(TcpTunnelingTest, APortInUseLeavesItWithoutClients)
{
    QTcpServer other;
    ASSERT_TRUE(other.listen(QHostAddress::Any, 0));
    TcpTunneling tunnel(nullptr, &m_transport, other.serverPort(), 4);
    m_handler = &tunnel;
    EXPECT_EQ(m_log.errors(), Texts{"The bound address is already in use"});
    EXPECT_EQ(ask(dataFor(0, "x")), "MSG_TcpTunnelReply 1=u8:2");
    tunnel.shutdown();
}

TEST_F(TcpTunnelingTest, AConnectionIsToldByItsFirstData)
{
    open();
    const Client client = connectClient();
    EXPECT_TRUE(nothingSent());
    client->write("GET /");
    EXPECT_EQ(receive(), "MSG_TcpTunnel 1=bin:00474554202f");
    EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL, kNewClient), 1U);
    EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL, "Received 5 bytes"), 1U);
}

TEST_F(TcpTunnelingTest, TheHostsDataReachesItsClientOnly)
{
    open();
    const Client first = connectAs(0);
    const Client second = connectAs(1);
    EXPECT_EQ(ask(dataFor(1, "for the second")), "MSG_TcpTunnelReply 1=u8:0");
    EXPECT_EQ(received(*second, 14), "for the second");
    EXPECT_EQ(first->bytesAvailable(), 0);
    EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL, "Sending 14 bytes"), 1U);
    EXPECT_EQ(m_log.count(log4cplus::DEBUG_LOG_LEVEL, "Received tcp tunneling message"), 1U);
}

TEST_F(TcpTunnelingTest, AMegabyteOfAClientArrivesInReadsOf8192Bytes)
{
    open();
    const Client client = connectClient();
    const QByteArray data = randomBytes(1024 * 1024, 1);
    client->write(data);
    EXPECT_EQ(receiveData(0, data.size()), data);
}

TEST_F(TcpTunnelingTest, AMegabyteOfTheHostArrivesInOnePiece)
{
    open();
    const Client client = connectAs(0);
    const QByteArray data = randomBytes(1024 * 1024, 2);
    QByteArray got;
    for (int at = 0; at < data.size(); at += 32768) {
        EXPECT_EQ(ask(dataFor(0, data.mid(at, 32768))), "MSG_TcpTunnelReply 1=u8:0");
        got += received(*client, 32768);
    }
    EXPECT_EQ(got, data);
}

TEST_F(TcpTunnelingTest, TheSmallestFreeIdIsGivenNext)
{
    open();
    const Client first = connectAs(0);
    Client second = connectAs(1);
    const Client third = connectAs(2);
    second.reset();
    EXPECT_EQ(receive(), "MSG_TcpTunnel 0=u16:1");
    const Client fourth = connectAs(1);
    const Client fifth = connectAs(3);
}

TEST_F(TcpTunnelingTest, OneTooManyIsClosedAndTheHostNotTold)
{
    open(2);
    Client first = connectAs(0);
    const Client second = connectAs(1);
    const Client third = connectClient();
    EXPECT_TRUE(waitFor([&] { return isClosed(*third); }));
    EXPECT_EQ(m_log.warnings(), Texts{"Max connection reached, rejecting"});
    EXPECT_TRUE(nothingSent());
    first.reset();
    EXPECT_EQ(receive(), "MSG_TcpTunnel 0=u16:0");
    const Client fourth = connectAs(0);
}

TEST_F(TcpTunnelingTest, WithoutALimitTenAreTaken)
{
    for (const int none : {0, -5}) {
        open(none);
        std::vector<Client> clients;
        for (int id = 0; id < 10; ++id) {
            clients.push_back(connectAs(id));
        }
        m_log.clear();
        const Client eleventh = connectClient();
        EXPECT_TRUE(waitFor([&] { return isClosed(*eleventh); }));
        EXPECT_EQ(m_log.warnings(), Texts{"Max connection reached, rejecting"});
        delete m_tunnel;
    }
}

TEST_F(TcpTunnelingTest, IdsBeyond127AreNegativeNumbersInLogsAndOneByteOnTheLink)
{
    open(1000);
    std::vector<Client> clients;
    for (int id = 0; id < 256; ++id) {
        clients.push_back(connectClient());
    }
    clients.back()->write("x");
    EXPECT_EQ(receive(), "MSG_TcpTunnel 1=bin:ff78");
    EXPECT_EQ(ask(dataFor(200, "y")), "MSG_TcpTunnelReply 1=u8:0");
    EXPECT_EQ(received(*clients[200], 1), "y");
    m_log.clear();
    EXPECT_EQ(ask(command(0x0100 + 255)), "MSG_TcpTunnelReply 2=u8:4");
    EXPECT_EQ(m_log.errors(), Texts{"Invalid command: 1"});
    const Client none = connectClient();
    EXPECT_TRUE(waitFor([&] { return isClosed(*none); })) << "there are 256 ids";
    clients[254].reset();
    EXPECT_EQ(receive(), "MSG_TcpTunnel 0=u16:254");
    m_log.clear();
    EXPECT_EQ(ask(dataFor(254, "y")), "MSG_TcpTunnelReply 1=u8:2");
    EXPECT_EQ(m_log.errors(), Texts{"Tcp connection -2 doesn't exist"});
}

TEST_F(TcpTunnelingTest, AClientThatClosesIsTold)
{
    open();
    Client client = connectAs(0);
    m_log.clear();
    client->disconnectFromHost();
    EXPECT_EQ(receive(), "MSG_TcpTunnel 0=u16:0");
    EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL, "Client disconnected: ::ffff:127.0.0.1"), 1U);
    EXPECT_EQ(ask(dataFor(0, "late")), "MSG_TcpTunnelReply 1=u8:2");
    EXPECT_EQ(m_log.errors(), Texts{"Tcp connection 0 doesn't exist"});
}

TEST_F(TcpTunnelingTest, WhatAClientSaidBeforeItClosedComesFirst)
{
    open();
    const Client client = connectClient();
    const QByteArray data = randomBytes(100'000, 3);
    client->write(data);
    client->disconnectFromHost();
    EXPECT_EQ(receiveData(0, data.size()), data);
    EXPECT_EQ(receive(), "MSG_TcpTunnel 0=u16:0");
}

TEST_F(TcpTunnelingTest, AResetIsLoggedAndTold)
{
    open();
    Client client = connectAs(0);
    const linger hard{1, 0};
    ASSERT_EQ(setsockopt(int(client->socketDescriptor()), SOL_SOCKET, SO_LINGER, &hard, sizeof hard), 0);
    m_log.clear();
    client->abort();
    EXPECT_EQ(receive(), "MSG_TcpTunnel 0=u16:0");
    EXPECT_EQ(m_log.count(log4cplus::DEBUG_LOG_LEVEL, "Error occured on connection 0, error: 1"), 1U)
        << "of QAbstractSocket::RemoteHostClosedError";
}

TEST_F(TcpTunnelingTest, TheHostClosesAConnection)
{
    open();
    const Client first = connectAs(0);
    const Client second = connectAs(1);
    ASSERT_NE(m_host->send(command(0x0001)), 0);
    EXPECT_EQ(receive(), "MSG_TcpTunnel 0=u16:1") << "the connection is gone before the answer";
    EXPECT_EQ(receive(), "MSG_TcpTunnelReply 2=u8:0");
    EXPECT_TRUE(waitFor([&] { return isClosed(*second); }));
    EXPECT_FALSE(isClosed(*first));
    m_log.clear();
    EXPECT_EQ(ask(command(0x0001)), "MSG_TcpTunnelReply 2=u8:2");
    EXPECT_EQ(m_log.errors(), Texts{"Tcp connection 1 doesn't exist"});
}

TEST_F(TcpTunnelingTest, WhatTheHostSaidBeforeItClosedArrives)
{
    open();
    const Client client = connectAs(0);
    const QByteArray data = randomBytes(60'000, 4);
    EXPECT_EQ(ask(dataFor(0, data)), "MSG_TcpTunnelReply 1=u8:0");
    m_host->send(command(0));
    EXPECT_EQ(received(*client, data.size()), data);
    EXPECT_TRUE(waitFor([&] { return isClosed(*client); }));
}

TEST_F(TcpTunnelingTest, AClientThatReadsAgainGetsAllThatTheHostSaidBeforeItClosed)
{
    open();
    const Client client = connectFull();
    EXPECT_EQ(ask(command(0)), "MSG_TcpTunnelReply 2=u8:0");
    EXPECT_EQ(ask(dataFor(0, "late")), "MSG_TcpTunnelReply 1=u8:3");
    EXPECT_TRUE(nothingSent()) << "the connection stands while bytes wait";
    client->setReadBufferSize(0);
    EXPECT_EQ(received(*client, m_taken.size()), m_taken);
    EXPECT_EQ(receive(), "MSG_TcpTunnel 0=u16:0");
    EXPECT_TRUE(waitFor([&] { return isClosed(*client); }));
    const Client next = connectAs(0);
}

TEST_F(TcpTunnelingTest, AClientThatDoesNotReadIsPutOutSomeTimeAfterTheHostHasClosedIt)
{
    open(4, std::chrono::milliseconds(1));
    const Client client = connectFull();
    EXPECT_EQ(ask(command(0)), "MSG_TcpTunnelReply 2=u8:0");
    EXPECT_EQ(receive(), "MSG_TcpTunnel 0=u16:0");
    const Client next = connectAs(0);
    EXPECT_EQ(sockets().size(), 1) << "nothing is left of it";
    client->setReadBufferSize(0);
    EXPECT_TRUE(waitFor([&] { return isClosed(*client); }));
    EXPECT_TRUE(nothingSent());
}

TEST_F(TcpTunnelingTest, ClosingAgainWhatIsBeingClosedStartsNoSecondTimer)
{
    open();
    const Client client = connectFull();
    const auto timers = [] { return QAbstractEventDispatcher::instance()->children().size(); };
    const int before = timers();
    EXPECT_EQ(ask(command(0)), "MSG_TcpTunnelReply 2=u8:0");
    EXPECT_EQ(timers(), before + 1);
    EXPECT_EQ(ask(command(0)), "MSG_TcpTunnelReply 2=u8:0");
    EXPECT_EQ(timers(), before + 1);
}

TEST_F(TcpTunnelingTest, OtherCommandsAreUnknownAndCloseNothing)
{
    open(6);
    std::vector<Client> clients;
    for (int id = 0; id < 6; ++id) {
        clients.push_back(connectAs(id));
    }
    m_log.clear();
    EXPECT_EQ(ask(command(0x0105)), "MSG_TcpTunnelReply 2=u8:4");
    EXPECT_EQ(ask(command(0xFF05)), "MSG_TcpTunnelReply 2=u8:4");
    EXPECT_EQ(m_log.errors(), (Texts{"Invalid command: 1", "Invalid command: 255"}));
    EXPECT_EQ(ask(dataFor(5, "still there")), "MSG_TcpTunnelReply 1=u8:0");
    EXPECT_EQ(received(*clients[5], 11), "still there");
    m_log.clear();
    EXPECT_EQ(ask(command(0x0106)), "MSG_TcpTunnelReply 2=u8:2") << "the connection is looked up first";
}

TEST_F(TcpTunnelingTest, EachValueIsAnsweredUnderItsTagInOrder)
{
    open();
    const Client client = connectAs(0);
    HostLinkValueMessage message(MSG_TcpTunnel);
    message.addValueUint16(2, 0x0100);
    addData(&message, 0, "data");
    message.addValueNil(77);
    addData(&message, 3, "nobody");
    EXPECT_EQ(ask(message), "MSG_TcpTunnelReply 2=u8:4 1=u8:0 77=u8:1 1=u8:2");
    EXPECT_EQ(received(*client, 4), "data");
    EXPECT_EQ(ask(HostLinkValueMessage(MSG_TcpTunnel)), "MSG_TcpTunnelReply");
}

TEST_F(TcpTunnelingTest, AfterACloseInTheSameMessageThereIsNoConnection)
{
    open();
    const Client client = connectAs(0);
    HostLinkValueMessage message(MSG_TcpTunnel);
    message.addValueUint16(2, 0x0000);
    addData(&message, 0, "late");
    m_host->send(message);
    EXPECT_EQ(receive(), "MSG_TcpTunnel 0=u16:0");
    EXPECT_EQ(receive(), "MSG_TcpTunnelReply 2=u8:0 1=u8:2");
}

TEST_F(TcpTunnelingTest, AnIdWithoutDataWritesNothingAndIsDone)
{
    open();
    const Client client = connectAs(0);
    EXPECT_EQ(ask(dataFor(0, "")), "MSG_TcpTunnelReply 1=u8:0");
    EXPECT_EQ(client->bytesAvailable(), 0);
    EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL, "Sending 0 bytes"), 1U);
}

TEST_F(TcpTunnelingTest, EmptyDataIsInvalid)
{
    open();
    HostLinkValueMessage message(MSG_TcpTunnel);
    message.addValueBin16(1, {});
    EXPECT_EQ(ask(message), "MSG_TcpTunnelReply 1=u8:1");
    EXPECT_EQ(m_log.errors(), Texts{"Tcp tunneling message doesn't contains valid data"});
}

TEST_F(TcpTunnelingTest, TagsWithAnotherEncodingAreUnsupported)
{
    open();
    HostLinkValueMessage message(MSG_TcpTunnel);
    message.addValueUint16(1, 0);
    message.addValueUint8(2, 0);
    addData(&message, 0, "x");
    message.addValueString(1, "text");
    message.addValueUint16(0, 0);
    EXPECT_EQ(ask(message), "MSG_TcpTunnelReply 1=u8:1 2=u8:1 1=u8:2 1=u8:1 0=u8:1");
    const Texts errors{
        "Unsupported tcp tunneling message, tag: 1, enc: 205",
        "Unsupported tcp tunneling message, tag: 2, enc: 204",
        "Tcp connection 0 doesn't exist",
        "Unsupported tcp tunneling message, tag: 1, enc: 218",
        "Unsupported tcp tunneling message, tag: 0, enc: 205",
    };
    EXPECT_EQ(m_log.errors(), errors);
}

TEST_F(TcpTunnelingTest, OtherMessagesAreNotTaken)
{
    open();
    for (const int id : {0, 1, 6, 7, 9, 0x8007, 0x8008, 0x8009}) {
        EXPECT_FALSE(m_tunnel->handleMessage(MessageId(id), dataFor(0, "x")));
    }
    EXPECT_TRUE(nothingSent());
}

TEST_F(TcpTunnelingTest, ForAClientThatDoesNotReadNothingIsWrittenAboveTheLimit)
{
    open();
    const Client client = connectClient();
    client->setReadBufferSize(1);
    client->write("x");
    receiveData(0, 1);
    const Client other = connectAs(1);

    const QByteArray data = randomBytes(32'000, 5);
    qint64 taken = 0;
    qint64 mostUnsent = 0;
    Texts refusals;
    for (int inARow = 0; inARow < 2 && taken < 64 * 1024 * 1024;) { // the system may take some more later
        const std::string answer = ask(dataFor(0, data));
        if (answer == "MSG_TcpTunnelReply 1=u8:0") {
            taken += data.size();
            inARow = 0;
        } else {
            EXPECT_EQ(answer, "MSG_TcpTunnelReply 1=u8:3");
            refusals.push_back("Failed to write data to connection: 0, written: 0");
            ++inARow;
        }
        for (const QTcpSocket* const socket : sockets()) {
            mostUnsent = std::max(mostUnsent, socket->bytesToWrite());
        }
    }
    EXPECT_GE(refusals.size(), 2U);
    EXPECT_EQ(m_log.errors(), refusals);
    EXPECT_LE(mostUnsent, 131'072);
    EXPECT_GT(mostUnsent, 131'072 - data.size()) << "it would have fitted";
    EXPECT_EQ(ask(dataFor(1, "others go on")), "MSG_TcpTunnelReply 1=u8:0");
    EXPECT_EQ(received(*other, 12), "others go on");

    client->setReadBufferSize(0); // it reads again
    QByteArray got;
    EXPECT_TRUE(waitFor([&] {
        got += client->readAll();
        return got.size() >= taken;
    }));
    QByteArray expected;
    while (expected.size() < taken) {
        expected += data;
    }
    EXPECT_EQ(got, expected) << "what was refused was not written in part";
    EXPECT_EQ(ask(dataFor(0, "again")), "MSG_TcpTunnelReply 1=u8:0");
    EXPECT_EQ(received(*client, 5), "again");
}

TEST_F(TcpTunnelingTest, WhileTheLinkIsFullClientsAreNotRead)
{
    open();
    m_line->cut();
    const Client first = connectClient();
    const Client second = connectClient();
    const QByteArray data = randomBytes(400'000, 6);
    first->write(data);
    ASSERT_TRUE(waitFor([&] { return !m_transport.writable(MessageClass::Bulk, 8200); }));
    const std::size_t reads = countReads();
    EXPECT_GE(reads, 2U);
    EXPECT_LE(reads * 8192, 256 * 1024 - kReserve);
    second->write("waits too");
    EXPECT_FALSE(waitFor([&] { return countReads() > reads; }, std::chrono::milliseconds(30)));
    ASSERT_EQ(sockets().size(), 2);
    for (const QTcpSocket* const socket : sockets()) {
        EXPECT_LE(socket->bytesAvailable(), 8192) << "the rest waits in the system's buffers";
    }
    EXPECT_TRUE(m_transport.writable(MessageClass::State, 100)) << "states go on";

    m_line->mend();
    QByteArray got;
    bool secondCame = false;
    while (got.size() < data.size() || !secondCame) {
        const HostLinkValueMessage message(m_host->receive());
        const ByteArray bytes = message.getBin16(0);
        ASSERT_FALSE(bytes.empty());
        if (bytes.front() == 1) {
            EXPECT_EQ(QByteArray(reinterpret_cast<const char*>(bytes.data()) + 1, int(bytes.size()) - 1),
                      "waits too");
            EXPECT_LT(got.size(), data.size()) << "the waiting take turns";
            secondCame = true;
        } else {
            got.append(reinterpret_cast<const char*>(bytes.data() + 1), int(bytes.size()) - 1);
        }
    }
    EXPECT_EQ(got, data);
}

TEST_F(TcpTunnelingTest, AClientThatClosesWhileTheLinkIsFullIsToldBehindItsData)
{
    open();
    m_line->cut();
    const Client client = connectClient();
    const QByteArray data = randomBytes(100'000, 7);
    client->write(data);
    client->disconnectFromHost();
    ASSERT_TRUE(waitFor([&] { return !m_transport.writable(MessageClass::Bulk, 8200); }));
    m_line->mend();
    EXPECT_EQ(receiveData(0, data.size()), data);
    EXPECT_EQ(receive(), "MSG_TcpTunnel 0=u16:0");
}

TEST_F(TcpTunnelingTest, WhatTheHostAsksOfAClientThatIsGoneButNotToldYetIsRefusedOrDone)
{
    open();
    const Client other = connectAs(0);
    Client client = connectAs(1);
    m_line->cut();
    other->write(randomBytes(100'000, 10));
    ASSERT_TRUE(waitFor([&] { return !m_transport.writable(MessageClass::Bulk, 8200); }));
    m_log.clear();
    client.reset();
    ASSERT_TRUE(waitFor([&] {
        return m_log.count(log4cplus::TRACE_LOG_LEVEL, "Client disconnected: ::ffff:127.0.0.1") > 0;
    }));
    EXPECT_TRUE(m_tunnel->handleMessage(MSG_TcpTunnel, dataFor(1, "late")));
    EXPECT_TRUE(m_tunnel->handleMessage(MSG_TcpTunnel, command(1)));
    m_line->mend();
    Texts answers;
    while (answers.empty() || answers.back() != "MSG_TcpTunnel 0=u16:1") {
        const std::string message = receive();
        ASSERT_FALSE(message.empty());
        if (message.rfind("MSG_TcpTunnel 1=bin:00", 0) != 0) {
            answers.push_back(message);
        }
    }
    EXPECT_EQ(answers,
              (Texts{"MSG_TcpTunnelReply 1=u8:3", "MSG_TcpTunnelReply 2=u8:0", "MSG_TcpTunnel 0=u16:1"}));
}

TEST_F(TcpTunnelingTest, AClientThatFindsNoDescriptorLeftIsTakenWhenThereIsOne)
{
    open();
    const Client first = connectAs(0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(m_port);
    const int client = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::send(client, "waits", 5, MSG_NOSIGNAL), 5);
    {
        const NoDescriptorsLeft none;
        first->write("x");
        EXPECT_EQ(receive(), "MSG_TcpTunnel 1=bin:0078") << "the others go on";
    }
    EXPECT_EQ(receive(), "MSG_TcpTunnel 1=bin:017761697473");
    ::close(client);
}

TEST_F(TcpTunnelingTest, ClientsOfIPv6AreTakenToo)
{
    open();
    QTcpServer other;
    if (!other.listen(QHostAddress::LocalHostIPv6, 0)) {
        GTEST_SKIP() << "no IPv6 here: " << other.errorString().toStdString();
    }
    QTcpSocket client;
    client.connectToHost(QHostAddress::LocalHostIPv6, m_port);
    ASSERT_TRUE(waitFor([&] { return client.state() != QTcpSocket::ConnectingState; }));
    client.write("hello");
    EXPECT_EQ(receive(), "MSG_TcpTunnel 1=bin:0068656c6c6f");
    EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL, "New client: ::1"), 1U);
    EXPECT_EQ(ask(dataFor(0, "hi")), "MSG_TcpTunnelReply 1=u8:0");
    EXPECT_EQ(received(client, 2), "hi");
}

TEST_F(TcpTunnelingTest, AShutdownClosesAllAndTakesNoMore)
{
    open();
    const Client first = connectAs(0);
    const Client second = connectAs(1);
    m_tunnel->shutdown();
    Texts notices{receive(), receive()};
    std::sort(notices.begin(), notices.end());
    EXPECT_EQ(notices, (Texts{"MSG_TcpTunnel 0=u16:0", "MSG_TcpTunnel 0=u16:1"}));
    EXPECT_TRUE(waitFor([&] { return isClosed(*first) && isClosed(*second); }));
    QTcpSocket late;
    late.connectToHost(QHostAddress::LocalHost, m_port);
    EXPECT_TRUE(waitFor([&] { return late.error() == QTcpSocket::ConnectionRefusedError; }));
    EXPECT_EQ(ask(dataFor(0, "x")), "MSG_TcpTunnelReply 1=u8:2");
    m_tunnel->shutdown();
    EXPECT_TRUE(nothingSent()) << "a second shutdown does nothing";
}

TEST_F(TcpTunnelingTest, AShutdownWhileTheLinkIsFullClosesThoseThatWait)
{
    open();
    const Client client = connectAs(0);
    m_line->cut();
    client->write(randomBytes(100'000, 8));
    ASSERT_TRUE(waitFor([&] { return !m_transport.writable(MessageClass::Bulk, 8200); }));
    m_tunnel->shutdown();
    EXPECT_TRUE(waitFor([&] { return isClosed(*client); }));
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(TcpTunnelingTest, AShutdownWaitsForNoClientThatDoesNotRead)
{
    open();
    const Client client = connectFull();
    m_tunnel->shutdown();
    EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL, "Client disconnected: ::ffff:127.0.0.1"), 1U)
        << "at once, not when the socket is destroyed";
    EXPECT_EQ(receive(), "MSG_TcpTunnel 0=u16:0");
    EXPECT_EQ(ask(dataFor(0, "x")), "MSG_TcpTunnelReply 1=u8:2");
    client->setReadBufferSize(0);
    EXPECT_TRUE(waitFor([&] { return isClosed(*client); }));
    EXPECT_TRUE(nothingSent());
}

TEST_F(TcpTunnelingTest, ASocketThatIsNotInTheTableIsClosed)
{
    open();
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost, 0));
    QTcpSocket stranger;
    QObject::connect(&stranger, &QTcpSocket::readyRead, m_tunnel, &TcpTunneling::on_socket_readyRead);
    stranger.connectToHost(QHostAddress::LocalHost, server.serverPort());
    ASSERT_TRUE(waitFor([&] { return server.hasPendingConnections(); }));
    server.nextPendingConnection()->write("x");
    EXPECT_TRUE(waitFor([&] { return !m_log.errors().empty(); }));
    EXPECT_EQ(m_log.errors(), Texts{"Unknown connection ready to read"});
    EXPECT_FALSE(stranger.isOpen());

    m_log.clear();
    auto* unknown = new QTcpSocket; // the tunnel deletes what was closed
    QObject::connect(unknown, &QTcpSocket::disconnected, m_tunnel, &TcpTunneling::on_client_disconnected);
    unknown->connectToHost(QHostAddress::LocalHost, server.serverPort());
    ASSERT_TRUE(waitFor([&] { return unknown->state() == QTcpSocket::ConnectedState; }));
    unknown->abort();
    EXPECT_EQ(m_log.errors(), Texts{"Unknown connection was closed"});
    EXPECT_TRUE(nothingSent());
}

} // namespace
