#include <gtest/gtest.h>
#include <signal.h>

#include <unistd.h>

#include <random>
#include <sstream>

#include "support/ModuleFixture.h"
#include "support/Texts.h"

namespace
{
std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// The text of a field of a JSON object in one line; empty when it is no text.
std::string textField(const std::string& json, const std::string& name)
{
    const std::string begin = "\"" + name + "\":\"";
    const std::size_t at = json.find(begin);
    if (at == std::string::npos) {
        return {};
    }
    const std::size_t from = at + begin.size();
    return json.substr(from, json.find('"', from) - from);
}

std::vector<std::string> statesOwnedBy(const std::string& owner)
{
    std::vector<std::string> names;
    for (const std::string& line : linesOf(Program::run({"states", "--json"}).out)) {
        if (textField(line, "owner") == owner) {
            names.push_back(textField(line, "name"));
        }
    }
    return names;
}

std::string hexDigits(const std::vector<std::uint8_t>& bytes)
{
    std::ostringstream text;
    text << std::hex;
    for (const int byte : bytes) {
        text << (byte < 16 ? "0" : "") << byte;
    }
    return text.str();
}
} // namespace

class HostCommand : public ModuleFixture
{
};

class HostCommandAlone : public RuntimeDirectory
{
};

TEST_F(HostCommand, SendToAModuleThatGoesAwayIsALostLink)
{
    Program send({"host", "--timeout", "1500", "send", "00020007"});
    ASSERT_FALSE(send.waitForLine("8002").empty());
    m_module->signal(SIGKILL);
    EXPECT_EQ(send.wait().status, 3);
}

TEST_F(HostCommand, AnAnswerTooLongForTheLinkIsSaidByTheModule)
{
    const std::string text(65535, 'a');
    ASSERT_EQ(Program::run({"host", "set", "DeviceName=str:" + text}).status, 0);
    ASSERT_EQ(Program::run({"host", "set", "HostName=str:" + text}).status, 0);
    EXPECT_EQ(Program::run({"host", "--timeout", "300", "get", "DeviceName", "HostName"}).status, 3);
    EXPECT_TRUE(
        contains(stopModule().err, "MSG_GetStateResponse of 131082 bytes is longer than the link carries"));
}

TEST_F(HostCommand, VolumeIsTakenWithinTheLimitsOfItsNode)
{
    const ProgramResult beyond = host({"set", "STA_Volume=101"});
    EXPECT_EQ(beyond.out, "STA_Volume\tu8\t0\n");
    EXPECT_EQ(beyond.status, 1);
    const ProgramResult within = host({"set", "STA_Volume=30"});
    EXPECT_EQ(within.out, "STA_Volume\tu8\t1\n");
    EXPECT_EQ(within.status, 0);
    EXPECT_EQ(Program::run({"node", "get", "VornPlayerVolumePath"}).out, "30\n");
}

TEST_F(HostCommand, GetPrintsALineForEachStateInOrder)
{
    const ProgramResult result = host({"get", "STA_Mute", "0x7777", "STA_SystemVersion"});
    EXPECT_EQ(result.status, 0) << result.err;
    const auto lines = linesOf(result.out);
    ASSERT_EQ(lines.size(), 3u) << result.out;
    EXPECT_TRUE(lines[0] == "STA_Mute\tu8\t0" || lines[0] == "STA_Mute\tu8\t1") << lines[0];
    EXPECT_EQ(lines[1], "0x7777\tnil\t");
    EXPECT_EQ(lines[2].rfind("STA_SystemVersion\tstr\t", 0), 0u) << lines[2];
}

TEST_F(HostCommand, StatesMayBeNamedInEveryWay)
{
    const ProgramResult result = host({"get", "Mute", "7", "0x7", "STA_Mute"});
    EXPECT_EQ(result.status, 0);
    const auto lines = linesOf(result.out);
    ASSERT_EQ(lines.size(), 4u);
    for (const std::string& line : lines) {
        EXPECT_EQ(line, lines[0]);
    }
}

TEST_F(HostCommand, JsonIsAnObjectALine)
{
    host({"set", "STA_Mute=1"});
    const ProgramResult result = host({"--json", "get", "STA_Mute", "0x7777"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "{\"name\":\"STA_Mute\",\"state\":7,\"type\":\"u8\",\"value\":1}\n"
                          "{\"name\":\"0x7777\",\"state\":30583,\"type\":\"nil\",\"value\":null}\n");
    EXPECT_EQ(host({"get", "STA_Mute", "0x7777", "--json"}).out, result.out);
}

TEST_F(HostCommand, EveryGenericStateIsAnsweredOnceInOrder)
{
    const auto names = statesOwnedBy("ValueItemProxy");
    ASSERT_GE(names.size(), 60u);
    Program::Arguments arguments{"get"};
    arguments.insert(arguments.end(), names.begin(), names.end());
    const ProgramResult result = host(arguments);
    EXPECT_EQ(result.status, 0) << result.err;
    std::vector<std::string> answered;
    for (const std::string& line : linesOf(result.out)) {
        answered.push_back(line.substr(0, line.find('\t')));
        EXPECT_FALSE(contains(line, "\tnone\t")) << line;
    }
    EXPECT_EQ(answered, names);
}

TEST_F(HostCommand, HundredsOfStatesFitOneGet)
{
    Program::Arguments arguments{"get"};
    for (int i = 0; i < 900; ++i) {
        arguments.push_back(std::to_string(i));
    }
    const ProgramResult result = host(arguments);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(linesOf(result.out).size(), 900u);
}

TEST_F(HostCommand, SetReachesTheNode)
{
    host({"set", "STA_Mute=0"});
    EXPECT_EQ(Program::run({"node", "get", "VornPlayerMutePath"}).out, "false\n");
    const ProgramResult result = host({"set", "STA_Mute=u8:7"});
    EXPECT_EQ(result.out, "STA_Mute\tu8\t1\n");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(Program::run({"node", "get", "VornPlayerMutePath"}).out, "true\n");
    EXPECT_EQ(host({"get", "STA_Mute"}).out, "STA_Mute\tu8\t1\n");
}

TEST_F(HostCommand, SetOfAStateThatTheModuleDoesNotKnowIsRefused)
{
    const ProgramResult result = host({"set", "STA_Mute=1", "0x7777=u8:1"});
    EXPECT_EQ(result.out, "STA_Mute\tu8\t1\n0x7777\tnil\t\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(HostCommand, SetInAnotherTypeIsRefused)
{
    const ProgramResult result = host({"set", "STA_Mute=str:yes"});
    EXPECT_EQ(linesOf(result.out).size(), 1u) << result.out;
    EXPECT_NE(result.out, "STA_Mute\tu8\t1\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(HostCommand, UnknownRequestBringsAnErrorResponse)
{
    const ProgramResult result = host({"--timeout", "300", "send", "0042"});
    EXPECT_EQ(result.out, "80000042c0\n");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(host({"--timeout", "300", "--json", "send", "0042"}).out, "{\"message\":\"80000042c0\"}\n");
}

TEST_F(HostCommand, MessagesThatAreNotAnsweredBringNothing)
{
    for (const char* message : {"", "80", "8042", "0000ff"}) {
        const ProgramResult result = host({"--timeout", "300", "send", message});
        EXPECT_EQ(result.out, "") << message;
        EXPECT_EQ(result.status, 0) << message << ": " << result.err;
    }
}

TEST_F(HostCommand, EveryMessageThatComesBackIsPrinted)
{
    host({"set", "STA_Mute=1"});
    EXPECT_EQ(host({"--timeout", "300", "send", "00030007"}).out, "80030007\n00040007cc01\n");
    EXPECT_EQ(host({"--timeout", "300", "send", "00020007"}).out, "80020007cc01\n");
    EXPECT_EQ(host({"--timeout", "300", "send", "0002"}).out, "8002\n");
    EXPECT_EQ(host({"--timeout", "300", "send", "0004F004CC01"}).out, "0003f003\n")
        << "the module renews its subscription, which the host answers";
}

TEST_F(HostCommand, TheFirstHostIsNotDisturbedByTheModulesAnnouncement)
{
    EXPECT_EQ(host({"--timeout", "300", "send", "0002"}).out, "8002\n");
}

TEST_F(HostCommand, TheLinkEndsWhenTheModuleGoesDown)
{
    EXPECT_EQ(host({"get", "0x7777"}).status, 0);
    Program listening({"host", "--timeout", "60000", "send", "00020007"});
    ASSERT_NE(listening.waitForLine("80020007"), "");
    const ProgramResult down =
        Program::run({"node", "set", "VornPowerManagerTargetPath", R"({"powerTarget": {"target": 4}})"});
    EXPECT_EQ(down.status, 0) << down.err;
    EXPECT_NE(listening.waitForLine("0005f003"), "") << "the module unsubscribes";
    const ProgramResult result = listening.wait();
    EXPECT_EQ(result.status, 3);
    EXPECT_TRUE(contains(result.err, "session ended")) << result.err;
}

TEST_F(HostCommand, RandomMessagesBreakNothing)
{
    std::mt19937 random(20240229);
    for (int i = 0; i < 12; ++i) {
        std::vector<std::uint8_t> bytes(random() % 60);
        for (std::uint8_t& byte : bytes) {
            byte = std::uint8_t(random());
        }
        if (bytes.size() > 1) {
            bytes[0] = 0;
            bytes[1] = std::uint8_t(random() % 10);
        }
        const std::string message = hexDigits(bytes);
        EXPECT_EQ(host({"--timeout", "50", "send", message}).status, 0) << message;
    }
    EXPECT_EQ(host({"get", "STA_Mute"}).status, 0);
}

TEST_F(HostCommand, FiftyCommandsInARowAllSucceed)
{
    for (int i = 0; i < 50; ++i) {
        const ProgramResult result = host({"get", "STA_Mute"});
        ASSERT_EQ(result.status, 0) << i << ": " << result.err;
        ASSERT_EQ(linesOf(result.out).size(), 1u);
    }
}

TEST_F(HostCommand, SecondHostIsTurnedAwayAtOnce)
{
    Program first({"host", "--timeout", "60000", "send", "00020007"});
    ASSERT_NE(first.waitForLine("80020007"), "");
    const auto start = std::chrono::steady_clock::now();
    const ProgramResult second = host({"--timeout", "60000", "get", "STA_Mute"});
    EXPECT_EQ(second.status, 3);
    EXPECT_EQ(second.out, "");
    EXPECT_TRUE(contains(second.err, "occupied by another host")) << second.err;
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30)) << "it does not wait";
    first.signal(SIGTERM);
    first.wait();
    EXPECT_EQ(host({"get", "STA_Mute"}).status, 0) << "the link is free again";
}

TEST_F(HostCommand, SignalsEndAHostThatListensAndItSaysSo)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        Program listening({"host", "--timeout", "60000", "send", "00020007"});
        ASSERT_NE(listening.waitForLine("80020007"), "");
        listening.signal(signal);
        const ProgramResult result = listening.wait();
        EXPECT_EQ(result.status, 3);
        EXPECT_TRUE(contains(result.err, "link.socket: interrupted\n")) << result.err;
    }
}

TEST_F(HostCommand, NextCommandWorksAtOnceAfterAKilledHost)
{
    for (int i = 0; i < 3; ++i) {
        Program killed({"host", "--timeout", "60000", "send", "00020007"});
        ASSERT_NE(killed.waitForLine("80020007"), "");
        killed.signal(SIGKILL);
        killed.wait();
        const ProgramResult next = host({"get", "STA_Mute"});
        EXPECT_EQ(next.status, 0) << next.err;
    }
}

TEST_F(HostCommand, NextCommandWorksAtOnceAfterAKilledModule)
{
    for (int i = 0; i < 2; ++i) {
        m_module->signal(SIGKILL);
        EXPECT_EQ(m_module->wait().status, -SIGKILL);
        startModule();
        const ProgramResult next = host({"get", "STA_Mute"});
        EXPECT_EQ(next.status, 0) << next.err;
    }
}

TEST_F(HostCommand, ModuleAndHostMayBothBeKilled)
{
    Program killed({"host", "--timeout", "60000", "send", "00020007"});
    ASSERT_NE(killed.waitForLine("80020007"), "");
    m_module->signal(SIGKILL);
    killed.signal(SIGKILL);
    m_module->wait();
    killed.wait();
    startModule();
    EXPECT_EQ(host({"get", "STA_Mute"}).status, 0);
}

TEST_F(HostCommand, ListeningHostSaysThatTheModuleRestarted)
{
    Program listening({"host", "--timeout", "60000", "send", "00020007"});
    ASSERT_NE(listening.waitForLine("80020007"), "");
    m_module->signal(SIGKILL);
    m_module->wait();
    startModule();
    const ProgramResult result = listening.wait();
    EXPECT_EQ(result.status, 3);
    EXPECT_TRUE(contains(result.err, "session ended")) << result.err;
}

TEST_F(HostCommandAlone, HostMayStartBeforeTheModule)
{
    Program waiting({"host", "--timeout", "60000", "get", "0x7777"});
    Program module({"module", "--state-dir", directory() + "/state"});
    ASSERT_NE(module.waitForLine("ready link="), "");
    const ProgramResult result = waiting.wait();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "0x7777\tnil\t\n");
}

TEST_F(HostCommandAlone, TcpLineWorksToo)
{
    const std::string link = "tcp:127.0.0.1:" + std::to_string(20000 + getpid() % 10000);
    Program module({"module", "--link", link, "--state-dir", directory() + "/state"});
    EXPECT_EQ(module.waitForLine("ready link=").rfind("ready link=" + link + " ", 0), 0u);
    EXPECT_EQ(host({"--link", link, "get", "0x7777"}).out, "0x7777\tnil\t\n");
}

TEST_F(HostCommandAlone, MissingModuleEndsAtTheTimeOut)
{
    const auto start = std::chrono::steady_clock::now();
    const ProgramResult result = host({"--timeout", "300", "get", "STA_Mute"});
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(contains(result.err, "no module was there within 300 ms")) << result.err;
    EXPECT_TRUE(contains(result.err, "unix:" + directory() + "/hostlink/link.socket")) << result.err;
}

TEST_F(HostCommandAlone, SignalsEndAHostThatWaitsForItsModule)
{
    Program waiting({"host", "--timeout", "60000", "get", "STA_Mute"});
    waiting.signal(SIGTERM);
    const int status = waiting.wait().status;
    EXPECT_TRUE(status == 3 || status == -SIGTERM)
        << status << ": a signal may come before the command began";
}
