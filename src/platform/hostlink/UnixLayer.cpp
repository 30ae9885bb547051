#include "platform/hostlink/UnixLayer.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "platform/hostlink/Problem.h"

namespace
{

// Little may lie in the kernel: what is written there can no longer be overtaken by a state message. It is no
// more than the link sends without an acknowledgement, and read within a millisecond.
constexpr int kSendBuffer = 32 * 1024;

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

} // namespace

UnixLayer::UnixLayer(const Properties& properties)
    : SocketLayer("unix:" + properties.string(Device).value_or(""), properties),
      m_path(properties.string(Device).value_or(""))
{
}

SocketLayer::Attempt UnixLayer::noAddress() const
{
    return Attempt::hopeless("a socket's path has 1 to " + std::to_string(kMaxUnixPath)
                             + " bytes, this one has " + std::to_string(m_path.size()));
}

SocketLayer::Attempt UnixLayer::listen()
{
    const auto address = unixAddress(m_path);
    if (!address) {
        return noAddress();
    }
    const FileDescriptor lock = lockDirectory(m_path);
    if (!lock) {
        return Attempt::failed(problemWith("lock the directory of the socket"));
    }
    switch (UnixSocketFile::look(*address)) {
    case UnixSocketFile::Found::Nothing: break;
    case UnixSocketFile::Found::LeftBehind: ::unlink(m_path.c_str()); break;
    case UnixSocketFile::Found::Used: return Attempt::failed("somebody else listens there");
    case UnixSocketFile::Found::NoSocket:
        return Attempt::failed("the path is taken by something that is not a socket");
    }
    FileDescriptor socket = m_file.listen(*address, kBacklog);
    return socket ? Attempt::done(std::move(socket)) : Attempt::failed(problemWith("listen"));
}

SocketLayer::Attempt UnixLayer::connect()
{
    const auto address = unixAddress(m_path);
    if (!address) {
        return noAddress();
    }
    FileDescriptor socket = newUnixSocket();
    if (!socket) {
        return Attempt::failed(problemWith("make a socket"));
    }
    if (connectUnix(socket.get(), *address)) {
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
    m_file.remove(); // while this side listens there nobody else takes it over
}
