#include "host/TunnelHost.h"

#include <algorithm>
#include <string>
#include <utility>

#include "platform/hostlink/HostLinkValueMessage.h"
#include "vocabulary/Channels.h"
#include "vocabulary/States.h"

namespace
{
constexpr const char* kBeingClosed = "it is being closed";

constexpr std::chrono::milliseconds kFirstPause{5};
constexpr std::chrono::milliseconds kLongestPause{160};
} // namespace

void TunnelHost::write(Id id, const ByteArray& data)
{
    if (m_orphans.count(id) != 0) {
        return m_observer.failed(id, kBeingClosed);
    }
    Connection& to = connection(id);
    if (to.end != Connection::Stays) {
        return m_observer.failed(id, kBeingClosed);
    }
    to.waiting.insert(to.waiting.end(), data.begin(), data.end());
    boundWaiting();
}

void TunnelHost::boundWaiting()
{
    auto most = m_connections.begin();
    std::size_t all = 0;
    for (auto each = most; each != m_connections.end(); ++each) {
        all += each->second.left();
        most = each->second.left() > most->second.left() ? each : most;
    }
    if (most->second.left() > kMostWaiting || all > kMostWaitingInAll) {
        giveUp(most->first, most->second, "the client does not read; closing");
    }
}

void TunnelHost::close(Id id)
{
    if (m_orphans.count(id) == 0) {
        connection(id).close();
    }
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
    if (std::exchange(m_nothingTaken, false)) {
        takeFirst(message);
    }
    if (id == MSG_TcpTunnel) {
        takeFromModule(HostLinkValueMessage(message));
    } else if (id == MSG_TcpTunnelReply) {
        takeReply(HostLinkValueMessage(message), now);
    } else {
        return false;
    }
    return true;
}

/// A module that has just started says so first of all, and has no clients of before.
void TunnelHost::takeFirst(const ByteArray& message)
{
    if (HostLinkMessage::messageId(message) != MSG_StateChanged
        || HostLinkValueMessage(message).getTag(0) != STA_SystemUp) {
        return;
    }
    while (!m_orphans.empty()) {
        forgetOrphan(m_orphans.begin()->first);
    }
}

void TunnelHost::forgetOrphan(Id id)
{
    if (m_orphans.erase(id) != 0) {
        m_observer.closed(id);
    }
}

void TunnelHost::takeFromModule(const HostLinkValueMessage& message)
{
    for (int i = 0; i < message.size(); ++i) {
        bool ok = false;
        if (message.getTag(i) == TunnelTag::Closed) {
            const std::uint16_t id = message.getUint16(i, &ok);
            if (ok && id <= 0xFF) {
                m_connections.erase(static_cast<Id>(id));
                m_orphans.erase(static_cast<Id>(id));
                m_observer.closed(static_cast<Id>(id));
            }
            continue;
        }
        ByteArray data = message.getBin16(i, &ok);
        if (message.getTag(i) != TunnelTag::Data || data.empty()) {
            continue;
        }
        const Id id = data.front();
        if (m_orphans.count(id) != 0) {
            continue; // there is a hole before it
        }
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
    if (request.whom == Request::ForConnection) {
        return takeConnectionsReply(request, message, now);
    }
    if (request.whom == Request::ForNobody) {
        m_module = Module::Same;
        return;
    }
    bool ok = false;
    if (TunnelResult(message.getUint8(0, &ok)) != TunnelResult::Done || !ok) {
        forgetOrphan(request.id); // otherwise the notice says when it is gone
    }
}

void TunnelHost::takeConnectionsReply(const Request& request, const HostLinkValueMessage& message,
                                      HostLinkTime now)
{
    const auto found = m_connections.find(request.id);
    if (found == m_connections.end() || found->second.number != request.number) {
        return; // it is gone, and others may have its id by now
    }
    Connection& connection = found->second;
    connection.underWay = false;
    bool ok = false;
    const TunnelResult result{message.getUint8(0, &ok)};
    if (ok && result == TunnelResult::Done) {
        pieceWritten(connection, request.size);
    } else if (result == TunnelResult::NotWritten) {
        connection.pause = std::clamp<HostLinkDuration>(2 * connection.pause, kFirstPause, kLongestPause);
        connection.notBefore = now + connection.pause;
    } else if (result == TunnelResult::NoConnection) {
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
    if (std::optional<ByteArray> message = nextForOrphans()) {
        return message;
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
        m_underWay.push_back({Request::ForConnection, id, connection.number, 0});
        return closeCommand(id);
    }
    return std::nullopt;
}

/// Asks for nothing first: what a module says when it starts comes before the answer. Until then an orphan's
/// id may be that of a new client.
std::optional<ByteArray> TunnelHost::nextForOrphans()
{
    if (m_orphans.empty()) {
        return std::nullopt;
    }
    if (m_module == Module::Unknown) {
        m_module = Module::Asked;
        m_underWay.push_back({});
        return HostLinkValueMessage(MSG_TcpTunnel).serialize();
    }
    const auto next =
        std::find_if(m_orphans.begin(), m_orphans.end(), [](const auto& orphan) { return !orphan.second; });
    if (m_module == Module::Asked || next == m_orphans.end()) {
        return std::nullopt;
    }
    next->second = true;
    m_underWay.push_back({Request::ForOrphan, next->first});
    return closeCommand(next->first);
}

ByteArray TunnelHost::pieceOf(Id id, Connection& connection)
{
    const std::size_t size = std::min(connection.left(), kPiece);
    const auto begin = connection.waiting.begin() + static_cast<std::ptrdiff_t>(connection.written);
    ByteArray bytes;
    bytes.reserve(size + 1);
    bytes.push_back(id);
    bytes.insert(bytes.end(), begin, begin + static_cast<std::ptrdiff_t>(size));
    m_underWay.push_back({Request::ForConnection, id, connection.number, size});
    m_bytesUnderWay += size;
    HostLinkValueMessage message(MSG_TcpTunnel);
    message.addValueBin16(TunnelTag::Data, bytes);
    return message.serialize();
}

ByteArray TunnelHost::closeCommand(Id id)
{
    HostLinkValueMessage message(MSG_TcpTunnel);
    message.addValueUint16(TunnelTag::Command, static_cast<std::uint16_t>(kTunnelClose << 8 | id));
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
    m_module = Module::Unknown;
    m_nothingTaken = true;
    for (auto& [id, closeSent] : m_orphans) {
        closeSent = false; // the command may be lost
    }
    const std::map<Id, Connection> lost = std::exchange(m_connections, {});
    for (const auto& [id, connection] : lost) {
        m_orphans[id] = false;
    }
    for (const auto& [id, connection] : lost) {
        m_observer.failed(id, "a new session began; closing");
    }
}
