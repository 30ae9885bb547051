#include "services/ReplaceFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace
{
constexpr mode_t kOwnerOnly = 0600;

/// Closes itself.
class Descriptor
{
public:
    explicit Descriptor(int descriptor) : m_descriptor(descriptor) {}
    ~Descriptor()
    {
        if (m_descriptor >= 0) {
            ::close(m_descriptor);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool isOpen() const { return m_descriptor >= 0; }
    int get() const { return m_descriptor; }

private:
    int m_descriptor;
};

bool fail(const QByteArray& path, QString* error)
{
    *error = QFile::decodeName(path) + ": " + QString::fromLocal8Bit(std::strerror(errno));
    return false;
}

bool writeAll(int descriptor, const QByteArray& content)
{
    for (int at = 0; at < content.size();) {
        const ssize_t size =
            ::write(descriptor, content.constData() + at, static_cast<std::size_t>(content.size() - at));
        if (size < 0 && errno != EINTR) {
            return false;
        }
        at += size < 0 ? 0 : static_cast<int>(size);
    }
    return true;
}

bool writeDurably(const QByteArray& path, const QByteArray& content, QString* error)
{
    const Descriptor file(
        ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, kOwnerOnly));
    if (!file.isOpen()) {
        return fail(path, error);
    }
    if (!writeAll(file.get(), content) || ::fsync(file.get()) != 0) {
        fail(path, error);
        ::unlink(path.constData()); // a full disk needs its place
        return false;
    }
    return true;
}

bool syncDirectory(const QByteArray& path, QString* error)
{
    const Descriptor directory(::open(path.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // EINVAL: a file system that has no such operation.
    if (!directory.isOpen() || (::fsync(directory.get()) != 0 && errno != EINVAL)) {
        return fail(path, error);
    }
    return true;
}
} // namespace

bool replaceFile(const QString& path, const QByteArray& content, QString* error)
{
    const QByteArray target = QFile::encodeName(path);
    const QByteArray temporary = target + ".new";
    if (!writeDurably(temporary, content, error)) {
        return false;
    }
    if (std::rename(temporary.constData(), target.constData()) != 0) {
        return fail(target, error);
    }
    return syncDirectory(QFile::encodeName(QFileInfo(path).absolutePath()), error);
}
