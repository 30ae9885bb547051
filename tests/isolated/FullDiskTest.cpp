#include <filesystem>
#include <fstream>

#include "support/ModuleFixture.h"
#include "support/PrivateRoot.h"
#include "support/Texts.h"

namespace
{

namespace fs = std::filesystem;

constexpr const char* kVolume = "VornPlayerVolumePath";
constexpr std::size_t kDiskSize = 256 * 1024;

/// A module that keeps its settings on a small disk, where a host receives files too.
class FullDisk : public ModuleFixture
{
protected:
    std::string settingsFile() const { return m_disk.path() + "/settings.json"; }

    void fill() const
    {
        std::ofstream file(filler(), std::ios::binary);
        while (file << std::string(1024, 'x') << std::flush) {
        }
        ASSERT_EQ(fs::space(m_disk.path()).available, 0U);
    }
    void makeRoom() const { fs::remove(filler()); }

    static void set(const std::string& volume)
    {
        const ProgramResult end = Program::run({"node", "set", kVolume, volume});
        EXPECT_EQ(end.status, 0) << end.err;
    }
    static std::string volume() { return Program::run({"node", "get", kVolume}).out; }

    const TemporaryMount m_disk{directory() + "/state", kDiskSize};

private:
    std::string filler() const { return m_disk.path() + "/filler"; }
};

TEST_F(FullDisk, AModuleSaysSoWorksOnAndSavesWhenThereIsRoom)
{
    set("30");
    stopModule();
    startModule();
    const std::string saved = contentOf(settingsFile());
    fill();
    set("31");
    EXPECT_TRUE(m_module->waitForError("settings cannot be saved: " + settingsFile()
                                       + ".new: No space left on device"));
    EXPECT_EQ(volume(), "31\n");
    EXPECT_EQ(contentOf(settingsFile()), saved);
    EXPECT_FALSE(fs::exists(settingsFile() + ".new"));
    makeRoom();
    set("32");
    EXPECT_TRUE(m_module->waitForError("settings can be saved again"));
    EXPECT_EQ(stopModule().status, 0);
    startModule();
    EXPECT_EQ(volume(), "32\n");
}

TEST_F(FullDisk, AModuleStartsAndEndsWithWhatWasSaved)
{
    set("30");
    stopModule();
    const std::string saved = contentOf(settingsFile());
    fill();
    startModule();
    EXPECT_EQ(volume(), "30\n");
    set("31");
    const ProgramResult end = stopModule();
    EXPECT_EQ(end.status, 0);
    EXPECT_TRUE(contains(end.err, "No space left on device")) << end.err;
    EXPECT_EQ(contentOf(settingsFile()), saved);
    EXPECT_FALSE(fs::exists(settingsFile() + ".new"));
}

TEST_F(FullDisk, AHostSaysWhatItCouldNotReceiveAndLeavesNoneOfIt)
{
    const std::string pushed = directory() + "/song.flac";
    const std::string received = m_disk.path() + "/received";
    fs::create_directory(received);
    std::ofstream(pushed, std::ios::binary) << std::string(2 * kDiskSize, 's');
    Program host({"host", "receive", received, "--count", "1"});
    ASSERT_TRUE(host.waitForError("ready for files"));
    Program::run(
        {"node", "invoke", "VornHostLinkDataTransferPath", R"({"action":0,"fileName":")" + pushed + R"("})"});
    const ProgramResult end = host.wait();
    EXPECT_EQ(end.status, 1);
    EXPECT_TRUE(contains(end.err, "\"song.flac\" was not received: cannot write: No space left on device"))
        << end.err;
    EXPECT_TRUE(fs::is_empty(received));
}

} // namespace
