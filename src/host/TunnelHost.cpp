#include "host/TunnelHost.h"

#include <algorithm>
#include <string>

#include "platform/hostlink/HostLinkValueMessage.h"

namespace
{
namespace TunnelTag
{
enum : std::uint16_t { Closed = 0, Data = 1, Command = 2 };
}

enum Result : std::uint8_t { Done = 0, NoConnection = 2, NotWritten = 3 };

constexpr std::uint16_t kClose = 0; ///< the command, in the high byte

constexpr std::chrono::milliseconds kFirstPause{5};
constexpr std::chrono::milliseconds kLongestPause{160};
} // namespace

void TunnelHost::write(Id id, const ByteArray& data)
{
    Connection& to = connection(id);
    if (to.end != Connection::Stays) {
        return m_observer.failed(id, "it is being closed");
    }
    if (to.left() + data.size() > kMostWaiting) {
        return giveUp(id, to, "the client does not read; closing");
    }
    to.waiting.insert(to.waiting.end(), data.begin(), data.end());
}

void TunnelHost::close(Id id)
{
    connection(id).close();
}

void TunnelHost::closeAll()
{
    for (auto& [id, connection] : m_connections) {
        connection.drop();
        connection.close();
    }
}

void TunnelHost::giveUp(Id id, Connection& connection, const std::string& why)
{
    connection.drop();
    connection.close();
    m_observer.failed(id, why);
}

TunnelHost::Connection& TunnelHost::connection(Id id)
{
    Connection& found = m_connections[id];
    if (found.number == 0) {
        found.number = ++m_lastNumber;
    }
    return found;
}

bool TunnelHost::take(const ByteArray& message, HostLinkTime now)
{
    const MessageId id = HostLinkMessage::messageId(message);
    if (id == MSG_TcpTunnel) {
        takeFromModule(HostLinkValueMessage(message));
    } else if (id == MSG_TcpTunnelReply) {
        takeReply(HostLinkValueMessage(message), now);
    } else {
        return false;
    }
    return true;
}

void TunnelHost::takeFromModule(const HostLinkValueMessage& message)
{
    for (int i = 0; i < message.size(); ++i) {
        bool ok = false;
        if (message.getTag(i) == TunnelTag::Closed) {
            const std::uint16_t id = message.getUint16(i, &ok);
            if (ok && id <= 0xFF) {
                m_connections.erase(static_cast<Id>(id));
                m_observer.closed(static_cast<Id>(id));
            }
            continue;
        }
        ByteArray data = message.getBin16(i, &ok);
        if (message.getTag(i) != TunnelTag::Data || data.empty()) {
            continue;
        }
        const Id id = data.front();
        data.erase(data.begin());
        connection(id);
        m_observer.data(id, data);
    }
}

void TunnelHost::takeReply(const HostLinkValueMessage& message, HostLinkTime now)
{
    if (m_underWay.empty()) {
        return;
    }
    const Request request = m_underWay.front();
    m_underWay.pop_front();
    m_bytesUnderWay -= request.size;
    const auto found = m_connections.find(request.id);
    if (found == m_connections.end() || found->second.number != request.number) {
        return; // it is gone, and others may have its id by now
    }
    Connection& connection = found->second;
    connection.underWay = false;
    bool ok = false;
    const std::uint8_t result = message.getUint8(0, &ok);
    if (ok && result == Result::Done) {
        pieceWritten(connection, request.size);
    } else if (result == Result::NotWritten) {
        connection.pause = std::clamp<HostLinkDuration>(2 * connection.pause, kFirstPause, kLongestPause);
        connection.notBefore = now + connection.pause;
    } else if (result == Result::NoConnection) {
        m_connections.erase(found);
        m_observer.failed(request.id, "there is no such connection");
    } else {
        giveUp(request.id, connection, "the module does not understand; closing");
    }
}

/// What was written leaves the memory in large parts, so that each byte is moved seldom.
void TunnelHost::pieceWritten(Connection& connection, std::size_t size)
{
    connection.pause = {};
    connection.written = std::min(connection.written + size, connection.waiting.size());
    if (2 * connection.written >= connection.waiting.size()) {
        const auto begin = connection.waiting.begin();
        connection.waiting.erase(begin, begin + static_cast<std::ptrdiff_t>(connection.written));
        connection.written = 0;
    }
}

bool TunnelHost::hasWork(const Connection& connection) const
{
    if (connection.underWay) {
        return false;
    }
    return connection.left() > 0 ? m_bytesUnderWay < kMostUnderWay : connection.end == Connection::Closes;
}

std::optional<ByteArray> TunnelHost::next(HostLinkTime now)
{
    if (!m_orphans.empty()) {
        const Id id = m_orphans.front();
        m_orphans.pop_front();
        return closeCommand(id, 0);
    }
    // All have their turn, in the order of their ids behind the one that was served last.
    auto each = m_connections.upper_bound(m_lastServed);
    for (std::size_t i = 0; i < m_connections.size(); ++i, ++each) {
        each = each == m_connections.end() ? m_connections.begin() : each;
        auto& [id, connection] = *each;
        if (!hasWork(connection) || connection.notBefore > now) {
            continue;
        }
        m_lastServed = id;
        connection.underWay = true;
        if (connection.left() > 0) {
            return pieceOf(id, connection);
        }
        connection.end = Connection::CloseSent;
        return closeCommand(id, connection.number);
    }
    return std::nullopt;
}

ByteArray TunnelHost::pieceOf(Id id, Connection& connection)
{
    const std::size_t size = std::min(connection.left(), kPiece);
    const auto begin = connection.waiting.begin() + static_cast<std::ptrdiff_t>(connection.written);
    ByteArray bytes;
    bytes.reserve(size + 1);
    bytes.push_back(id);
    bytes.insert(bytes.end(), begin, begin + static_cast<std::ptrdiff_t>(size));
    m_underWay.push_back({id, connection.number, size});
    m_bytesUnderWay += size;
    HostLinkValueMessage message(MSG_TcpTunnel);
    message.addValueBin16(TunnelTag::Data, bytes);
    return message.serialize();
}

ByteArray TunnelHost::closeCommand(Id id, std::uint64_t number)
{
    m_underWay.push_back({id, number, 0});
    HostLinkValueMessage message(MSG_TcpTunnel);
    message.addValueUint16(TunnelTag::Command, static_cast<std::uint16_t>(kClose << 8 | id));
    return message.serialize();
}

HostLinkTime TunnelHost::deadline() const
{
    HostLinkTime earliest = HostLinkTime::max();
    for (const auto& [id, connection] : m_connections) {
        if (hasWork(connection)) {
            earliest = std::min(earliest, connection.notBefore);
        }
    }
    return earliest;
}

/// The module's clients may have outlived the session, but what was under way is lost: a stream with a hole
/// is worse than one that ends.
void TunnelHost::sessionBegan()
{
    m_underWay.clear();
    m_bytesUnderWay = 0;
    m_orphans.clear();
    for (const auto& [id, connection] : m_connections) {
        m_orphans.push_back(id);
    }
    m_connections.clear();
    for (const Id id : m_orphans) {
        m_observer.failed(id, "a new session began; closing");
    }
}
