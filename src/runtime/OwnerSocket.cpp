#include "runtime/OwnerSocket.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
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

sockaddr_un addressOf(const QByteArray& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.constData(), static_cast<std::size_t>(path.size()));
    return address;
}

int makeSocket()
{
    return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

bool answers(const QByteArray& path)
{
    const int probe = makeSocket();
    const sockaddr_un address = addressOf(path);
    const int status = ::connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    const bool live = status == 0 || errno == EAGAIN; // EAGAIN: its backlog is full
    ::close(probe);
    return live;
}
} // namespace

OwnerSocket::~OwnerSocket()
{
    if (m_descriptor >= 0) {
        ::unlink(m_path.constData());
        ::close(m_descriptor);
    }
    if (m_lock >= 0) {
        ::close(m_lock);
    }
}

bool OwnerSocket::listen(const QString& path, QString* error)
{
    m_path = QFile::encodeName(path);
    if (m_path.isEmpty() || m_path.size() >= static_cast<int>(sizeof(sockaddr_un::sun_path))) {
        *error =
            QString("%1: a socket's path has 1 to %2 bytes").arg(path).arg(sizeof(sockaddr_un::sun_path) - 1);
        return false;
    }
    return checkFolder(error) && lock(error) && removeStaleSocket(error) && bind(error);
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
    m_lock = ::open(file.constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kOwnerOnly);
    if (m_lock < 0) {
        *error = failure(file);
        return false;
    }
    if (::flock(m_lock, LOCK_EX | LOCK_NB) != 0) {
        *error =
            errno == EWOULDBLOCK ? QFile::decodeName(m_path) + " is in use by another module" : failure(file);
        return false;
    }
    return true;
}

bool OwnerSocket::removeStaleSocket(QString* error) const
{
    struct stat status {
    };
    if (::lstat(m_path.constData(), &status) != 0) {
        if (errno == ENOENT) {
            return true;
        }
        *error = failure(m_path);
        return false;
    }
    if (!S_ISSOCK(status.st_mode)) {
        *error = QFile::decodeName(m_path) + " exists and is no socket";
        return false;
    }
    if (answers(m_path)) {
        *error = QFile::decodeName(m_path) + " is in use by another program";
        return false;
    }
    ::unlink(m_path.constData());
    return true;
}

bool OwnerSocket::bind(QString* error)
{
    m_descriptor = makeSocket();
    const sockaddr_un address = addressOf(m_path);
    // A socket file is born with the mode of its unbound socket: nobody else can open it at any moment.
    const bool bound =
        ::fchmod(m_descriptor, kOwnerOnly) == 0
        && ::bind(m_descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    if (bound && ::listen(m_descriptor, kBacklog) == 0) {
        return true;
    }
    *error = failure(m_path);
    ::close(m_descriptor);
    m_descriptor = -1;
    return false;
}
