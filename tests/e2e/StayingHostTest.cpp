#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>

#include "support/ModuleFixture.h"
#include "support/Texts.h"

namespace
{
void setNode(const std::string& node, const std::string& value)
{
    EXPECT_EQ(Program::run({"node", "set", node, value}).status, 0);
}

std::string nodeValue(const std::string& node)
{
    return Program::run({"node", "get", node}).out;
}

const std::string kVolumeNode = "VornPlayerVolumePath";
const std::string kHostMicMute = "VornHostlinkMicMutePath";
} // namespace

class Watch : public ModuleFixture
{
protected:
    /// Whether the module reports the volume to a host, which an attended one sees.
    bool isVolumeReported(const std::string& next)
    {
        Program attend({"host", "attend"}, Program::Input::Typed);
        attend.nextLineWith("session with the module begins");
        setNode(kVolumeNode, next);
        attend.type("quit\n");
        return contains(attend.wait().out, "MSG_StateChanged STA_Volume=u8:" + next);
    }
};

TEST_F(Watch, PrintsTheValueAndThenAChange)
{
    Program watch({"host", "watch", "STA_Volume", "--count", "1"});
    EXPECT_EQ(watch.nextLineWith("STA_Volume"), "STA_Volume\tu8\t25");
    setNode(kVolumeNode, "31");
    const ProgramResult result = watch.wait();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "STA_Volume\tu8\t25\nSTA_Volume\tu8\t31\n");
}

TEST_F(Watch, CurrentValuesAreNotCounted)
{
    Program watch({"host", "watch", "STA_Volume", "STA_Mute", "7", "--count", "2", "--json"});
    EXPECT_TRUE(contains(watch.nextLineWith("STA_Volume"), "\"value\":25"));
    EXPECT_TRUE(contains(watch.nextLineWith("STA_Mute"), "\"value\":0"));
    EXPECT_TRUE(contains(watch.nextLineWith("STA_Mute"), "\"value\":0"));
    setNode(kVolumeNode, "31");
    EXPECT_TRUE(contains(watch.nextLineWith("STA_Volume"), "\"value\":31"));
    setNode("VornPlayerMutePath", "true");
    const ProgramResult result = watch.wait();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 5);
}

TEST_F(Watch, CountThatIsNotReachedInTimeEndsWithThree)
{
    const ProgramResult result = host({"watch", "STA_Volume", "--count", "1", "--for", "0.05"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "STA_Volume\tu8\t25\n");
}

TEST_F(Watch, PeriodWithoutCountEndsWithZero)
{
    const ProgramResult result = host({"watch", "STA_Volume", "--for", "0.05"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "STA_Volume\tu8\t25\n");
}

TEST_F(Watch, StateWithoutAnOwnerHasNoValue)
{
    const ProgramResult result = host({"watch", "0x7777", "--for", "0.05"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
}

TEST_F(Watch, UnsubscribesAtTheEndOfItsPeriod)
{
    host({"watch", "STA_Volume", "--for", "0.05"});
    EXPECT_FALSE(isVolumeReported("31"));
}

TEST_F(Watch, UnsubscribesWhenItHasCounted)
{
    Program watch({"host", "watch", "STA_Volume", "--count", "1"});
    watch.nextLineWith("STA_Volume");
    setNode(kVolumeNode, "30");
    EXPECT_EQ(watch.wait().status, 0);
    EXPECT_FALSE(isVolumeReported("31"));
}

TEST_F(Watch, UnsubscribesWhenASignalEndsIt)
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        Program watch({"host", "watch", "STA_Volume"});
        watch.nextLineWith("STA_Volume");
        watch.signal(number);
        EXPECT_EQ(watch.wait().status, 0);
        EXPECT_FALSE(isVolumeReported(std::to_string(30 + number)));
    }
}

TEST_F(Watch, OutlivesAHangupThatIsIgnored)
{
    Program watch("/usr/bin/nohup", {HOSTLINK_PROGRAM, "host", "watch", "STA_Volume", "--count", "1"},
                  Program::Input::Empty);
    watch.nextLineWith("STA_Volume");
    watch.signal(SIGHUP);
    setNode(kVolumeNode, "30");
    EXPECT_EQ(watch.wait().status, 0);
}

TEST_F(Watch, PeriodOfZeroStillPrintsTheCurrentValues)
{
    const ProgramResult result = Program::run({"host", "watch", "STA_Volume", "--for", "0"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "STA_Volume\tu8\t25\n");
}

TEST_F(Watch, PeriodIsANumberOfSeconds)
{
    for (const char* period : {"nan", "inf", "-1", "1000001", "x", ""}) {
        EXPECT_EQ(Program::run({"host", "watch", "STA_Volume", "--for", period}).status, 2) << period;
    }
}

TEST_F(Watch, SignalBeforeTheCountEndsWithThree)
{
    Program watch({"host", "watch", "STA_Volume", "--count", "1"});
    watch.nextLineWith("STA_Volume");
    watch.signal(SIGINT);
    EXPECT_EQ(watch.wait().status, 3);
}

TEST_F(Watch, UnsubscribesWhenNobodyReadsAnyMore)
{
    Program watch({"host", "watch", "STA_Volume"});
    watch.nextLineWith("STA_Volume");
    watch.stopReading();
    setNode(kVolumeNode, "30");
    EXPECT_EQ(watch.wait().status, -SIGPIPE);
    EXPECT_FALSE(isVolumeReported("31"));
}

TEST_F(Watch, SubscribesAgainWhenTheModuleRestarts)
{
    Program watch({"host", "watch", "STA_Volume", "--count", "1"});
    watch.nextLineWith("STA_Volume");
    m_module->signal(SIGKILL);
    m_module->wait();
    startModule();
    EXPECT_EQ(watch.nextLineWith("STA_Volume"), "STA_Volume\tu8\t25") << "current values are printed again";
    setNode(kVolumeNode, "31");
    EXPECT_EQ(watch.wait().out, "STA_Volume\tu8\t25\nSTA_Volume\tu8\t25\nSTA_Volume\tu8\t31\n");
}

TEST_F(Watch, SaysWhenTheModuleEndsAndWaits)
{
    Program watch({"host", "watch", "STA_Volume"});
    watch.nextLineWith("STA_Volume");
    EXPECT_EQ(stopModule().status, 0);
    startModule();
    EXPECT_EQ(watch.nextLineWith("STA_Volume"), "STA_Volume\tu8\t25");
    watch.signal(SIGINT);
    EXPECT_TRUE(contains(watch.wait().err, "the module ended the session"));
}

TEST_F(Watch, WhatAKilledHostLeftSubscribedIsNotPrinted)
{
    Program killed({"host", "watch", "STA_Mute"});
    killed.nextLineWith("STA_Mute");
    killed.signal(SIGKILL);
    killed.wait();
    Program watch({"host", "watch", "STA_Volume", "--count", "1"});
    watch.nextLineWith("STA_Volume");
    setNode("VornPlayerMutePath", "true");
    setNode(kVolumeNode, "31");
    EXPECT_EQ(watch.wait().out, "STA_Volume\tu8\t25\nSTA_Volume\tu8\t31\n");
}

TEST_F(Watch, CommandOfTheModuleIsHandedOverOnce)
{
    Program watch({"host", "watch", "STA_BtCommand", "--count", "1"});
    EXPECT_EQ(watch.nextLineWith("STA_BtCommand"), "STA_BtCommand\tnil\t");
    EXPECT_EQ(
        Program::run({"node", "invoke", "VornHostLinkKestalPrimeBtCommandPath", R"({"i32_":3})"}).status, 0);
    const ProgramResult result = watch.wait();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "STA_BtCommand\tnil\t\nSTA_BtCommand\tu8\t3\n");
    EXPECT_EQ(host({"get", "STA_BtCommand"}).out, "STA_BtCommand\tnil\t\n");
}

class Push : public ModuleFixture
{
};

TEST_F(Push, ValueHasReachedTheNodeWhenTheCommandEnds)
{
    EXPECT_EQ(host({"push", "HostMicMute=u8:2", "HostFirmwareVersion=2.7"}).status, 0);
    EXPECT_EQ(nodeValue(kHostMicMute), "true\n");
    EXPECT_EQ(host({"push", "HostMicMute=0"}).status, 0);
    EXPECT_EQ(nodeValue(kHostMicMute), "false\n");
}

TEST_F(Push, NodeOfTheHostRefusesOtherWriters)
{
    EXPECT_EQ(host({"push", "HostMicMute=1"}).status, 0);
    EXPECT_EQ(Program::run({"node", "set", kHostMicMute, "false"}).status, 1);
    EXPECT_EQ(nodeValue(kHostMicMute), "true\n");
}

TEST_F(Push, StateThatTheModuleDoesNotTakeIsDropped)
{
    EXPECT_EQ(host({"push", "0x7777=u8:1"}).status, 0);
}

class Attend : public ModuleFixture
{
protected:
    static constexpr Program::Input kTyped = Program::Input::Typed;
};

TEST_F(Attend, ShowsTheStartUpMessagesInTheirOrderAndTheAnswers)
{
    Program attend({"host", "attend", "HostMicMute=1"});
    for (const char* line :
         {"host:   MSG_StateChanged STA_HostResubscribe=u8:1 STA_HostMicMute=u8:1",
          "module: MSG_StateChanged STA_SystemUp=u8:1", "module: MSG_Subscribe STA_HostMicMute",
          "host:   MSG_SubscribeResponse STA_HostMicMute", "host:   MSG_StateChanged STA_HostMicMute=u8:1",
          "module: MSG_SetState STA_ModulePower=u8:5", "host:   MSG_SetStateResponse STA_ModulePower=nil",
          "module: MSG_GetState", "host:   MSG_GetStateResponse", "module: MSG_Subscribe STA_HostMicMute"}) {
        EXPECT_NE(attend.nextLineWith(line), "");
    }
    attend.signal(SIGTERM);
    EXPECT_EQ(attend.wait().status, 0);
    EXPECT_EQ(nodeValue(kHostMicMute), "true\n");
}

TEST_F(Attend, OwnsWhatTheModuleSets)
{
    Program attend({"host", "attend", "ModulePower=u8:0"});
    attend.nextLineWith("module: MSG_SetState STA_ModulePower=u8:5");
    EXPECT_NE(attend.nextLineWith("host:   MSG_SetStateResponse STA_ModulePower=u8:1"), "");
}

TEST_F(Attend, TakesCommandsAndShowsTheirAnswers)
{
    Program attend({"host", "attend"}, kTyped);
    attend.type("get STA_Volume 0x7777\n");
    EXPECT_NE(attend.nextLineWith("host:   MSG_GetState STA_Volume 0x7777"), "");
    EXPECT_NE(attend.nextLineWith("module: MSG_GetStateResponse STA_Volume=u8:25 0x7777=nil"), "");
    attend.type("set STA_DeviceName=\"Blue room\" Volume=30\n");
    EXPECT_NE(attend.nextLineWith("STA_DeviceName=str:\"Blue room\" STA_Volume=u8:30"), "");
    attend.type("watch Volume\n");
    EXPECT_NE(attend.nextLineWith("module: MSG_StateChanged STA_Volume=u8:30"), "");
    setNode(kVolumeNode, "31");
    EXPECT_NE(attend.nextLineWith("module: MSG_StateChanged STA_Volume=u8:31"), "");
    attend.type("unwatch Volume\n");
    EXPECT_NE(attend.nextLineWith("module: MSG_UnsubscribeResponse STA_Volume"), "");
    attend.type("send 0042\n");
    EXPECT_NE(attend.nextLineWith("module: MSG_ErrorResponse 0x0042=nil"), "");
    attend.type("get STA_Mute\n");
    attend.type("quit\n");
    const ProgramResult result = attend.wait();
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(contains(result.out, "MSG_GetStateResponse STA_Mute=u8:0")) << result.out;
    EXPECT_EQ(result.err, "");
}

TEST_F(Attend, WhatIsPushedIsOwnedFromThenOn)
{
    Program attend({"host", "attend"}, kTyped);
    attend.type("push HostFirmwareVersion=2.8\n");
    attend.nextLineWith("host:   MSG_StateChanged STA_HostFirmwareVersion");
    m_module->signal(SIGTERM);
    attend.nextLineWith("-- the module ended the session");
    m_module->wait();
    startModule();
    EXPECT_NE(attend.nextLineWith("STA_HostResubscribe=u8:1 STA_HostFirmwareVersion=str:\"2.8\""), "");
    EXPECT_TRUE(
        contains(attend.nextLineWith("host:   MSG_GetStateResponse"), "STA_HostFirmwareVersion=str:\"2.8\""));
}

TEST_F(Attend, WrongLinesCostNothingElse)
{
    Program attend({"host", "attend"}, kTyped);
    attend.type("gte STA_Mute\n");
    attend.type("get STA_Mtue\n");
    attend.type("set STA_Volume=abc\n");
    attend.type("get\n");
    attend.type("\n");
    attend.type("# a remark\n");
    attend.type("send 123\n");
    attend.type("help\n");
    attend.type("quit\n");
    const ProgramResult result = attend.wait();
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(contains(result.err, "there is no command 'gte'; did you mean get?")) << result.err;
    EXPECT_TRUE(contains(result.err, "STA_Mute?")) << result.err;
    EXPECT_TRUE(contains(result.err, "abc")) << result.err;
    EXPECT_TRUE(contains(result.err, "STATE is required")) << result.err;
    EXPECT_TRUE(contains(result.err, "'123' is no pairs of hexadecimal digits")) << result.err;
    EXPECT_TRUE(contains(result.err, "unwatch")) << result.err;
    EXPECT_FALSE(contains(result.out, "remark"));
}

TEST_F(Attend, EndOfTheInputEndsNothing)
{
    Program attend({"host", "attend"}, kTyped);
    attend.type("get STA_Mute\n");
    attend.endInput();
    attend.nextLineWith("MSG_GetStateResponse STA_Mute");
    m_module->signal(SIGTERM);
    EXPECT_NE(attend.nextLineWith("-- the module ended the session"), "");
    m_module->wait();
    startModule();
    EXPECT_NE(attend.nextLineWith("-- a session with the module begins"), "");
    attend.signal(SIGINT);
    EXPECT_EQ(attend.wait().status, 0);
}

TEST_F(Attend, LastLineNeedsNoEnd)
{
    Program attend({"host", "attend"}, kTyped);
    attend.type("get STA_Mute\nquit");
    attend.endInput();
    EXPECT_EQ(attend.wait().status, 0);
}

TEST_F(Attend, ManyCommandsAtOnceDoNotFloodTheLink)
{
    constexpr int kCommands = 20000;
    Program attend({"host", "attend"}, kTyped);
    attend.nextLineWith("MSG_GetStateResponse");
    std::string lines;
    for (int i = 0; i < kCommands; ++i) {
        lines += "get STA_SystemVersion STA_DeviceName\n";
    }
    attend.type(lines + "quit\n");
    const ProgramResult result = attend.wait();
    EXPECT_EQ(result.status, 0);
    int replies = 0;
    for (std::size_t at = 0;
         (at = result.out.find("MSG_GetStateResponse STA_SystemVersion", at)) != result.out.npos; ++at) {
        ++replies;
    }
    EXPECT_EQ(replies, kCommands);
}

TEST_F(Attend, PrintsObjectsWhenAskedTo)
{
    Program attend({"host", "attend", "--json"}, kTyped);
    attend.type("get 7\n");
    const std::string reply = attend.nextLineWith("MSG_GetStateResponse STA_Mute");
    EXPECT_TRUE(contains(
        reply, R"("from":"module","message":"80020007cc00","text":"MSG_GetStateResponse STA_Mute=u8:0"})"))
        << reply;
}

TEST_F(Attend, SecondHostIsTurnedAway)
{
    Program attend({"host", "attend"});
    attend.nextLineWith("a session with the module begins");
    const ProgramResult second = host({"attend"});
    EXPECT_EQ(second.status, 3);
    EXPECT_TRUE(contains(second.err, "occupied")) << second.err;
}
