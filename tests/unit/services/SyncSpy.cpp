#include "unit/services/SyncSpy.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

namespace
{
SyncSpy::Handler s_handler;

std::string pathOf(int descriptor)
{
    char path[PATH_MAX];
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    const ssize_t size = ::readlink(link.c_str(), path, sizeof path);
    return size < 0 ? std::string() : std::string(path, static_cast<std::size_t>(size));
}
} // namespace

/// Takes the place of the C library's.
extern "C" int fsync(int descriptor)
{
    if (!s_handler) {
        return static_cast<int>(::syscall(SYS_fsync, descriptor));
    }
    const int error = s_handler(pathOf(descriptor));
    if (error == 0) {
        return 0;
    }
    errno = error;
    return -1;
}

SyncSpy::SyncSpy(Handler handler)
{
    s_handler = std::move(handler);
}

SyncSpy::~SyncSpy()
{
    s_handler = {};
}
