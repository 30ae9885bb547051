#include "runtime/NodeApi.h"

#include <log4cplus/loggingmacros.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "runtime/JsonRpc.h"
#include "runtime/NodeApiConnection.h"
#include "runtime/NodeApiErrors.h"
#include "runtime/PeerCredentials.h"

static log4cplus::Logger nodeApiLogger = log4cplus::Logger::getInstance("Runtime.NodeApi");

namespace
{
constexpr int kPauseMs = 100;

void refuse(const FileDescriptor& client, const QString& why)
{
    const QByteArray refusal = JsonRpc::error({}, {nodeApiErrorCode(CMError::Refused), why});
    ::send(client.get(), refusal.constData(), static_cast<std::size_t>(refusal.size()), MSG_NOSIGNAL);
}
} // namespace

NodeApi::NodeApi(QObject* parent) : QObject(parent)
{
    m_pause.setSingleShot(true);
    m_pause.setInterval(kPauseMs);
    connect(&m_pause, &QTimer::timeout, this, [this] { m_notifier->setEnabled(true); });
}

bool NodeApi::listen(const QString& path, QString* error)
{
    if (!m_socket.listen(path, error)) {
        return false;
    }
    m_notifier = std::make_unique<QSocketNotifier>(m_socket.descriptor(), QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &NodeApi::on_notifier_activated);
    return true;
}

void NodeApi::on_notifier_activated()
{
    FileDescriptor client(::accept4(m_socket.descriptor(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (client) {
        return accept(std::move(client));
    }
    if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) {
        LOG4CPLUS_WARN(nodeApiLogger, "cannot accept a client now: " << std::strerror(errno));
        m_notifier->setEnabled(false);
        m_pause.start();
    }
}

void NodeApi::accept(FileDescriptor client)
{
    // The socket file's mode keeps others out already, for as long as nobody changes it.
    if (!isOfOwnUserOrRoot(client.get())) {
        LOG4CPLUS_WARN(nodeApiLogger, "a client of another user was turned away");
        return refuse(client, "only the user who runs the module may use its nodes");
    }
    if (m_clients >= kMostClients) {
        return refuse(client, QString("at most %1 clients at a time").arg(kMostClients));
    }
    ++m_clients;
    auto* connection = new NodeApiConnection(std::move(client), this);
    connect(connection, &NodeApiConnection::closed, this, [this, connection] {
        --m_clients;
        connection->deleteLater();
    });
}
