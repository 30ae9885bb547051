#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>

#include "support/ModuleFixture.h"
#include "support/NullModem.h"
#include "support/Texts.h"

namespace
{
/// A module on the one end of a null modem; hosts come to the other.
class SerialLine : public RuntimeDirectory
{
protected:
    void SetUp() override
    {
        m_module = std::make_unique<Program>(
            Program::Arguments{"module", "--link", m_moduleUrl, "--state-dir", directory() + "/state"});
        ASSERT_EQ(m_module->waitForLine("ready link=").find("ready link=" + m_moduleUrl + " "), 0u);
    }

    ProgramResult get(const std::string& state) const { return host({"--link", m_hostUrl, "get", state}); }

    NullModem m_modem{directory()};
    const std::string m_moduleUrl = "serial:" + m_modem.device(0) + "?baud=460800&stop=2";
    const std::string m_hostUrl = "serial:" + m_modem.device(1) + "?baud=460800&stop=2";
    std::unique_ptr<Program> m_module;
};

class DeviceLine : public RuntimeDirectory
{
protected:
    /// A module on this link, which is told to end once it has said this.
    ProgramResult runModule(const std::string& link, const std::string& said)
    {
        Program module({"module", "--link", link, "--state-dir", directory() + "/state"});
        EXPECT_EQ(module.waitForLine("ready link=").find("ready link=" + link + " "), 0u);
        EXPECT_TRUE(module.waitForError(said));
        module.signal(SIGTERM);
        return module.wait();
    }
};
} // namespace

TEST_F(SerialLine, HostsTalkToAModule)
{
    for (int i = 0; i < 5; ++i) {
        const ProgramResult result = get("STA_Mute");
        EXPECT_EQ(result.out, "STA_Mute\tu8\t0\n");
        EXPECT_EQ(result.status, 0) << result.err;
    }
    EXPECT_EQ(host({"--link", m_hostUrl, "set", "STA_Mute=1"}).out, "STA_Mute\tu8\t1\n");
    EXPECT_EQ(get("STA_Mute").out, "STA_Mute\tu8\t1\n");
}

TEST_F(SerialLine, GoesOnAfterItWasUnplugged)
{
    EXPECT_EQ(get("STA_Mute").out, "STA_Mute\tu8\t0\n");
    m_modem.unplug();
    const ProgramResult without = host({"--link", m_hostUrl, "--timeout", "200", "get", "STA_Mute"});
    EXPECT_EQ(without.status, 3);
    EXPECT_EQ(count(without.err, "the device is not there; waits for it"), 1u) << without.err;
    m_modem.plug();
    EXPECT_EQ(get("STA_Mute").out, "STA_Mute\tu8\t0\n");
    m_module->signal(SIGTERM);
    const ProgramResult module = m_module->wait();
    EXPECT_EQ(module.status, 0);
    EXPECT_EQ(count(module.err, "the device is not there; waits for it"), 1u) << module.err;
}

TEST_F(SerialLine, IsFreeAgainAfterAModuleWasKilled)
{
    m_module->signal(SIGKILL);
    m_module->wait();
    SetUp();
    EXPECT_EQ(get("STA_Mute").out, "STA_Mute\tu8\t0\n");
}

TEST_F(SerialLine, IsForOneHostAtATime)
{
    const ProgramResult second = host({"--link", m_moduleUrl, "--timeout", "200", "get", "STA_Mute"});
    EXPECT_EQ(second.status, 3);
    EXPECT_EQ(count(second.err, "held by another program"), 1u) << second.err;
}

TEST_F(DeviceLine, AModuleWithoutTheWorkersBusRunsAndSaysSoOnce)
{
    if (std::filesystem::exists("/dev/i2c-3")) {
        GTEST_SKIP() << "this machine has the bus";
    }
    const std::string said = "i2c:/dev/i2c-3: the device is not there; waits for it";
    const ProgramResult result = runModule("native", said);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(count(result.err, said), 1u) << result.err;
}

TEST_F(DeviceLine, AModuleOnAnotherBusIsOneUrlAway)
{
    const std::string said = "i2c:/dev/null: the device is no I2C bus";
    const ProgramResult result = runModule("i2c:/dev/null", said);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(count(result.err, said), 1u) << result.err;
    EXPECT_EQ(count(result.err, "/dev/i2c-3"), 0u) << result.err;
}

TEST_F(DeviceLine, AHostHasNoBusOfItsOwn)
{
    EXPECT_EQ(host({"--link", "i2c:/dev/i2c-1", "get", "STA_Mute"}).status, 2);
}
