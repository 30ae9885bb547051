#include "runtime/StateDirectory.h"

#include <fcntl.h>
#include <sys/file.h>

#include <QDir>
#include <QFile>
#include <cerrno>
#include <cstring>

bool StateDirectory::open(const QString& path, QString* error)
{
    m_path = path;
    const bool isNew = !QDir(path).exists();
    if (!QDir().mkpath(path)) {
        *error = "cannot create the state directory " + path;
        return false;
    }
    if (isNew) {
        QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    m_descriptor =
        FileDescriptor(::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!m_descriptor || ::flock(m_descriptor.get(), LOCK_EX | LOCK_NB) != 0) {
        *error = "the state directory " + path
                 + (errno == EWOULDBLOCK ? QString(" is in use by another module")
                                         : ": " + QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    return true;
}
