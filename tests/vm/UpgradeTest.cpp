#include <signal.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/ModuleFixture.h"

namespace
{
namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

constexpr const char* kFlag = "/hostUpgradeRequestFlag";
constexpr const char* kNoAnswer = "STA_HostUpgradeStatus\tnone\t\n";
constexpr const char* kRestart = "power target Restart";
} // namespace

/// A module with the upgrade proxy, on a machine whose upgrade commands tell how they are called. They tell
/// it where the module logs, so that all that happens is in one order.
class Upgrade : public ModuleFixture
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(fs::exists(kFlag)) << "of an earlier test";
        makeCommand("fw_setenv");
        makeCommand("sfuflags");
        setenv("PATH", (directory() + ":" + m_path).c_str(), 1);
        startModule({"--plugin", LAB_WORKER, "--log-level", "info"});
        m_target =
            std::make_unique<Program>(Program::Arguments{"node", "watch", "VornPowerManagerTargetPath"});
        ASSERT_NE(m_target->nextLineWith(R"("target":1)"), "");
    }

    void TearDown() override
    {
        setenv("PATH", m_path.c_str(), 1);
        fs::remove_all(kFlag);
    }

    /// The host tells its status, and the power manager then shows a restart as its target.
    void expectRestartAt(int status)
    {
        const ProgramResult set = host({"set", "STA_HostUpgradeStatus=" + std::to_string(status)});
        EXPECT_EQ(set.out, kNoAnswer) << set.err;
        EXPECT_NE(m_target->nextLineWith(R"("reason":3,"target":3)"), "");
    }

    /// The commands that ran, and when the restart was asked for. Ends the module.
    Lines happened()
    {
        std::istringstream log(stopModule().err);
        Lines lines;
        for (std::string line; std::getline(log, line);) {
            for (const char* wanted : {"called ", kRestart}) {
                if (const std::size_t at = line.find(wanted); at != std::string::npos) {
                    lines.push_back(line.substr(at)); // without the time before it
                }
            }
        }
        return lines;
    }

private:
    void makeCommand(const std::string& name)
    {
        const std::string file = directory() + "/" + name;
        std::ofstream(file) << "#!/bin/sh\necho called " << name << " with \"$#: $@\" >&2\n";
        fs::permissions(file, fs::perms::owner_all);
    }

    const std::string m_path = getenv("PATH");
    std::unique_ptr<Program> m_target;
};

TEST_F(Upgrade, OverUsbRunsBothCommandsThenRestarts)
{
    expectRestartAt(8);
    EXPECT_FALSE(fs::exists(kFlag));
    EXPECT_EQ(happened(), (Lines{"called fw_setenv with 2: usb_update_req 1",
                                 "called sfuflags with 4: -f update -v 1", kRestart}));
}

TEST_F(Upgrade, OfTheHostLeavesAFlagThenRestarts)
{
    expectRestartAt(0);
    EXPECT_TRUE(fs::is_regular_file(kFlag));
    EXPECT_EQ(happened(), Lines{kRestart});
}
