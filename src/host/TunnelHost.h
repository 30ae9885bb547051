#pragma once

#include <deque>
#include <functional>
#include <map>
#include <string>

#include "host/HostChannel.h"

class HostLinkValueMessage;

/// The host's side of the TCP tunnel: takes what the module's clients send and writes to them.
///
/// What is to be written waits here. Each connection has at most one piece of it under way, until the module
/// has answered it: a piece that the module could not write, because its client does not read, is sent again
/// after a while, and nothing of it was written before. Reading never waits for writing.
class TunnelHost : public HostChannel
{
public:
    /// Number of a connection, 0 to 255. The module gives it to another client once it is closed.
    using Id = std::uint8_t;

    /// Bytes of one piece, and of all pieces under way together.
    static constexpr std::size_t kPiece = 8192;
    static constexpr std::size_t kMostUnderWay = 64 * 1024;

    /// Bytes that may wait for one client, and for all together. Where more would, the one for which most
    /// wait is closed: it sends and never reads.
    static constexpr std::size_t kMostWaiting = 16 * 1024 * 1024;
    static constexpr std::size_t kMostWaitingInAll = 64 * 1024 * 1024;

    struct Observer {
        std::function<void(Id, const ByteArray& data)> data;     ///< a client has sent
        std::function<void(Id)> closed;                          ///< the connection is gone
        std::function<void(Id, const std::string& what)> failed; ///< something asked for was not done
    };

    explicit TunnelHost(Observer observer) : m_observer(std::move(observer)) {}

    /// Writes to a client, also one that the module knows and this host does not yet.
    void write(Id id, const ByteArray& data);

    /// Closes a connection behind what waits for it.
    void close(Id id);

    /// Closes all that are known, without what waits for them. hasConnections() is then true until the
    /// module has done so.
    void closeAll();
    bool hasConnections() const { return !m_connections.empty() || !m_orphans.empty(); }

    bool take(const ByteArray& message, HostLinkTime now) override;
    std::optional<ByteArray> next(HostLinkTime now) override;
    HostLinkTime deadline() const override;
    void sessionBegan() override;

private:
    struct Connection {
        std::uint64_t number = 0; ///< tells it from others that have or had its id
        ByteArray waiting;        ///< a piece stays until it is known to be written
        std::size_t written = 0;  ///< bytes of `waiting` that the module has written
        bool underWay = false;    ///< a request for it was not answered yet
        enum { Stays, Closes, CloseSent } end = Stays;
        HostLinkDuration pause{}; ///< before the next try of a piece; 0 when the last one was written
        HostLinkTime notBefore{}; ///< the time of that try

        std::size_t left() const { return waiting.size() - written; }
        void drop()
        {
            waiting = ByteArray(); // gives its memory back
            written = 0;
        }
        void close() { end = end == Stays ? Closes : end; }
    };

    /// A request that the module has not answered yet.
    struct Request {
        enum For { ForConnection, ForOrphan, ForNobody } whom = ForNobody;
        Id id = 0;
        std::uint64_t number = 0; ///< of its connection
        std::size_t size = 0;     ///< bytes of its piece, 0 for the command to close
    };

    /// Whether the module of this session is the one of the session before, with its clients.
    enum class Module { Unknown, Asked, Same };

    Connection& connection(Id id);
    bool hasWork(const Connection& connection) const;
    ByteArray pieceOf(Id id, Connection& connection);
    static ByteArray closeCommand(Id id);
    std::optional<ByteArray> nextForOrphans();
    void forgetOrphan(Id id);
    void takeFirst(const ByteArray& message);
    void takeFromModule(const HostLinkValueMessage& message);
    void takeReply(const HostLinkValueMessage& message, HostLinkTime now);
    void takeConnectionsReply(const Request& request, const HostLinkValueMessage& message, HostLinkTime now);
    static void pieceWritten(Connection& connection, std::size_t size);
    void boundWaiting();
    void giveUp(Id id, Connection& connection, const std::string& why);

    const Observer m_observer;
    std::map<Id, Connection> m_connections;
    std::deque<Request> m_underWay; ///< answers come in the order of requests
    std::map<Id, bool> m_orphans;   ///< connections of former sessions; true: the command to close is sent
    Module m_module = Module::Same;
    bool m_nothingTaken = false; ///< no message has come in this session yet
    std::size_t m_bytesUnderWay = 0;
    std::uint64_t m_lastNumber = 0;
    Id m_lastServed = 0;
};
