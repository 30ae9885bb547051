#include "host/ReceivedFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "platform/hostlink/Utf8.h"

namespace
{
constexpr std::string_view kPartPrefix = ".hostlink-";
constexpr std::string_view kPartSuffix = ".part";

bool failed(const std::string& what, std::string* error)
{
    *error = what + ": " + std::strerror(errno);
    return false;
}

/// Whether it names a file in whatever directory, on any terminal: no path, no control characters, not longer
/// than file systems take.
bool isFileName(std::string_view name)
{
    if (name.empty() || name.size() > NAME_MAX || name == "." || name == "..") {
        return false;
    }
    while (!name.empty()) {
        const std::string_view character = firstCharacter(name);
        if (character == "/" || isControl(character)) {
            return false;
        }
        name.remove_prefix(character.size());
    }
    return true;
}

/// Of this process alone, so that one left behind by a kill is never written again.
std::string nextPartName()
{
    static unsigned number = 0;
    return std::string(kPartPrefix) + std::to_string(::getpid()) + '-' + std::to_string(++number)
           + std::string(kPartSuffix);
}

bool isPartName(std::string_view name)
{
    if (name.size() <= kPartPrefix.size() + kPartSuffix.size()
        || name.substr(0, kPartPrefix.size()) != kPartPrefix
        || name.substr(name.size() - kPartSuffix.size()) != kPartSuffix) {
        return false;
    }
    name.remove_prefix(kPartPrefix.size());
    name.remove_suffix(kPartSuffix.size());
    return name.find_first_not_of("0123456789-") == std::string_view::npos;
}

/// Who writes a file holds its lock, which ends with the process. Where the file system has no locks nothing
/// is known to be abandoned.
void removeIfAbandoned(int directory, const char* name)
{
    const FileDescriptor file(::openat(directory, name, O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status {
    };
    if (file && ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode)
        && ::flock(file.get(), LOCK_EX | LOCK_NB) == 0) {
        ::unlinkat(directory, name, 0);
    }
}
} // namespace

std::unique_ptr<ReceivedFile> ReceivedFile::create(const std::string& directory, const std::string& name,
                                                   std::string* error)
{
    // A file under a part's name would be taken for an abandoned one and removed.
    if (!isFileName(name) || isPartName(name)) {
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

void ReceivedFile::removeAbandoned(const std::string& directory)
{
    DIR* const entries = ::opendir(directory.c_str());
    if (entries == nullptr) {
        return;
    }
    while (const dirent* entry = ::readdir(entries)) {
        if (isPartName(entry->d_name)) {
            removeIfAbandoned(::dirfd(entries), entry->d_name);
        }
    }
    ::closedir(entries);
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
    } while (m_file ? !isSafe() : errno == EEXIST);
    if (!m_file) {
        m_partName.clear();
        return failed("cannot create a file", error);
    }
    return true;
}

/// Takes the file's lock. False when removeAbandoned() of another process came before that, and has removed
/// the file or is about to.
bool ReceivedFile::isSafe() const
{
    if (::flock(m_file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        return false;
    }
    struct stat status {
    };
    return ::fstat(m_file.get(), &status) == 0 && status.st_nlink > 0;
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
