#include "runtime/OwnerSocket.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstring>

namespace
{
constexpr mode_t kOwnerOnly = 0600;
constexpr int kBacklog = 64;

QString failure(const QByteArray& path)
{
    return QFile::decodeName(path) + ": " + QString::fromLocal8Bit(std::strerror(errno));
}
} // namespace

bool OwnerSocket::listen(const QString& path, QString* error)
{
    m_path = QFile::encodeName(path);
    const auto address = unixAddress(m_path.toStdString());
    if (!address) {
        *error = QString("%1: a socket's path has 1 to %2 bytes").arg(path).arg(kMaxUnixPath);
        return false;
    }
    return checkFolder(error) && lock(error) && bind(*address, error);
}

/// In a folder that others may write, they can exchange its files, unless it is sticky as /tmp is. The owner
/// of a folder always can.
bool OwnerSocket::checkFolder(QString* error) const
{
    const QByteArray folder = QFile::encodeName(QFileInfo(QFile::decodeName(m_path)).absolutePath());
    struct stat status {
    };
    if (::stat(folder.constData(), &status) != 0) {
        *error = failure(folder);
        return false;
    }
    const bool isOwners = status.st_uid == ::geteuid() || status.st_uid == 0;
    const bool othersWrite = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    if (isOwners && (!othersWrite || (status.st_mode & S_ISVTX) != 0)) {
        return true;
    }
    *error = QFile::decodeName(folder) + " can be written by other users, who could exchange a socket there";
    return false;
}

bool OwnerSocket::lock(QString* error)
{
    const QByteArray file = m_path + ".lock";
    m_lock = FileDescriptor(::open(file.constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kOwnerOnly));
    if (!m_lock) {
        *error = failure(file);
        return false;
    }
    if (::flock(m_lock.get(), LOCK_EX | LOCK_NB) != 0) {
        *error =
            errno == EWOULDBLOCK ? QFile::decodeName(m_path) + " is in use by another module" : failure(file);
        return false;
    }
    return true;
}

bool OwnerSocket::bind(const sockaddr_un& address, QString* error)
{
    switch (UnixSocketFile::look(address)) {
    case UnixSocketFile::Found::Nothing: break;
    case UnixSocketFile::Found::LeftBehind: ::unlink(m_path.constData()); break;
    case UnixSocketFile::Found::Used:
        *error = QFile::decodeName(m_path) + " is in use by another program";
        return false;
    case UnixSocketFile::Found::NoSocket:
        *error = QFile::decodeName(m_path) + " exists and is no socket";
        return false;
    }
    m_socket = m_file.listen(address, kBacklog);
    if (!m_socket) {
        *error = failure(m_path);
    }
    return static_cast<bool>(m_socket);
}
