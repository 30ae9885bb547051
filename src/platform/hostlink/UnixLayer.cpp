#include "platform/hostlink/UnixLayer.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <optional>

#include "platform/hostlink/Problem.h"

namespace
{

// Little may lie in the kernel: what is written there can no longer be overtaken by a state message. It is no
// more than the link sends without an acknowledgement, and read within a millisecond.
constexpr int kSendBuffer = 32 * 1024;

std::optional<sockaddr_un> socketAddress(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        return std::nullopt;
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

FileDescriptor newSocket()
{
    return FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

bool connectTo(int socket, const sockaddr_un& address)
{
    return ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

/// A lock on the directory of `path`: two modules that start at once do not take over the same file.
/// Without descriptor when somebody else has it or the directory is not there.
FileDescriptor lockDirectory(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    FileDescriptor lock(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (lock && ::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        lock.reset();
    }
    return lock;
}

/// True for a socket on which nobody listens any more.
bool isLeftBehind(const sockaddr_un& address)
{
    const FileDescriptor probe = newSocket();
    return probe && !connectTo(probe.get(), address) && errno == ECONNREFUSED;
}

} // namespace

UnixLayer::UnixLayer(const Properties& properties)
    : SocketLayer("unix:" + properties.string(Device).value_or(""), properties),
      m_path(properties.string(Device).value_or(""))
{
}

SocketLayer::Attempt UnixLayer::listen()
{
    const auto address = socketAddress(m_path);
    if (!address) {
        return Attempt::hopeless("a socket's path has 1 to "
                                 + std::to_string(sizeof sockaddr_un{}.sun_path - 1) + " bytes, this one has "
                                 + std::to_string(m_path.size()));
    }
    const FileDescriptor lock = lockDirectory(m_path);
    if (!lock) {
        return Attempt::failed(problemWith("lock the directory of the socket"));
    }
    struct stat file {
    };
    if (::lstat(m_path.c_str(), &file) == 0) {
        if (!S_ISSOCK(file.st_mode)) {
            return Attempt::failed("the path is taken by something that is not a socket");
        }
        if (!isLeftBehind(*address)) {
            return Attempt::failed("somebody else listens there");
        }
        ::unlink(m_path.c_str());
    }
    FileDescriptor socket = newSocket();
    // On an unbound socket this sets the mode of the file that bind() makes: it is never wider.
    if (!socket || ::fchmod(socket.get(), S_IRUSR | S_IWUSR) != 0
        || ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0
        || ::lstat(m_path.c_str(), &file) != 0) {
        return Attempt::failed(problemWith("make the socket"));
    }
    m_fileDevice = file.st_dev;
    m_fileNumber = file.st_ino;
    if (::listen(socket.get(), kBacklog) != 0) {
        return Attempt::failed(problemWith("listen"));
    }
    return Attempt::done(std::move(socket));
}

SocketLayer::Attempt UnixLayer::connect()
{
    const auto address = socketAddress(m_path);
    if (!address) {
        return Attempt::hopeless("a socket's path has 1 to "
                                 + std::to_string(sizeof sockaddr_un{}.sun_path - 1) + " bytes, this one has "
                                 + std::to_string(m_path.size()));
    }
    FileDescriptor socket = newSocket();
    if (!socket) {
        return Attempt::failed(problemWith("make a socket"));
    }
    if (connectTo(socket.get(), *address)) {
        return Attempt::done(std::move(socket));
    }
    const bool notThereYet = errno == ENOENT || errno == ECONNREFUSED || errno == EAGAIN;
    return notThereYet ? Attempt::waiting() : Attempt::failed(problemWith("connect"));
}

bool UnixLayer::prepare(int socket)
{
    return ::setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer) == 0;
}

void UnixLayer::unlisten()
{
    if (m_fileNumber == 0) {
        return;
    }
    const FileDescriptor lock = lockDirectory(m_path);
    struct stat file {
    };
    const bool ours =
        ::lstat(m_path.c_str(), &file) == 0 && file.st_dev == m_fileDevice && file.st_ino == m_fileNumber;
    if (ours) {
        ::unlink(m_path.c_str());
    }
    m_fileNumber = 0;
}
