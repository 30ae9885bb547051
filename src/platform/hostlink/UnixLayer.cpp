#include "platform/hostlink/UnixLayer.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/hostlink/Problem.h"

namespace
{

// Little may lie in the kernel: what is written there can no longer be overtaken by a state message. It is no
// more than the link sends without an acknowledgement, and read within a millisecond.
constexpr int kSendBuffer = 32 * 1024;

/// The right to make the socket file at `path`: of two sides that start at once one waits, so that they do
/// not take over the same file. Not a lock on the directory, which others may lock for reasons of their own.
class PlaceLock
{
public:
    explicit PlaceLock(const std::string& path)
        : m_path(path + ".start.lock"),
          m_file(::open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR))
    {
        struct stat file {
        };
        if (!m_file) {
            return;
        }
        if (::flock(m_file.get(), LOCK_EX | LOCK_NB) != 0 || ::fstat(m_file.get(), &file) != 0) {
            m_file.reset();
        } else if (file.st_nlink == 0) { // its last owner removed it after it was opened here
            m_file.reset();
            errno = EWOULDBLOCK;
        }
    }
    ~PlaceLock()
    {
        if (m_file) {
            ::unlink(m_path.c_str());
        }
    }
    PlaceLock(const PlaceLock&) = delete;
    PlaceLock& operator=(const PlaceLock&) = delete;

    /// Otherwise errno says why.
    explicit operator bool() const { return static_cast<bool>(m_file); }

private:
    const std::string m_path;
    FileDescriptor m_file;
};

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
    const PlaceLock lock(m_path);
    if (!lock) {
        return errno == EWOULDBLOCK ? Attempt::waiting()
                                    : Attempt::failed(problemWith("lock the socket's place"));
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
