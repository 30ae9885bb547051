#include <gtest/gtest.h>
#include <signal.h>
#include <time.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <random>

#include "support/ModuleFixture.h"
#include "support/Texts.h"

namespace
{
using Arguments = Program::Arguments;

constexpr const char* kVolume = "VornPlayerVolumePath";

/// A module on one state directory that is stopped and started again.
class ModuleServices : public ModuleFixture
{
protected:
    static ProgramResult node(Arguments arguments)
    {
        arguments.insert(arguments.begin(), "node");
        return Program::run(arguments);
    }
    static std::string get(const std::string& path) { return node({"get", path}).out; }
    static void set(const std::string& path, const std::string& value)
    {
        const ProgramResult end = node({"set", path, value});
        EXPECT_EQ(end.status, 0) << end.err;
    }
    static ProgramResult request(const std::string& target)
    {
        return node({"invoke", "VornPowerManagerTargetRequestPath", target});
    }

    void restart()
    {
        EXPECT_EQ(stopModule().status, 0);
        startModule();
    }

    std::string settingsFile() const { return directory() + "/state/settings.json"; }
    std::string settings() const { return contentOf(settingsFile()); }
};
} // namespace

TEST_F(ModuleServices, SettingsAreThereAfterARestart)
{
    set(kVolume, "30");
    set("VornDeviceNamePath", "Küche");
    set("VornDiracSlotsSettingsPath", R"({"slotsList":{"activeSlot":2}})");
    EXPECT_EQ(host({"set", "STA_Mute=1", "STA_HaloBrightness=0"}).status, 0);
    restart();
    EXPECT_EQ(get(kVolume), "30\n");
    EXPECT_EQ(get("VornDeviceNamePath"), "Küche\n");
    EXPECT_EQ(get("VornDiracActiveFilterPath"), "2\n") << "the worker restored the slot's";
    EXPECT_EQ(host({"get", "STA_Volume", "STA_Mute", "STA_HaloBrightness"}).out,
              "STA_Volume\tu8\t30\nSTA_Mute\tu8\t1\nSTA_HaloBrightness\tu8\t0\n");
}

TEST_F(ModuleServices, WhatIsNoSettingIsNotKept)
{
    set("VornPlayLogicPlayTimePath", "5");
    EXPECT_EQ(request(R"({"target": 2})").status, 0);
    restart();
    EXPECT_EQ(get("VornPlayLogicPlayTimePath"), "73500\n");
    EXPECT_EQ(get("VornPowerManagerTargetPath"),
              "{\"powerTarget\":{\"nextTarget\":1,\"reason\":0,\"target\":1}}\n");
}

/// A kill may take the changes of the last moments, never more: what is there is one of the values set.
TEST_F(ModuleServices, AKillLosesTheYoungestChangesAtMost)
{
    constexpr int kRounds = 8;
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::uniform_int_distribution<long> nanoseconds(0, 300'000'000); // beyond the delay of a save
    int kept = 25;
    for (int round = 0; round < kRounds; ++round) {
        const int changed = 30 + round;
        set(kVolume, std::to_string(changed));
        const timespec pause{0, nanoseconds(random)};
        nanosleep(&pause, nullptr);
        stopModule(SIGKILL);
        startModule();
        const int found = std::stoi(get(kVolume));
        EXPECT_TRUE(found == changed || found == kept) << found << " after " << kept << ", " << changed;
        kept = found;
    }
    EXPECT_FALSE(std::filesystem::exists(settingsFile() + ".bad"));
}

/// A kill amid a save leaves what it had written beside the settings.
TEST_F(ModuleServices, ATornSaveThatAKillHasLeftIsNoSetting)
{
    set(kVolume, "30");
    EXPECT_EQ(stopModule().status, 0);
    const std::string saved = settings();
    for (const std::string& torn :
         {std::string(), saved.substr(0, saved.size() / 2), std::string(5000, '\0')}) {
        std::ofstream(settingsFile() + ".new") << torn;
        startModule();
        EXPECT_EQ(get(kVolume), "30\n");
        stopModule(SIGKILL);
        EXPECT_EQ(settings(), saved);
    }
    startModule();
    set(kVolume, "31");
    EXPECT_EQ(stopModule().status, 0);
    EXPECT_FALSE(std::filesystem::exists(settingsFile() + ".new")) << "the next save takes its place";
    startModule();
    EXPECT_EQ(get(kVolume), "31\n");
}

TEST_F(ModuleServices, ADamagedFileIsKeptAsideAndTheModuleStarts)
{
    set(kVolume, "30");
    stopModule();
    std::ofstream(settingsFile()) << "{\"hostlinkSettings\":1,\"nod";
    startModule();
    EXPECT_EQ(get(kVolume), "25\n");
    const ProgramResult end = stopModule();
    EXPECT_EQ(end.status, 0);
    EXPECT_TRUE(contains(end.err, "ERROR Services.Settings: " + settingsFile() + " cannot be used (line 1 "))
        << end.err;
    EXPECT_TRUE(
        contains(end.err, "), kept as " + settingsFile() + ".bad; settings have their first values\n"))
        << end.err;
    EXPECT_TRUE(std::filesystem::exists(settingsFile() + ".bad"));
}

TEST_F(ModuleServices, AStateDirectoryThatIsGoneIsSaidAndCostsNoValue)
{
    std::filesystem::remove_all(directory() + "/state");
    set(kVolume, "30");
    set(kVolume, "31");
    EXPECT_EQ(get(kVolume), "31\n");
    const ProgramResult end = stopModule();
    EXPECT_EQ(end.status, 0);
    EXPECT_TRUE(contains(end.err, "ERROR Services.Settings: settings cannot be saved: " + settingsFile()
                                      + ".new: No such file or directory\n"))
        << end.err;
}

TEST_F(ModuleServices, TwoModulesDoNotShareAStateDirectory)
{
    const Arguments second{
        "module", "--state-dir",      directory() + "/state", "--link", "unix:" + directory() + "/l2",
        "--api",  directory() + "/a2"};
    const ProgramResult end = Program::run(second);
    EXPECT_EQ(end.status, 3);
    EXPECT_EQ(end.out, "");
    EXPECT_EQ(end.err,
              "hostlink module: the state directory " + directory() + "/state is in use by another module\n");
    EXPECT_EQ(get(kVolume), "25\n");
    stopModule(SIGKILL);
    Program next(second);
    EXPECT_NE(next.waitForLine("ready link="), "") << "a killed module leaves it free";
}

TEST_F(ModuleServices, TheHostsFactoryResetClearsTheSettings)
{
    set(kVolume, "30");
    set("VornDeviceNamePath", "Kitchen");
    restart();
    Program watch({"node", "watch", kVolume});
    watch.waitForLine("30");
    EXPECT_EQ(host({"set", "STA_TarkoFactoryReset=1"}).out, "STA_TarkoFactoryReset\tu8\t1\n");
    watch.waitForLine("25");
    EXPECT_EQ(node({"invoke", "VornSystemManagerFactoryResetPath", "{}"}).status, 0) << "the first is done";
    EXPECT_EQ(settings(), "{\"hostlinkSettings\":1,\"nodes\":{}}\n");
    EXPECT_EQ(get("VornDeviceNamePath"), "Living Room\n");
    const ProgramResult end = stopModule();
    EXPECT_TRUE(contains(end.err, "WARN  Services.SystemManager: factory reset requested\n")) << end.err;
    EXPECT_TRUE(contains(end.err, "WARN  Services.SystemManager: factory reset done: all settings have their "
                                  "first values\n"))
        << end.err;
    startModule();
    EXPECT_EQ(get(kVolume), "25\n");
    EXPECT_EQ(get("VornDeviceNamePath"), "Living Room\n");
}

TEST_F(ModuleServices, TheVolumeKeepsToItsLimits)
{
    const ProgramResult end = node({"set", kVolume, "101"});
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(end.err, "hostlink node: /player/volume: takes 0 to 100, not 101\n");
    EXPECT_EQ(get(kVolume), "25\n");
}

TEST_F(ModuleServices, AVolumeStepReachesTheHostOnceAtALimitToo)
{
    set(kVolume, "98");
    Program listening({"host", "--timeout", "60000", "send", "00030009"});
    listening.waitForLine("00040009cc62");
    const auto step = [](const std::string& steps) {
        return node({"invoke", "VornPlayerVolumeStepPath", "{\"i32_\":" + steps + "}"}).out;
    };
    EXPECT_EQ(step("3"), "{\"i32_\":100}\n");
    EXPECT_EQ(step("3"), "{\"i32_\":100}\n");
    EXPECT_EQ(step("-1"), "{\"i32_\":99}\n");
    listening.waitForLine("00040009cc63");
    listening.signal(SIGINT);
    EXPECT_EQ(listening.wait().out, "80030009\n00040009cc62\n00040009cc64\n00040009cc64\n00040009cc63\n");
}

TEST_F(ModuleServices, EitherPowerTargetThatTakesTheModuleDownTakesTheLinkDown)
{
    for (const char* target : {R"({"target": 3})", R"({"target": 4})"}) {
        Program listening({"host", "--timeout", "60000", "send", "00020007"});
        listening.waitForLine("80020007");
        EXPECT_EQ(request(target).status, 0);
        const ProgramResult end = listening.wait();
        EXPECT_EQ(end.status, 3) << end.err;
        EXPECT_EQ(end.out, "80020007cc00\n0005f003\n") << "the unsubscribe comes before the end";
        EXPECT_EQ(host({"--timeout", "300", "get", "STA_Mute"}).status, 3) << "nothing starts it again";
        EXPECT_EQ(get("VornPlayerMutePath"), "false\n") << "the module itself runs on";
        restart();
    }
}

TEST_F(ModuleServices, WritingThePowerTargetTakesTheLinkDownToo)
{
    Program listening({"host", "--timeout", "60000", "send", "00020007"});
    listening.waitForLine("80020007");
    set("VornPowerManagerTargetPath", R"({"powerTarget":{"target":3}})");
    const ProgramResult end = listening.wait();
    EXPECT_EQ(end.status, 3) << end.err;
    EXPECT_EQ(end.out, "80020007cc00\n0005f003\n");
}

TEST_F(ModuleServices, APowerTargetThatStaysTheSameLeavesTheLink)
{
    set(kVolume, "30");
    set("VornPowerManagerTargetPath", R"({"powerTarget":{"target":1,"nextTarget":3,"reason":3}})");
    EXPECT_EQ(request(R"({"target": 1})").status, 0);
    EXPECT_EQ(request(R"({"target": 2})").status, 0);
    EXPECT_EQ(request(R"({"target": 7})").status, 1);
    EXPECT_EQ(node({"set", "VornPowerManagerTargetPath", R"({"target": 3})"}).status, 1);

    // The module takes half a second to a factory reset: the tenth that the link would have had is over.
    Program watch({"node", "watch", kVolume});
    watch.waitForLine("30");
    EXPECT_EQ(host({"set", "STA_TarkoFactoryReset=1"}).status, 0);
    watch.waitForLine("25");
    EXPECT_EQ(host({"get", "STA_Mute"}).status, 0);
}

TEST_F(ModuleServices, AHostMakesTheModuleDiscoverableAndDials)
{
    Program watch({"host", "watch", "STA_BluetoothDiscoverable"});
    watch.waitForLine("STA_BluetoothDiscoverable\tu8\t0");
    // The link is for one host: the other side of the state does the rest.
    EXPECT_EQ(node({"invoke", "VornBluetoothRequestDiscoverablePath", R"({"name":"hostLink"})"}).status, 0);
    watch.waitForLine("STA_BluetoothDiscoverable\tu8\t1");
    watch.signal(SIGINT);
    watch.wait();

    EXPECT_EQ(host({"set", "STA_BluetoothDiscoverable=0"}).status, 0);
    EXPECT_EQ(host({"get", "STA_BluetoothDiscoverable"}).out, "STA_BluetoothDiscoverable\tu8\t0\n");
    EXPECT_EQ(host({"set", "STA_BluetoothDiscoverable=1"}).status, 0);
    EXPECT_EQ(get("VornBluetoothStatePath"),
              R"({"bluetoothState":{"connected":false,"discoverable":true,"pairable":true}})"
              "\n");
    EXPECT_EQ(host({"set", "STA_BluetoothOutgoingCall=+495551234"}).status, 0) << "the outcome is not told";
    EXPECT_EQ(node({"invoke", "VornBluetoothDialCallPath", R"({"string_":"+495551234"})"}).err,
              "hostlink node: /bluetooth/dialCall: no device is connected\n");
}

TEST_F(ModuleServices, TheNetworkOfTheMachineIsShownUntilAnotherIsWritten)
{
    EXPECT_NE(get("VornNetworkInfoPath").find(R"("wired":{"cableConnected":)"), std::string::npos);
    set("VornNetworkInfoPath", R"({"networkInfo":{"state":1,"wireless":{"state":1}}})");
    const Arguments states{"get", "STA_NetworkState", "STA_NetworkConnectionType"};
    EXPECT_EQ(host(states).out, "STA_NetworkState\tu8\t1\nSTA_NetworkConnectionType\tu8\t2\n");
    set("VornNetworkInfoPath", R"({"networkInfo":{"state":0,"softAp":{"state":1}}})");
    EXPECT_EQ(host(states).out, "STA_NetworkState\tu8\t3\nSTA_NetworkConnectionType\tu8\t3\n");
}
