#include "support/PrivateRoot.h"

#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <vector>

namespace
{

namespace fs = std::filesystem;

[[noreturn]] void fail(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

} // namespace

bool isInPrivateRoot()
{
    return fs::exists(kPrivateRootMark);
}

void runInPrivateRoot(char** argv)
{
    std::string program = PRIVATE_ROOT_PROGRAM;
    std::string directory = BUILD_DIRECTORY;
    std::string self = fs::read_symlink("/proc/self/exe");
    std::vector<char*> arguments{program.data(), directory.data(), self.data()};
    for (char** argument = argv + 1; *argument != nullptr; ++argument) {
        arguments.push_back(*argument);
    }
    arguments.push_back(nullptr);
    ::execv(program.c_str(), arguments.data());
}

void writeProgram(const std::string& name, const std::string& lines)
{
    const fs::path program = fs::path(kPrivateRootPrograms) / name;
    std::ofstream(program) << "#!/bin/sh\n" << lines;
    fs::permissions(program, fs::perms::owner_all);
}

TemporaryMount::TemporaryMount(std::string path, std::size_t bytes) : m_path(std::move(path))
{
    if (!isInPrivateRoot()) {
        throw std::logic_error("mounts are for private roots");
    }
    fs::create_directories(m_path);
    const std::string options = bytes == 0 ? "mode=0755" : "mode=0755,size=" + std::to_string(bytes);
    if (::mount("tmpfs", m_path.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, options.c_str()) != 0) {
        fail("mounting " + m_path);
    }
}

TemporaryMount::~TemporaryMount()
{
    ::umount2(m_path.c_str(), MNT_DETACH);
}

void TemporaryMount::makeReadOnly()
{
    const unsigned long flags = MS_REMOUNT | MS_RDONLY | MS_NOSUID | MS_NODEV;
    if (::mount(nullptr, m_path.c_str(), nullptr, flags, nullptr) != 0) {
        fail("making read-only " + m_path);
    }
}
