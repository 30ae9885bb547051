// Runs a program in a root directory of its own: private_root DIRECTORY PROGRAM ARGUMENTS...
//
// See PrivateRoot.h for what is in there. This is a program of its own because only a process without threads
// may leave its user namespace, and some libraries start threads before main. Ends with kPrivateRootDenied,
// and says why, where the system does not let it.

#include <fcntl.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

#include "support/PrivateRoot.h"

namespace
{

namespace fs = std::filesystem;

const std::string kOldRoot = "/old-root";

/// The system does not allow what a private root needs.
class Denied : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

std::string failureOf(const std::string& what, int error)
{
    return what + ": " + std::strerror(error);
}

void check(int result, const std::string& what)
{
    if (result == 0) {
        return;
    }
    if (errno == EPERM || errno == EACCES || errno == ENOSYS) {
        throw Denied(failureOf(what, errno));
    }
    throw std::runtime_error(failureOf(what, errno));
}

void writeFile(const std::string& name, const std::string& text)
{
    std::ofstream file(name);
    if (!(file << text << std::flush)) {
        throw Denied("writing " + name);
    }
}

/// Makes the process root of a user namespace, with its own user as root.
void mapToRoot(uid_t user, gid_t group)
{
    writeFile("/proc/self/setgroups", "deny");
    writeFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    writeFile("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

/// A user namespace needs no privilege; where there is none, root does without.
void leaveNamespaces()
{
    const uid_t user = ::geteuid();
    const gid_t group = ::getegid();
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0) {
        mapToRoot(user, group);
        return;
    }
    const int error = errno;
    if (::unshare(CLONE_NEWNS) != 0) {
        throw Denied(failureOf("a user and mount namespace", error));
    }
}

void mountTmpfs(const std::string& at)
{
    check(::mount("tmpfs", at.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755"), "mounting " + at);
}

/// Puts what stood at `path` in the former root to the same path here.
void keep(const std::string& path)
{
    const std::string from = kOldRoot + path;
    if (fs::is_symlink(from)) {
        fs::create_symlink(fs::read_symlink(from), path);
        return;
    }
    if (!fs::exists(from)) {
        return;
    }
    if (fs::is_directory(from)) {
        fs::create_directories(path);
    } else {
        std::ofstream(path).flush();
    }
    check(::mount(from.c_str(), path.c_str(), nullptr, MS_BIND | MS_REC, nullptr), "mounting " + path);
}

/// Flags that a mount has already must stay.
void makeReadOnly(const std::string& path)
{
    struct statvfs status = {};
    if (fs::is_symlink(path) || ::statvfs(path.c_str(), &status) != 0) {
        return;
    }
    unsigned long flags = MS_BIND | MS_REMOUNT | MS_RDONLY;
    flags |= status.f_flag & ST_NOSUID ? MS_NOSUID : 0;
    flags |= status.f_flag & ST_NODEV ? MS_NODEV : 0;
    flags |= status.f_flag & ST_NOEXEC ? MS_NOEXEC : 0;
    flags |= status.f_flag & ST_NOATIME ? MS_NOATIME : 0;
    flags |= status.f_flag & ST_NODIRATIME ? MS_NODIRATIME : 0;
    flags |= status.f_flag & ST_RELATIME ? MS_RELATIME : 0;
    check(::mount(nullptr, path.c_str(), nullptr, flags, nullptr), "protecting " + path);
}

/// From here on "/" is an empty directory in memory, and the former root stands below it.
void pivot()
{
    constexpr const char* kPivot = "/tmp"; // any directory that exists: it is back in the former root below
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        throw Denied(failureOf("a mount tree apart", errno)); // a directory that chroot made root is no mount
    }
    mountTmpfs(kPivot);
    fs::create_directory(kPivot + kOldRoot);
    check(static_cast<int>(::syscall(SYS_pivot_root, kPivot, (kPivot + kOldRoot).c_str())), "pivot_root");
    check(::chdir("/"), "the new root");
}

void fill(const std::string& directory)
{
    for (const char* system : {"/usr", "/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32", "/etc"}) {
        keep(system);
        makeReadOnly(system);
    }
    keep("/proc");
    fs::create_directory("/dev");
    for (const char* device : {"/dev/null", "/dev/zero", "/dev/full", "/dev/random", "/dev/urandom"}) {
        keep(device);
    }
    for (const char* fresh : {"/dev/shm", "/media", "/tmp", "/var"}) {
        fs::create_directory(fresh);
        mountTmpfs(fresh);
    }
    fs::create_directories("/var/tmp");
    fs::create_directory(kPrivateRootPrograms);
    keep(directory);
    std::ofstream(kPrivateRootMark).flush();
}

void enterPrivateRoot(const std::string& directory)
{
    leaveNamespaces();
    pivot();
    fill(directory);
    check(::umount2(kOldRoot.c_str(), MNT_DETACH), "leaving the former root");
    fs::remove(kOldRoot);
    const std::string path = std::string(kPrivateRootPrograms) + ":/usr/sbin:/usr/bin:/sbin:/bin";
    ::setenv("PATH", path.c_str(), 1);
}

/// The working directory stays where it is there at all.
void returnTo(const fs::path& directory)
{
    std::error_code gone;
    fs::current_path(directory, gone);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::cerr << "usage: private_root DIRECTORY PROGRAM ARGUMENTS...\n";
        return 2;
    }
    try {
        const fs::path working = fs::current_path();
        enterPrivateRoot(argv[1]);
        returnTo(working);
    } catch (const Denied& denied) {
        std::cerr << "skipped, no private root here: " << denied.what() << '\n';
        return kPrivateRootDenied;
    } catch (const std::exception& failure) {
        std::cerr << "cannot make a private root: " << failure.what() << '\n';
        return 1;
    }
    ::execv(argv[2], argv + 2);
    std::cerr << failureOf(argv[2], errno) << '\n';
    return 1;
}
