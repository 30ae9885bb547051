#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/hostlink/FileDescriptor.h"

/// A file that appears in its directory whole, or not at all: until keep() its bytes are in a file of another
/// name there, which goes away with this object.
class ReceivedFile
{
public:
    /// Nothing, and *error, when the name is none of a file in `directory` itself or the file cannot be made.
    static std::unique_ptr<ReceivedFile> create(const std::string& directory, const std::string& name,
                                                std::string* error);
    ~ReceivedFile();

    /// Removes from `directory` what processes have left there that were killed amid a file. What somebody is
    /// still writing stays.
    static void removeAbandoned(const std::string& directory);

    ReceivedFile(const ReceivedFile&) = delete;
    ReceivedFile& operator=(const ReceivedFile&) = delete;

    /// Writes bytes at an offset. False, and *error, when not all could be written.
    bool write(std::uint64_t offset, const std::uint8_t* bytes, std::size_t size, std::string* error);

    /// Puts the file, of `size` bytes and on the disk, at its name, in place of an older one. False, and
    /// *error, when that failed.
    bool keep(std::uint64_t size, std::string* error);

    const std::string& name() const { return m_name; }

private:
    ReceivedFile(FileDescriptor directory, std::string name);
    bool open(std::string* error);
    bool isSafe() const;

    const FileDescriptor m_directory;
    const std::string m_name;
    std::string m_partName; ///< empty once there is no such file
    FileDescriptor m_file;
};
