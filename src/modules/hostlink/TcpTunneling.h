#pragma once

#include <QAbstractSocket>
#include <QHash>
#include <QList>
#include <QObject>
#include <chrono>

#include "modules/hostlink/HostLinkMessageHandler.h"
#include "vocabulary/Channels.h"

class HostLinkTransportLayer;
class HostLinkValueMessage;
class QTcpServer;
class QTcpSocket;

/// Carries the bytes of TCP clients over the host link: a server takes clients, and the host talks to each
/// by the id of its connection.
///
/// Neither side can fill the other's memory: clients are not read while the link has no room for bulk
/// messages, and a client that does not read is written for only up to kMostUnsent. Nor can a client stay
/// against the host's will: it is out kClosing after the host has closed it.
class TcpTunneling : public QObject, public HostLinkMessageHandler
{
    Q_OBJECT
public:
    /// Bytes that may wait for one client beyond what the system's socket takes. The host's data that would
    /// exceed them is not written at all, and answered with code 3.
    static constexpr qint64 kMostUnsent = 128 * 1024;

    /// How long a client that the host has closed may take for the bytes that still wait for it. One that
    /// reads needs a moment for them, also when its network loses a segment five times in a row, which TCP
    /// needs some 6 s to mend.
    static constexpr std::chrono::seconds kClosing{10};

    /// Listens on all addresses at `port`. At most `maxConnections` clients are taken, 10 when that is below
    /// 1, and never more than the 256 that have an id. `transport` has to stop before this is destroyed.
    TcpTunneling(QObject* parent, HostLinkTransportLayer* transport, int port, int maxConnections,
                 std::chrono::milliseconds closing = kClosing);

    bool handleMessage(MessageId id, const ByteArray& bytes) override;

    /// Takes no more clients and closes all connections.
    void shutdown() override;

public slots:
    void on_tcpServer_newConnection();
    void on_socket_readyRead();
    void on_client_disconnected();
    void on_socket_error(QAbstractSocket::SocketError error);

private:
    using ConnectionId = signed char;

    QTcpSocket* senderSocket() const;
    bool findFreeId(ConnectionId* id) const;
    QTcpSocket* findSocket(ConnectionId id) const;
    TunnelResult handleValue(const HostLinkValueMessage& message, int i);
    TunnelResult handleData(const HostLinkValueMessage& message, int i);
    TunnelResult handleCommand(const HostLinkValueMessage& message, int i);
    static TunnelResult noConnection(ConnectionId id);
    void close(QTcpSocket* socket);

    bool mustWait(QTcpSocket* socket);
    void resume();
    void forward(QTcpSocket* socket);
    void remove(QTcpSocket* socket);
    void send(const HostLinkValueMessage& message);

    HostLinkTransportLayer* m_transport;
    int m_port;
    int m_maxConnections;
    QTcpServer* m_server;
    QHash<QTcpSocket*, ConnectionId> m_connections;
    QList<QTcpSocket*> m_waiting; ///< for room on the link, to be read or, if gone, to be removed
    const std::chrono::milliseconds m_closing;
};
