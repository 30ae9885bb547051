#include "runtime/PeerCredentials.h"

#include <sys/socket.h>
#include <unistd.h>

bool isOfOwnUserOrRoot(int socket)
{
    ucred peer{};
    socklen_t size = sizeof peer;
    return ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0
           && (peer.uid == ::geteuid() || peer.uid == 0);
}
