#pragma once

#include <string>

/// Tests at true paths run in a private root: a root directory, seen by their process alone and gone with it,
/// that holds
///  - the system's programs, libraries and /etc, read-only, and /proc;
///  - in /dev what gives or swallows bytes, and nothing that is a device of the machine;
///  - empty and writable: "/" itself, /media, /tmp, /var, /dev/shm, and kPrivateRootPrograms, which PATH
///    begins with, for programs that stand in for the appliance's;
///  - the build directory, as it is.
/// The process is root in there, but has no more rights on the machine than before.

inline constexpr const char* kPrivateRootPrograms = "/programs";
inline constexpr const char* kPrivateRootMark = "/.private-root"; ///< is there only in a private root
inline constexpr int kPrivateRootDenied = 77;                     ///< exit status where the system denies one

bool isInPrivateRoot();

/// Runs this program anew, with the same arguments, in a private root. Returns only on failure; a system
/// that denies a private root ends the process with kPrivateRootDenied.
void runInPrivateRoot(char** argv);

/// Makes a program in kPrivateRootPrograms: a shell script with these lines.
void writeProgram(const std::string& name, const std::string& lines);

/// An empty file system in memory over a directory, which is made where it is missing, until the end of the
/// object. For private roots.
class TemporaryMount
{
public:
    /// Of so many bytes, in whole pages; 0 is what the system allows.
    explicit TemporaryMount(std::string path, std::size_t bytes = 0);
    ~TemporaryMount();

    TemporaryMount(const TemporaryMount&) = delete;
    TemporaryMount& operator=(const TemporaryMount&) = delete;

    /// Nothing can be written any more, not even by root.
    void makeReadOnly();

    const std::string& path() const { return m_path; }

private:
    const std::string m_path;
};
