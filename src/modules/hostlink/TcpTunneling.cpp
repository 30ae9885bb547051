#include "modules/hostlink/TcpTunneling.h"

#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <algorithm>

#include "modules/hostlink/CheckedConnect.h"
#include "modules/hostlink/Log.h"
#include "platform/hostlink/HostLinkTransportLayer.h"
#include "platform/hostlink/HostLinkValueMessage.h"

namespace
{

constexpr int kDefaultConnections = 10;
constexpr int kMostConnections = 256; ///< what a byte can tell apart

constexpr qint64 kReadSize = 8192;
constexpr std::size_t kMessageOverhead = 8; ///< message id, tag, encoding, length and connection id

constexpr const char* kNoValidData = "Tcp tunneling message doesn't contains valid data";

std::string addressOf(const QTcpSocket* socket)
{
    return socket->peerAddress().toString().toStdString();
}

} // namespace

TcpTunneling::TcpTunneling(QObject* parent, HostLinkTransportLayer* transport, int port, int maxConnections,
                           std::chrono::milliseconds closing)
    : QObject(parent), m_transport(transport), m_port(port),
      m_maxConnections(maxConnections < 1 ? kDefaultConnections : maxConnections),
      m_server(new QTcpServer(this)), m_closing(closing)
{
    LOG4CPLUS_DEBUG(hostLinkLogger, "Starting TCP tunneling server at port: "
                                        << m_port << ", max allowed connections: " << m_maxConnections);
    if (!m_server->listen(QHostAddress::Any, static_cast<quint16>(m_port))) {
        LOG4CPLUS_ERROR(hostLinkLogger, m_server->errorString().toStdString());
        return;
    }
    connectChecked(m_server, &QTcpServer::newConnection, this, &TcpTunneling::on_tcpServer_newConnection);
    m_transport->addBulkDrainedObserver([this] {
        QMetaObject::invokeMethod(
            this, [this] { resume(); }, Qt::QueuedConnection);
    });
}

void TcpTunneling::on_tcpServer_newConnection()
{
    QTcpSocket* const socket = m_server->nextPendingConnection();
    LOG4CPLUS_TRACE(hostLinkLogger, "New client: " << addressOf(socket));
    ConnectionId id = 0;
    if (!findFreeId(&id)) {
        LOG4CPLUS_WARN(hostLinkLogger, "Max connection reached, rejecting");
        socket->close();
        socket->deleteLater();
        return;
    }
    // A socket that was read for this much would not signal what is left in a larger buffer of its own.
    socket->setReadBufferSize(kReadSize);
    m_connections.insert(socket, id);
    connectChecked(socket, &QTcpSocket::readyRead, this, &TcpTunneling::on_socket_readyRead);
    connectChecked(socket, &QTcpSocket::disconnected, this, &TcpTunneling::on_client_disconnected);
    connectChecked(socket, &QTcpSocket::errorOccurred, this, &TcpTunneling::on_socket_error);
}

bool TcpTunneling::findFreeId(ConnectionId* id) const
{
    const QList<ConnectionId> taken = m_connections.values();
    for (int candidate = 0; candidate < std::min(m_maxConnections, kMostConnections); ++candidate) {
        *id = static_cast<ConnectionId>(candidate);
        if (!taken.contains(*id)) {
            return true;
        }
    }
    return false;
}

QTcpSocket* TcpTunneling::findSocket(ConnectionId id) const
{
    return m_connections.key(id, nullptr);
}

/// Only sockets are connected to the slots that ask. A cast that looks would not know one amid its
/// destruction.
QTcpSocket* TcpTunneling::senderSocket() const
{
    return static_cast<QTcpSocket*>(sender()); // NOLINT(cppcoreguidelines-pro-type-static-cast-downcast)
}

void TcpTunneling::on_socket_readyRead()
{
    auto* const socket = senderSocket();
    if (!m_connections.contains(socket)) {
        LOG4CPLUS_ERROR(hostLinkLogger, "Unknown connection ready to read");
        socket->close();
        return;
    }
    if (!mustWait(socket)) {
        forward(socket);
    }
}

/// Sends what the socket's buffer holds: at most one read.
void TcpTunneling::forward(QTcpSocket* socket)
{
    const QByteArray data = socket->read(kReadSize);
    LOG4CPLUS_TRACE(hostLinkLogger, "Received " << data.size() << " bytes");
    ByteArray bytes;
    bytes.reserve(static_cast<std::size_t>(data.size()) + 1);
    bytes.push_back(static_cast<std::uint8_t>(m_connections.value(socket)));
    bytes.insert(bytes.end(), data.begin(), data.end());
    HostLinkValueMessage message(MSG_TcpTunnel);
    message.addValueBin16(TunnelTag::Data, bytes);
    send(message);
}

void TcpTunneling::on_client_disconnected()
{
    auto* const socket = senderSocket();
    LOG4CPLUS_TRACE(hostLinkLogger, "Client disconnected: " << addressOf(socket));
    const bool closesDown = !m_server->isListening();
    if (closesDown || !m_connections.contains(socket) || !mustWait(socket)) {
        remove(socket);
    }
}

/// Forgets a connection that is closed, and tells the host behind the last of its data.
void TcpTunneling::remove(QTcpSocket* socket)
{
    if (socket->bytesAvailable() > 0) {
        forward(socket);
    }
    socket->deleteLater();
    const auto connection = m_connections.constFind(socket);
    if (connection == m_connections.constEnd()) {
        LOG4CPLUS_ERROR(hostLinkLogger, "Unknown connection was closed");
        return;
    }
    const auto id = static_cast<std::uint8_t>(*connection);
    m_connections.erase(connection);
    HostLinkValueMessage message(MSG_TcpTunnel);
    message.addValueUint16(TunnelTag::Closed, id);
    send(message);
}

void TcpTunneling::on_socket_error(QAbstractSocket::SocketError error)
{
    const int id = m_connections.value(senderSocket());
    LOG4CPLUS_DEBUG(hostLinkLogger, "Error occured on connection " << id << ", error: " << error);
}

/// True when the socket's turn has not come: the link has no room, or others wait before it. It is noted;
/// resume() goes on with it. What a socket holds unread keeps its client from sending more.
bool TcpTunneling::mustWait(QTcpSocket* socket)
{
    if (m_waiting.isEmpty() && m_transport->writable(MessageClass::Bulk, kReadSize + kMessageOverhead)) {
        return false;
    }
    if (!m_waiting.contains(socket)) {
        m_waiting.append(socket);
    }
    return true;
}

void TcpTunneling::resume()
{
    while (!m_waiting.isEmpty() && m_transport->writable(MessageClass::Bulk, kReadSize + kMessageOverhead)) {
        QTcpSocket* const socket = m_waiting.takeFirst();
        if (socket->state() == QAbstractSocket::UnconnectedState) {
            remove(socket);
        } else if (socket->bytesAvailable() > 0) { // the host may have closed it meanwhile
            forward(socket);
        }
    }
}

bool TcpTunneling::handleMessage(MessageId id, const ByteArray& bytes)
{
    if (id != MSG_TcpTunnel) {
        return false;
    }
    LOG4CPLUS_DEBUG(hostLinkLogger, "Received tcp tunneling message");
    HostLinkValueMessage reply(MSG_TcpTunnelReply);
    const HostLinkValueMessage request(bytes);
    for (int i = 0; i < request.size(); ++i) {
        reply.addValueUint8(request.getTag(i), static_cast<std::uint8_t>(handleValue(request, i)));
    }
    send(reply);
    return true;
}

TunnelResult TcpTunneling::handleValue(const HostLinkValueMessage& message, int i)
{
    const int tag = message.getTag(i);
    const int encoding = message.getEnc(i);
    if (tag == TunnelTag::Data && encoding == wireTypeEncoding(WireType::Bin)) {
        return handleData(message, i);
    }
    if (tag == TunnelTag::Command && encoding == wireTypeEncoding(WireType::U16)) {
        return handleCommand(message, i);
    }
    LOG4CPLUS_ERROR(hostLinkLogger,
                    "Unsupported tcp tunneling message, tag: " << tag << ", enc: " << encoding);
    return TunnelResult::Invalid;
}

TunnelResult TcpTunneling::handleData(const HostLinkValueMessage& message, int i)
{
    bool ok = false;
    const ByteArray bytes = message.getBin16(i, &ok);
    if (!ok || bytes.empty()) {
        LOG4CPLUS_ERROR(hostLinkLogger, kNoValidData);
        return TunnelResult::Invalid;
    }
    const auto id = static_cast<ConnectionId>(bytes.front());
    QTcpSocket* const socket = findSocket(id);
    if (socket == nullptr) {
        return noConnection(id);
    }
    const auto size = static_cast<qint64>(bytes.size()) - 1;
    LOG4CPLUS_TRACE(hostLinkLogger, "Sending " << size << " bytes");
    const bool fits = socket->bytesToWrite() + size <= kMostUnsent;
    const qint64 written = fits ? socket->write(reinterpret_cast<const char*>(bytes.data() + 1), size) : 0;
    if (written == size) {
        return TunnelResult::Done;
    }
    LOG4CPLUS_ERROR(hostLinkLogger,
                    "Failed to write data to connection: " << int{id} << ", written: " << written);
    return TunnelResult::NotWritten;
}

TunnelResult TcpTunneling::handleCommand(const HostLinkValueMessage& message, int i)
{
    bool ok = false;
    const std::uint16_t value = message.getUint16(i, &ok);
    if (!ok) {
        LOG4CPLUS_ERROR(hostLinkLogger, kNoValidData);
        return TunnelResult::Invalid;
    }
    const auto id = static_cast<ConnectionId>(value & 0xFF);
    QTcpSocket* const socket = findSocket(id);
    if (socket == nullptr) {
        return noConnection(id);
    }
    const int command = value >> 8;
    if (command != kTunnelClose) {
        LOG4CPLUS_ERROR(hostLinkLogger, "Invalid command: " << command);
        return TunnelResult::UnknownCommand;
    }
    close(socket);
    return TunnelResult::Done;
}

/// A socket is gone at once unless bytes still wait for its client, which may never read them. A host that
/// asks again meanwhile does not make timers pile up.
void TcpTunneling::close(QTcpSocket* socket)
{
    const bool wasOpen = socket->isOpen();
    socket->close();
    if (wasOpen && socket->state() != QAbstractSocket::UnconnectedState) {
        QTimer::singleShot(m_closing, socket, [socket] { socket->abort(); });
    }
}

TunnelResult TcpTunneling::noConnection(ConnectionId id)
{
    LOG4CPLUS_ERROR(hostLinkLogger, "Tcp connection " << int{id} << " doesn't exist");
    return TunnelResult::NoConnection;
}

void TcpTunneling::shutdown()
{
    m_server->close();
    m_waiting.clear();
    const QList<QTcpSocket*> sockets = m_connections.keys(); // closing removes them
    for (QTcpSocket* socket : sockets) {
        if (socket->state() == QAbstractSocket::UnconnectedState) {
            remove(socket); // it has waited to be
            continue;
        }
        socket->close();
        if (socket->state() != QAbstractSocket::UnconnectedState) {
            socket->abort(); // it would wait for a client that does not read, and end amid its destruction
        }
    }
}

void TcpTunneling::send(const HostLinkValueMessage& message)
{
    m_transport->send(message.serialize());
}
