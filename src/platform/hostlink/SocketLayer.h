#pragma once

#include "platform/hostlink/ByteArray.h"
#include "platform/hostlink/FileDescriptor.h"
#include "platform/hostlink/HostLinkPhysicalLayer.h"
#include "platform/hostlink/Retry.h"

/// An emulated line over a stream socket. One side listens, the other connects; either may start
/// first. The listening side has one peer at a time: a peer that has gone is read to its end before a
/// newcomer is looked at, one that has fallen silent makes room for it, and a newcomer on an occupied
/// line is told so and closed.
class SocketLayer : public HostLinkPhysicalLayer
{
public:
    std::string name() const override { return m_retry.name(); }
    void open(HostLinkTime now) override;
    void close() override;
    void service(HostLinkTime now) override;
    std::uint64_t lineNumber() const override { return m_up ? m_lines : 0; }
    bool refused() const override { return m_refused; }
    std::size_t read(std::uint8_t* to, std::size_t max, HostLinkTime now) override;
    std::size_t write(const std::uint8_t* from, std::size_t size, HostLinkTime now) override;
    std::size_t batchSize() const override { return 4096; }
    void waitOn(std::vector<pollfd>& descriptors, bool writing) const override;
    HostLinkTime nextService() const override;

protected:
    /// `name` is what log lines call the line. It listens when property Listen is 1.
    SocketLayer(std::string name, const Properties& properties);

    /// What an attempt to listen or to connect came to.
    struct Attempt {
        enum class Outcome {
            Done,    ///< the sockets are there
            Waiting, ///< nothing is wrong, but the other side or an answer is not there yet
            Failed,  ///< `problem` says why; tried again, since it may be put right
            Hopeless ///< `problem` says why; no later attempt can do better
        };

        static Attempt done(FileDescriptor socket);
        static Attempt waiting() { return {Outcome::Waiting, {}, {}}; }
        static Attempt failed(std::string problem) { return {Outcome::Failed, {}, std::move(problem)}; }
        static Attempt hopeless(std::string problem) { return {Outcome::Hopeless, {}, std::move(problem)}; }

        Outcome outcome;
        std::vector<FileDescriptor> sockets; ///< non-blocking; a connecting one may be in progress
        std::string problem;
    };

    static constexpr int kBacklog = 16; ///< of listen(2)

    virtual Attempt listen() = 0;
    virtual Attempt connect() = 0;

    /// Called for each established connection before it carries bytes; false turns it down, and errno says
    /// why: ECONNREFUSED where nobody is at its other end.
    virtual bool prepare(int socket) = 0;

    /// Called by close() while the listening sockets are still open.
    virtual void unlisten() {}

private:
    void tryListen(HostLinkTime now);
    void tryConnect(HostLinkTime now);
    void finishConnect(HostLinkTime now);
    void acceptNewcomers(HostLinkTime now);
    void welcome(FileDescriptor newcomer, HostLinkTime now);
    bool peerHungUp() const;
    void lineIsUp(HostLinkTime now);
    void dropLine(HostLinkTime now);
    void noteHead(const std::uint8_t* bytes, std::size_t size);
    void retryAfter(const Attempt& attempt, HostLinkTime now);

    const bool m_listens;
    std::vector<FileDescriptor> m_listeners;
    bool m_acceptPaused = false; ///< accepting failed: the listening sockets are not polled for a while
    FileDescriptor m_peer;
    bool m_up = false;         ///< m_peer is connected
    bool m_broken = false;     ///< a write failed: the line goes down once it is read to its end
    bool m_refused = false;    ///< all that the last line with bytes brought is a refusal
    std::uint64_t m_lines = 0; ///< how often the line came up
    HostLinkTime m_heardAt;    ///< when the peer last sent something, or came
    ByteArray m_head;          ///< the first bytes of this line, at most one more than a refusal has
    HostLinkTime m_connectBy = HostLinkTime::max();
    Retry m_retry;
};
