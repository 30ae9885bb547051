// Any messages of a host to a tunnel with two clients.

#include "modules/hostlink/TcpTunneling.h"

#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>

#include "HandlerFuzz.h"
#include "platform/hostlink/HostLinkMessage.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    HandlerFuzz::initialize(argc, argv);
    return 0;
}

static quint16 freePort()
{
    QTcpServer probe;
    require(probe.listen(QHostAddress::Any, 0));
    return probe.serverPort();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const quint16 port = freePort();
    HandlerFuzz fuzz;
    auto* const tunnel = new TcpTunneling(&fuzz.worker, &fuzz.transport, port, 2); // the worker's
    QTcpSocket clients[2];
    for (QTcpSocket& client : clients) {
        client.connectToHost(QHostAddress::LocalHost, port);
        require(client.waitForConnected(5000));
        HandlerFuzz::runEvents();
    }
    FuzzMessages messages(data, size);
    for (ByteArray message; messages.next(&message);) {
        const MessageId id = HostLinkMessage::messageId(message);
        require(tunnel->handleMessage(id, message) == (id == MSG_TcpTunnel));
    }
    tunnel->shutdown();
    for (QTcpSocket& client : clients) {
        client.abort(); // leaves no port behind that waits
    }
    HandlerFuzz::runEvents();
    return 0;
}
