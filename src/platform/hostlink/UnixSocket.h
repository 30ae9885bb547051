#pragma once

#include <sys/types.h>
#include <sys/un.h>

#include <optional>
#include <string>

#include "platform/hostlink/FileDescriptor.h"

/// The longest path that a Unix socket can have, which ends with a zero byte.
inline constexpr std::size_t kMaxUnixPath = sizeof(sockaddr_un::sun_path) - 1;

/// The address of a socket at `path`; nothing where the path has no byte or more than kMaxUnixPath.
std::optional<sockaddr_un> unixAddress(const std::string& path);

/// A stream socket that does not block; without descriptor errno says why.
FileDescriptor newUnixSocket();

/// connect(2); without success errno says why.
bool connectUnix(int socket, const sockaddr_un& address);

/// The file of a listening socket.
class UnixSocketFile
{
public:
    enum class Found {
        Nothing,
        LeftBehind, ///< a socket on which nobody listens any more
        Used,       ///< a socket of somebody else, or one that does not tell
        NoSocket
    };

    /// What lies at `address`.
    static Found look(const sockaddr_un& address);

    /// Makes the file, which only its owner may open, and listens. Without descriptor errno says why.
    FileDescriptor listen(const sockaddr_un& address, int backlog);

    /// Removes the file that listen() made, unless somebody has put another in its place.
    void remove();

private:
    sockaddr_un m_address{};
    dev_t m_device = 0;
    ino_t m_number = 0; ///< 0 for no file
};
