#pragma once

#include <QObject>
#include <QSocketNotifier>
#include <QTimer>
#include <memory>

#include "runtime/OwnerSocket.h"

/// The node API: JSON-RPC 2.0, one message a line, on a Unix socket that only its owner may open. Clients of
/// other users are turned away, root's are not. Its methods are NodeApiSession's.
class NodeApi : public QObject
{
    Q_OBJECT
public:
    static constexpr int kMostClients = 64;

    explicit NodeApi(QObject* parent = nullptr);

    /// Listens at `path`; clients are served from the event loop. Without success *error says why.
    bool listen(const QString& path, QString* error);

private:
    void on_notifier_activated();
    void accept(FileDescriptor client);

    OwnerSocket m_socket;
    std::unique_ptr<QSocketNotifier> m_notifier;
    QTimer m_pause;
    int m_clients = 0;
};
