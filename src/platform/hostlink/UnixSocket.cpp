#include "platform/hostlink/UnixSocket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

std::optional<sockaddr_un> unixAddress(const std::string& path)
{
    if (path.empty() || path.size() > kMaxUnixPath) {
        return std::nullopt;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

FileDescriptor newUnixSocket()
{
    return FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

bool connectUnix(int socket, const sockaddr_un& address)
{
    return ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

UnixSocketFile::Found UnixSocketFile::look(const sockaddr_un& address)
{
    struct stat file {
    };
    if (::lstat(address.sun_path, &file) != 0) {
        return Found::Nothing;
    }
    if (!S_ISSOCK(file.st_mode)) {
        return Found::NoSocket;
    }
    const FileDescriptor probe = newUnixSocket();
    // Any other error is of a socket in use: of another type, of another user, or with a full backlog.
    const bool leftBehind = probe && !connectUnix(probe.get(), address) && errno == ECONNREFUSED;
    return leftBehind ? Found::LeftBehind : Found::Used;
}

FileDescriptor UnixSocketFile::listen(const sockaddr_un& address, int backlog)
{
    FileDescriptor socket = newUnixSocket();
    struct stat file {
    };
    // On an unbound socket fchmod() sets the mode of the file that bind() makes: it is never wider.
    if (!socket || ::fchmod(socket.get(), S_IRUSR | S_IWUSR) != 0
        || ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0
        || ::listen(socket.get(), backlog) != 0 || ::lstat(address.sun_path, &file) != 0) {
        return {};
    }
    m_address = address;
    m_device = file.st_dev;
    m_number = file.st_ino;
    return socket;
}

void UnixSocketFile::remove()
{
    struct stat file {
    };
    if (m_number != 0 && ::lstat(m_address.sun_path, &file) == 0 && file.st_dev == m_device
        && file.st_ino == m_number) {
        ::unlink(m_address.sun_path);
    }
    m_number = 0;
}
