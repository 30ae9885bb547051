#include "platform/hostlink/SocketLayer.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "platform/hostlink/HostLinkCore.h"
#include "platform/hostlink/HostLinkLog.h"
#include "platform/hostlink/Problem.h"

using namespace std::chrono_literals;

namespace
{

// A connecting side that waits for the other one notices it within the longest of these pauses.
constexpr HostLinkDuration kFirstConnectPause = 1ms;
constexpr HostLinkDuration kLongestConnectPause = 25ms;

// Troubles that somebody has to put right need no quick retry, and neither has an occupied line.
constexpr HostLinkDuration kFirstTroublePause = 20ms;
constexpr HostLinkDuration kLongestTroublePause = 1s;
constexpr HostLinkDuration kRefusedPause = 1s;

constexpr HostLinkDuration kConnectLimit = 3s;
constexpr HostLinkDuration kAcceptPause = 100ms;
constexpr int kNewcomersPerService = 16;

bool isOpenSocketReady(int socket, short events)
{
    pollfd descriptor{socket, events, 0};
    return ::poll(&descriptor, 1, 0) > 0;
}

/// Discards what lies unread, so that closing does not cut off what was written last.
void closeGently(FileDescriptor socket)
{
    ::shutdown(socket.get(), SHUT_WR);
    std::uint8_t rest[4096];
    for (int i = 0; i < 64 && ::recv(socket.get(), rest, sizeof rest, MSG_DONTWAIT) > 0; ++i) {
    }
}

void refuse(FileDescriptor newcomer)
{
    const ByteArray& frame = HostLinkCore::refusalFrame();
    ::send(newcomer.get(), frame.data(), frame.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    closeGently(std::move(newcomer));
}

} // namespace

SocketLayer::Attempt SocketLayer::Attempt::done(FileDescriptor socket)
{
    Attempt attempt{Outcome::Done, {}, {}};
    attempt.sockets.push_back(std::move(socket));
    return attempt;
}

SocketLayer::SocketLayer(std::string name, const Properties& properties)
    : m_listens(properties.integer(Listen).value_or(0) == 1), m_retry(std::move(name))
{
}

void SocketLayer::open(HostLinkTime now)
{
    m_retry.schedule(now);
    service(now);
}

void SocketLayer::close()
{
    unlisten();
    m_listeners.clear();
    if (m_peer) {
        closeGently(std::move(m_peer));
    }
    m_up = false;
    m_retry.cancel();
}

void SocketLayer::service(HostLinkTime now)
{
    if (m_peer && !m_up) {
        finishConnect(now);
    }
    if (m_retry.take(now)) {
        m_listens ? tryListen(now) : tryConnect(now);
    }
    acceptNewcomers(now);
}

void SocketLayer::tryListen(HostLinkTime now)
{
    m_acceptPaused = false;
    if (!m_listeners.empty()) {
        return;
    }
    Attempt attempt = listen();
    if (attempt.outcome != Attempt::Outcome::Done) {
        retryAfter(attempt, now);
        return;
    }
    m_listeners = std::move(attempt.sockets);
    m_retry.resetPause();
    m_retry.forget();
}

void SocketLayer::tryConnect(HostLinkTime now)
{
    Attempt attempt = connect();
    if (attempt.outcome != Attempt::Outcome::Done) {
        retryAfter(attempt, now);
        return;
    }
    m_peer = std::move(attempt.sockets.front());
    m_connectBy = now + kConnectLimit;
    finishConnect(now);
}

void SocketLayer::finishConnect(HostLinkTime now)
{
    const bool overdue = now >= m_connectBy;
    if (!overdue && !isOpenSocketReady(m_peer.get(), POLLOUT)) {
        return;
    }
    int error = overdue ? ETIMEDOUT : 0;
    socklen_t size = sizeof error;
    if (!overdue) {
        ::getsockopt(m_peer.get(), SOL_SOCKET, SO_ERROR, &error, &size);
    }
    if (error == 0 && prepare(m_peer.get())) {
        lineIsUp(now);
        return;
    }
    error = error == 0 ? errno : error;
    m_peer.reset();
    errno = error;
    const bool nobodyThere = error == ECONNREFUSED;
    retryAfter(nobodyThere ? Attempt::waiting() : Attempt::failed(problemWith("connect")), now);
}

void SocketLayer::acceptNewcomers(HostLinkTime now)
{
    if (m_acceptPaused) {
        return;
    }
    for (const FileDescriptor& listener : m_listeners) {
        for (int i = 0; i < kNewcomersPerService; ++i) {
            if (m_up && peerHungUp()) {
                return; // what it sent last is read first; the newcomer waits that long
            }
            FileDescriptor newcomer(
                ::accept4(listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
            if (newcomer) {
                welcome(std::move(newcomer), now);
            } else if (errno == EAGAIN) {
                break;
            } else if (errno != ECONNABORTED && errno != EINTR) {
                m_retry.say(problemWith("accept a connection"));
                m_acceptPaused = true;
                m_retry.schedule(now + kAcceptPause);
                return;
            }
        }
    }
}

void SocketLayer::welcome(FileDescriptor newcomer, HostLinkTime now)
{
    if (m_up && now - m_heardAt >= HostLinkCore::kSilence) {
        HostLinkLog::write(HostLinkLog::Level::Info, name() + ": a silent peer makes room for another");
        dropLine(now);
    }
    if (m_up) {
        HostLinkLog::write(HostLinkLog::Level::Debug, name() + ": turned a second peer away");
        refuse(std::move(newcomer));
    } else if (prepare(newcomer.get())) {
        m_peer = std::move(newcomer);
        lineIsUp(now);
    } else {
        m_retry.say(problemWith("take a connection"));
    }
}

bool SocketLayer::peerHungUp() const
{
    return isOpenSocketReady(m_peer.get(), POLLRDHUP);
}

void SocketLayer::lineIsUp(HostLinkTime now)
{
    m_heardAt = now;
    m_up = true;
    m_broken = false;
    m_head.clear();
    m_connectBy = HostLinkTime::max();
    m_retry.forget();
    ++m_lines;
}

void SocketLayer::dropLine(HostLinkTime now)
{
    m_peer.reset();
    m_up = false;
    if (m_listens) {
        return;
    }
    if (!m_head.empty()) {
        m_retry.resetPause(); // a peer that said nothing counts as an attempt that failed
    }
    const HostLinkDuration first = m_refused ? kRefusedPause : kFirstConnectPause;
    m_retry.backOff(now, first, std::max(first, kLongestConnectPause));
}

std::size_t SocketLayer::read(std::uint8_t* to, std::size_t max, HostLinkTime now)
{
    if (!m_up) {
        return 0;
    }
    const ssize_t size = ::recv(m_peer.get(), to, max, MSG_DONTWAIT);
    if (size > 0) {
        m_heardAt = now;
        noteHead(to, std::size_t(size));
        return std::size_t(size);
    }
    const bool nothingNow = size < 0 && (errno == EAGAIN || errno == EINTR);
    if (!nothingNow || m_broken) {
        dropLine(now);
    }
    return 0;
}

void SocketLayer::noteHead(const std::uint8_t* bytes, std::size_t size)
{
    const ByteArray& refusal = HostLinkCore::refusalFrame();
    const std::size_t most = refusal.size() + 1;
    if (m_listens || m_head.size() >= most) {
        return;
    }
    m_head.insert(m_head.end(), bytes, bytes + std::min(size, most - m_head.size()));
    m_refused = m_head == refusal;
}

std::size_t SocketLayer::write(const std::uint8_t* from, std::size_t size, HostLinkTime)
{
    if (!m_up || m_broken) {
        return 0;
    }
    const ssize_t sent = ::send(m_peer.get(), from, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent >= 0) {
        return std::size_t(sent);
    }
    m_broken = errno != EAGAIN && errno != EINTR;
    return 0;
}

void SocketLayer::waitOn(std::vector<pollfd>& descriptors, bool writing) const
{
    if (m_peer) {
        const bool wantsOut = !m_up || (writing && !m_broken);
        const bool wantsIn = m_up;
        descriptors.push_back({m_peer.get(), short((wantsIn ? POLLIN : 0) | (wantsOut ? POLLOUT : 0)), 0});
    }
    if (m_acceptPaused) {
        return;
    }
    for (const FileDescriptor& listener : m_listeners) {
        descriptors.push_back({listener.get(), POLLIN, 0});
    }
}

HostLinkTime SocketLayer::nextService() const
{
    return std::min(m_retry.at(), m_connectBy);
}

void SocketLayer::retryAfter(const Attempt& attempt, HostLinkTime now)
{
    m_connectBy = HostLinkTime::max();
    if (attempt.outcome == Attempt::Outcome::Waiting) {
        m_retry.backOff(now, kFirstConnectPause, kLongestConnectPause);
        return;
    }
    m_retry.say(attempt.problem);
    if (attempt.outcome == Attempt::Outcome::Failed) {
        m_retry.backOff(now, kFirstTroublePause, kLongestTroublePause);
    }
}
