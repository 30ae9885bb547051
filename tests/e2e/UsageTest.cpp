#include <gtest/gtest.h>

#include "support/ModuleFixture.h"
#include "support/Texts.h"

namespace
{
/// Usage errors are found before the link is touched: there is no module here.
class Usage : public RuntimeDirectory
{
protected:
    /// Standard error of a command that must end with wrong usage.
    static std::string errorOf(const Program::Arguments& arguments)
    {
        const ProgramResult result = Program::run(arguments);
        EXPECT_EQ(result.status, 2) << result.err;
        EXPECT_EQ(result.out, "");
        EXPECT_FALSE(result.err.empty());
        return result.err;
    }
};
} // namespace

TEST_F(Usage, HelpGoesToStandardOutput)
{
    for (const Program::Arguments& arguments : std::vector<Program::Arguments>{
             {"--help"},
             {"host", "--help"},
             {"host", "get", "--help"},
             {"host", "set", "--help"},
             {"host", "send", "--help"},
             {"module", "--help"},
             {"node", "--help"},
             {"states", "--help"},
             {"decode", "--help"},
         }) {
        const ProgramResult result = Program::run(arguments);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_TRUE(contains(result.out, "Usage: hostlink")) << result.out;
        EXPECT_TRUE(contains(result.out, "Example")) << result.out;
    }
}

TEST_F(Usage, HelpNamesEverySubcommandWithAnExample)
{
    const std::string help = Program::run({"--help"}).out;
    for (const char* example :
         {"hostlink module", "hostlink host get", "hostlink node", "hostlink states", "hostlink decode"}) {
        EXPECT_TRUE(contains(help, example)) << example;
    }
}

TEST_F(Usage, VersionIsPrinted)
{
    const ProgramResult result = Program::run({"--version"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out.rfind("hostlink ", 0), 0u) << result.out;
}

TEST_F(Usage, MissingSubcommandIsAnsweredWithHelp)
{
    EXPECT_TRUE(contains(errorOf({}), "Usage: hostlink"));
    EXPECT_TRUE(contains(errorOf({"host"}), "Usage: hostlink host"));
}

TEST_F(Usage, MistypedSubcommandIsAnsweredWithASimilarOne)
{
    EXPECT_TRUE(contains(errorOf({"hots", "get", "STA_Mute"}), "no command 'hots'; did you mean host?"));
    EXPECT_TRUE(contains(errorOf({"host", "gett", "STA_Mute"}), "no command 'gett'; did you mean get"));
    EXPECT_TRUE(contains(errorOf({"host", "zebra"}), "no command 'zebra'"));
}

TEST_F(Usage, UnknownOptionIsNamed)
{
    EXPECT_TRUE(contains(errorOf({"host", "--bogus", "get", "STA_Mute"}), "--bogus"));
    EXPECT_TRUE(contains(errorOf({"host", "get", "STA_Mute", "--bogus"}), "--bogus"));
}

TEST_F(Usage, MissingArgumentsAreNamed)
{
    EXPECT_TRUE(contains(errorOf({"host", "get"}), "STATE"));
    EXPECT_TRUE(contains(errorOf({"host", "set"}), "STATE=VALUE"));
    EXPECT_TRUE(contains(errorOf({"host", "send"}), "HEX"));
}

TEST_F(Usage, MistypedStateIsAnsweredWithSimilarOnes)
{
    EXPECT_TRUE(contains(errorOf({"host", "get", "STA_Mut"}), "STA_Mute"));
    EXPECT_TRUE(contains(errorOf({"host", "set", "Mutee=1"}), "STA_Mute"));
}

TEST_F(Usage, ValueThatDoesNotFitItsTypeIsWrong)
{
    EXPECT_TRUE(contains(errorOf({"host", "set", "STA_Mute=300"}), "300"));
    EXPECT_TRUE(contains(errorOf({"host", "set", "STA_IpAddress=x"}), "STA_IpAddress"));
    errorOf({"host", "set", "STA_Mute"});
    errorOf({"host", "set", "STA_Mute="});
}

TEST_F(Usage, PlainValueNeedsAWriteType)
{
    EXPECT_TRUE(contains(errorOf({"host", "set", "STA_PlayState=1"}), "STA_PlayState"));
    EXPECT_TRUE(contains(errorOf({"host", "set", "0x7777=1"}), "0x7777"));
}

TEST_F(Usage, OnlyPairsOfHexadecimalDigitsAreSent)
{
    for (const char* text : {"004", "0x0042", "00 42", "00zz", "-1", "+1+1"}) {
        errorOf({"host", "send", text});
    }
    errorOf({"host", "send", "0042", "0043"});
}

TEST_F(Usage, TimeOutIsANumberOfMilliseconds)
{
    for (const char* text : {"0", "-1", "x", "1.5", "99999999999", ""}) {
        errorOf({"host", "--timeout", text, "get", "STA_Mute"});
    }
}

TEST_F(Usage, LinkIsOneOfTheKnownForms)
{
    EXPECT_TRUE(
        contains(errorOf({"host", "--link", "foo", "get", "7"}), "unix:PATH, tcp:HOST:PORT or emulated"));
    EXPECT_TRUE(contains(errorOf({"host", "--link", "native", "get", "7"}), "native"));
    EXPECT_TRUE(
        contains(errorOf({"host", "--link", "unix:" + std::string(200, 'x'), "get", "7"}), "200 bytes"));
}
