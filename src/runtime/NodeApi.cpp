#include "runtime/NodeApi.h"

#include <log4cplus/loggingmacros.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "runtime/JsonRpc.h"
#include "runtime/NodeApiConnection.h"
#include "runtime/NodeApiErrors.h"

static log4cplus::Logger s_logger = log4cplus::Logger::getInstance("Runtime.NodeApi");

static constexpr int kPauseMs = 100;

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
    const int descriptor = ::accept4(m_socket.descriptor(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (descriptor >= 0) {
        return accept(descriptor);
    }
    if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) {
        LOG4CPLUS_WARN(s_logger, "cannot accept a client now: " << std::strerror(errno));
        m_notifier->setEnabled(false);
        m_pause.start();
    }
}

void NodeApi::accept(int descriptor)
{
    if (m_clients >= kMostClients) {
        const QByteArray refusal =
            JsonRpc::error({}, {nodeApiErrorCode(CMError::Refused),
                                QString("at most %1 clients at a time").arg(kMostClients)});
        ::send(descriptor, refusal.constData(), static_cast<std::size_t>(refusal.size()), MSG_NOSIGNAL);
        ::close(descriptor);
        return;
    }
    ++m_clients;
    auto* client = new NodeApiConnection(descriptor, this);
    connect(client, &NodeApiConnection::closed, this, [this, client] {
        --m_clients;
        client->deleteLater();
    });
}
