#include "runtime/StateDirectory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <cerrno>
#include <cstring>

StateDirectory::~StateDirectory()
{
    if (m_descriptor >= 0) {
        ::close(m_descriptor);
    }
}

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
    m_descriptor = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (m_descriptor < 0 || ::flock(m_descriptor, LOCK_EX | LOCK_NB) != 0) {
        *error = "the state directory " + path
                 + (errno == EWOULDBLOCK ? QString(" is in use by another module")
                                         : ": " + QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    return true;
}
