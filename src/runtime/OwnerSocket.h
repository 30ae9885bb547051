#pragma once

#include <QString>

#include "platform/hostlink/FileDescriptor.h"
#include "platform/hostlink/UnixSocket.h"

/// A listening Unix socket that only its owner may open. A lock beside it (PATH.lock), which ends with
/// the process, tells a live socket from the file that a killed process left behind.
class OwnerSocket
{
public:
    OwnerSocket() = default;
    ~OwnerSocket() { m_file.remove(); }

    OwnerSocket(const OwnerSocket&) = delete;
    OwnerSocket& operator=(const OwnerSocket&) = delete;

    /// Listens at `path`, taking over a stale socket file. Its folder must be one in which nobody else can
    /// put another file at that name. Without success *error says why.
    bool listen(const QString& path, QString* error);

    /// The listening descriptor, which does not block; -1 before listen().
    int descriptor() const { return m_socket.get(); }

private:
    bool checkFolder(QString* error) const;
    bool lock(QString* error);
    bool bind(const sockaddr_un& address, QString* error);

    QByteArray m_path;
    FileDescriptor m_lock; ///< given up last
    UnixSocketFile m_file;
    FileDescriptor m_socket;
};
