#include "host/ReceivedFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

namespace
{
bool failed(const std::string& what, std::string* error)
{
    *error = what + ": " + std::strerror(errno);
    return false;
}

/// Whether it names a file in whatever directory, on any terminal: no path, no control characters, not longer
/// than file systems take.
bool isFileName(const std::string& name)
{
    const auto isAllowed = [](unsigned char character) {
        return character >= 0x20 && character != 0x7F && character != '/';
    };
    return !name.empty() && name.size() <= NAME_MAX && name != "." && name != ".."
           && std::all_of(name.begin(), name.end(), isAllowed);
}

/// Of this process alone, so that one left behind by a kill is never written again.
std::string nextPartName()
{
    static unsigned number = 0;
    return ".hostlink-" + std::to_string(::getpid()) + '-' + std::to_string(++number) + ".part";
}
} // namespace

std::unique_ptr<ReceivedFile> ReceivedFile::create(const std::string& directory, const std::string& name,
                                                   std::string* error)
{
    if (!isFileName(name)) {
        *error = "the announced name is no file name";
        return nullptr;
    }
    FileDescriptor descriptor(::open(directory.c_str(), O_DIRECTORY | O_PATH | O_CLOEXEC));
    if (!descriptor) {
        failed(directory, error);
        return nullptr;
    }
    std::unique_ptr<ReceivedFile> file(new ReceivedFile(std::move(descriptor), name));
    return file->open(error) ? std::move(file) : nullptr;
}

ReceivedFile::ReceivedFile(FileDescriptor directory, std::string name)
    : m_directory(std::move(directory)), m_name(std::move(name))
{
}

ReceivedFile::~ReceivedFile()
{
    if (!m_partName.empty()) {
        ::unlinkat(m_directory.get(), m_partName.c_str(), 0);
    }
}

bool ReceivedFile::open(std::string* error)
{
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    do {
        m_partName = nextPartName();
        m_file = FileDescriptor(::openat(m_directory.get(), m_partName.c_str(), kFlags, 0666));
    } while (!m_file && errno == EEXIST);
    if (!m_file) {
        m_partName.clear();
        return failed("cannot create a file", error);
    }
    return true;
}

bool ReceivedFile::write(std::uint64_t offset, const std::uint8_t* bytes, std::size_t size,
                         std::string* error)
{
    while (size > 0) {
        const ssize_t written = ::pwrite(m_file.get(), bytes, size, static_cast<off_t>(offset));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return failed("cannot write", error);
        }
        bytes += written;
        size -= static_cast<std::size_t>(written);
        offset += static_cast<std::uint64_t>(written);
    }
    return true;
}

bool ReceivedFile::keep(std::uint64_t size, std::string* error)
{
    if (::ftruncate(m_file.get(), static_cast<off_t>(size)) != 0 || ::fsync(m_file.get()) != 0) {
        return failed("cannot write", error);
    }
    if (::renameat(m_directory.get(), m_partName.c_str(), m_directory.get(), m_name.c_str()) != 0) {
        return failed("cannot put it at its name", error);
    }
    m_partName.clear();
    m_file.reset();
    return true;
}
