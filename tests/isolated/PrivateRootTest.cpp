#include "support/PrivateRoot.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>

namespace
{

namespace fs = std::filesystem;

/// What a directory holds, but for the way to the build directory.
std::set<std::string> entriesOf(const std::string& directory)
{
    std::set<std::string> entries;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        const std::string path = entry.path().string() + '/';
        if ((std::string(BUILD_DIRECTORY) + '/').compare(0, path.size(), path) != 0) {
            entries.insert(entry.path().filename());
        }
    }
    return entries;
}

bool canWrite(const std::string& file)
{
    const bool written = bool(std::ofstream(file) << "text" << std::flush);
    std::error_code ignored;
    fs::remove(file, ignored);
    return written;
}

TEST(PrivateRootTest, HoldsNothingButWhatItNames)
{
    std::set<std::string> top = entriesOf("/");
    for (const char* system :
         {"bin", "sbin", "lib", "lib32", "lib64", "libx32", "usr", "etc", "proc", "dev"}) {
        top.erase(system);
    }
    for (const char* known : {".private-root", "media", "programs", "tmp", "var"}) {
        top.erase(known);
    }
    EXPECT_EQ(top, std::set<std::string>());
    EXPECT_EQ(entriesOf("/var"), std::set<std::string>{"tmp"});
    for (const char* empty : {"/media", "/tmp", "/var/tmp", "/programs", "/dev/shm"}) {
        EXPECT_EQ(entriesOf(empty), std::set<std::string>()) << empty;
    }
}

TEST(PrivateRootTest, HasNoDeviceOfTheMachine)
{
    std::set<std::string> devices = entriesOf("/dev");
    for (const char* harmless : {"null", "zero", "full", "random", "urandom", "shm"}) {
        EXPECT_EQ(devices.erase(harmless), 1U) << harmless;
    }
    EXPECT_EQ(devices, std::set<std::string>());
    EXPECT_TRUE(bool(std::ofstream("/dev/null") << "text" << std::flush));
}

TEST(PrivateRootTest, TheSystemCannotBeWrittenAndTheRestCan)
{
    for (const char* file : {"/usr/file", "/usr/bin/file", "/bin/file", "/etc/file"}) {
        EXPECT_FALSE(canWrite(file)) << file;
    }
    for (const char* file : {"/file", "/media/file", "/tmp/file", "/var/file", "/dev/uinput"}) {
        EXPECT_TRUE(canWrite(file)) << file;
    }
    EXPECT_TRUE(fs::exists(std::string(BUILD_DIRECTORY) + "/CMakeCache.txt"));
    EXPECT_EQ(::geteuid(), 0U);
}

TEST(PrivateRootTest, AProgramThatStandsInForAnotherIsFoundFirst)
{
    writeProgram("uname", "echo \"$@\" > /tmp/arguments; exit 3\n");
    EXPECT_EQ(::system("uname one 'two three'"), 3 << 8);
    std::string arguments;
    std::getline(std::ifstream("/tmp/arguments"), arguments);
    EXPECT_EQ(arguments, "one two three");
    fs::remove("/tmp/arguments");
    fs::remove("/programs/uname");
    EXPECT_EQ(::system("uname > /dev/null"), 0);
}

TEST(PrivateRootTest, AMountHidesWhatWasThereUntilItsEnd)
{
    std::ofstream("/media/below").flush();
    {
        TemporaryMount mount("/media");
        EXPECT_EQ(entriesOf("/media"), std::set<std::string>());
        EXPECT_TRUE(canWrite("/media/file"));
        mount.makeReadOnly();
        EXPECT_FALSE(canWrite("/media/file"));
    }
    EXPECT_EQ(entriesOf("/media"), std::set<std::string>{"below"});
    fs::remove("/media/below");
}

} // namespace
