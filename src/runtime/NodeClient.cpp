#include "runtime/NodeClient.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QFile>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "platform/hostlink/UnixSocket.h"
#include "platform/sdk/VornJson.h"
#include "runtime/PeerCredentials.h"

using namespace std::chrono;

namespace
{
constexpr int kAnswerReadSize = 1 << 16;
constexpr milliseconds kConnectPause = 10ms;

/// Another user's socket at the expected path may be a trap. Root may look at anybody's.
bool isTrusted(int socket)
{
    return ::geteuid() == 0 || isOfOwnUserOrRoot(socket);
}

QString gone()
{
    return "the module went away";
}

int remainingMs(const std::optional<steady_clock::time_point>& deadline)
{
    if (!deadline) {
        return -1;
    }
    const auto left = ceil<milliseconds>(*deadline - steady_clock::now()).count();
    return static_cast<int>(std::max<decltype(left)>(left, 0));
}
} // namespace

bool NodeClient::connect(const QString& socket, milliseconds timeout, QString* error)
{
    const auto address = unixAddress(QFile::encodeName(socket).toStdString());
    if (!address) {
        *error = QString("%1: a socket's path has 1 to %2 bytes").arg(socket).arg(kMaxUnixPath);
        return false;
    }
    m_socket = newUnixSocket();
    if (!m_socket) {
        *error = "cannot make a socket: " + QString::fromLocal8Bit(std::strerror(errno));
        return false;
    }
    const auto deadline = steady_clock::now() + timeout;
    while (!connectUnix(m_socket.get(), *address)) {
        if (errno != EAGAIN) {
            *error = "no module answers at " + socket + ": " + QString::fromLocal8Bit(std::strerror(errno));
            return false;
        }
        // So many wait for the module already that no more may, and nothing tells when that is over.
        wait(-1, 0, std::min(deadline, steady_clock::now() + kConnectPause), error);
        if (m_interrupted || m_outputGone || steady_clock::now() >= deadline) {
            return false;
        }
    }
    if (!isTrusted(m_socket.get())) {
        *error = socket + " is served by another user";
        return false;
    }
    return true;
}

std::optional<NodeClient::Answer> NodeClient::call(const QString& method, const QVariantHash& params,
                                                   milliseconds timeout, QString* error)
{
    const Deadline deadline = steady_clock::now() + timeout;
    const int id = ++m_lastId;
    if (!send(JsonRpc::request(id, method, params), deadline, error)) {
        return std::nullopt;
    }
    while (const std::optional<QVariantHash> message = nextMessage(deadline, error)) {
        if (message->contains("method")) {
            m_notifications.append(message->value("params").toHash());
            continue;
        }
        const QVariant answered = message->value("id");
        const QVariantHash failure = message->value("error").toHash();
        // A refusal of the connection as a whole has no id.
        if (answered.toInt() == id || (!failure.isEmpty() && answered.toInt() == 0)) {
            return Answer{{failure["code"].toInt(), failure["message"].toString()}, message->value("result")};
        }
    }
    return std::nullopt;
}

std::optional<QVariantHash> NodeClient::nextNotification(QString* error)
{
    while (m_notifications.isEmpty()) {
        const std::optional<QVariantHash> message = nextMessage(std::nullopt, error);
        if (!message) {
            return std::nullopt;
        }
        if (message->contains("method")) {
            m_notifications.append(message->value("params").toHash());
        }
    }
    return m_notifications.takeFirst();
}

bool NodeClient::send(const QByteArray& line, const Deadline& deadline, QString* error)
{
    QByteArray rest = line;
    while (!rest.isEmpty()) {
        if (!wait(m_socket.get(), POLLOUT, deadline, error)) {
            return false;
        }
        const ssize_t count =
            ::send(m_socket.get(), rest.constData(), static_cast<std::size_t>(rest.size()), MSG_NOSIGNAL);
        if (count < 0 && errno == EPIPE) {
            return true; // the module may have said why it went before it did: the next read tells
        }
        if (count < 0 && errno != EAGAIN && errno != EINTR) {
            *error = gone();
            return false;
        }
        rest.remove(0, static_cast<int>(std::max<ssize_t>(count, 0)));
    }
    return true;
}

std::optional<QVariantHash> NodeClient::nextMessage(const Deadline& deadline, QString* error)
{
    int end = 0;
    for (int searched = 0; (end = m_input.indexOf('\n', searched)) < 0;) {
        searched = m_input.size();
        if (!receive(deadline, error)) {
            return std::nullopt;
        }
    }
    VornJson::Error syntax;
    const QVariant json = VornJson::parse(QString::fromUtf8(m_input.left(end)), &syntax);
    m_input.remove(0, end + 1);
    if (!syntax.isEmpty()) {
        *error = "what answers is no module: " + syntax.toString();
        return std::nullopt;
    }
    return json.toHash();
}

bool NodeClient::receive(const Deadline& deadline, QString* error)
{
    if (!wait(m_socket.get(), POLLIN, deadline, error)) {
        return false;
    }
    char bytes[kAnswerReadSize];
    const ssize_t count = ::recv(m_socket.get(), bytes, sizeof bytes, 0);
    if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
        *error = gone();
        return false;
    }
    m_input.append(bytes, static_cast<int>(std::max<ssize_t>(count, 0)));
    return true;
}

bool NodeClient::wait(int descriptor, short events, const Deadline& deadline, QString* error)
{
    for (;;) {
        // What the last one waits for is told without being asked: an error or a hang-up.
        pollfd descriptors[] = {{descriptor, events, 0}, {m_interrupt, POLLIN, 0}, {m_output, 0, 0}};
        const int ready = ::poll(descriptors, std::size(descriptors), remainingMs(deadline));
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready == 0) {
            *error = "the module does not answer in time";
            return false;
        }
        if (descriptors[1].revents != 0) {
            m_interrupted = true;
            *error = "interrupted";
            return false;
        }
        if (descriptors[2].revents != 0) {
            m_outputGone = true;
            *error = "nobody reads the output";
            return false;
        }
        return true;
    }
}
