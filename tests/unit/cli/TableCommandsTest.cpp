#include <CLI/CLI.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>

#include "cli/Commands.h"
#include "support/Texts.h"
#include "vocabulary/Proxies.h"

namespace
{

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

/// Runs a command line in this process with `input` on standard input.
Outcome run(std::vector<std::string> arguments, const std::string& input = {})
{
    int status = -1;
    CLI::App app;
    addStatesCommand(app, &status);
    addDecodeCommand(app, &status);
    std::istringstream in(input);
    std::ostringstream out;
    std::ostringstream err;
    std::streambuf* const streams[] = {std::cin.rdbuf(in.rdbuf()), std::cout.rdbuf(out.rdbuf()),
                                       std::cerr.rdbuf(err.rdbuf())};
    try {
        std::reverse(arguments.begin(), arguments.end());
        app.parse(arguments);
    } catch (const CLI::ParseError&) {
        status = WrongUsage;
    }
    std::cin.rdbuf(streams[0]);
    std::cout.rdbuf(streams[1]);
    std::cerr.rdbuf(streams[2]);
    return {status, out.str(), err.str()};
}

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string lineWith(const std::string& text, const std::string& part)
{
    for (const std::string& line : linesOf(text)) {
        if (line.find(part) != std::string::npos) {
            return line;
        }
    }
    return {};
}

} // namespace

TEST(StatesCommand, ListsEveryStateInOrder)
{
    const Outcome outcome = run({"states"});
    const std::vector<std::string> lines = linesOf(outcome.out);
    EXPECT_EQ(outcome.status, Done);
    ASSERT_EQ(lines.size(), kStates.size() + 1);
    EXPECT_EQ(lines[0].substr(0, 11), "ID     NAME");
    for (std::size_t i = 0; i < kStates.size(); ++i) {
        EXPECT_NE(lines[i + 1].find(" " + std::string(kStates[i].name) + " "), std::string::npos)
            << lines[i + 1];
    }
}

TEST(StatesCommand, PrintsJsonObjectsWithEveryKey)
{
    const Outcome outcome = run({"states", "--json"});
    EXPECT_EQ(outcome.status, Done);
    EXPECT_EQ(linesOf(outcome.out).size(), kStates.size());
    EXPECT_EQ(lineWith(outcome.out, "STA_SystemVersion"),
              R"({"id":1,"name":"STA_SystemVersion","read":"str","write":"str","owner":"ValueItemProxy",)"
              R"("path":"/system/version","kind":"Bin16VornString"})");
    EXPECT_EQ(
        lineWith(outcome.out, "STA_HostUpgradeStatusU32"),
        R"({"id":62221,"name":"STA_HostUpgradeStatusU32","read":"u32","write":"u32","owner":"ValueItemProxy",)"
        R"("path":"/kestalPrime/hostUpgradeStatus","kind":"Uint32VornI32"})");
}

TEST(StatesCommand, ShowsCommandsForTheHostWithTheirRequestNode)
{
    EXPECT_EQ(lineWith(run({"states", "--json"}).out, "STA_BtCommand"),
              R"({"id":40983,"name":"STA_BtCommand","read":"u8","write":null,"owner":"HostCommandProxy",)"
              R"("path":"/hostLink/kestalPrime/bt/command","kind":"Uint8VornI32"})");
}

TEST(StatesCommand, HasNoConversionWhereTheProxyHasItsOwn)
{
    EXPECT_EQ(lineWith(run({"states", "--json"}).out, "STA_Volume\""),
              R"({"id":9,"name":"STA_Volume","read":"u8","write":"u8","owner":"VolumeItemProxy",)"
              R"("path":"/player/volume","kind":null})");
}

TEST(StatesCommand, PutsThePlayTimeBelowThePlayerInstance)
{
    EXPECT_NE(
        lineWith(run({"states", "--json"}).out, "STA_PlayTime").find(R"("path":"/player/instance/playTime")"),
        std::string::npos);
}

TEST(StatesCommand, HasNullForWhatAStateLacks)
{
    const std::string out = run({"states", "--json"}).out;
    EXPECT_EQ(lineWith(out, "STA_HostMicMute"),
              R"({"id":61443,"name":"STA_HostMicMute","read":null,"write":"u8","owner":null,)"
              R"("path":"/hostLink/micMute","kind":"Uint8VornBool"})");
    EXPECT_EQ(
        lineWith(out, "STA_HostResubscribe"),
        R"({"id":61444,"name":"STA_HostResubscribe","read":null,"write":"u8","owner":null,"path":null,"kind":null})");
    EXPECT_EQ(
        lineWith(out, "STA_ModulePower"),
        R"({"id":61442,"name":"STA_ModulePower","read":null,"write":null,"owner":null,"path":null,"kind":null})");
}

TEST(StatesCommand, NamesAnOwnerForEachRegisteredProxy)
{
    std::size_t owned = 0;
    for (const std::string& line : linesOf(run({"states", "--json"}).out)) {
        owned += line.find("\"owner\":null") == std::string::npos ? 1 : 0;
    }
    const auto served = std::count_if(kStates.begin(), kStates.end(),
                                      [](const StateRow& row) { return findProxy(row.id) != nullptr; });
    EXPECT_EQ(owned, static_cast<std::size_t>(served));
}

TEST(StatesCommand, PrintsOneFormatAtATime)
{
    EXPECT_EQ(run({"states", "--json", "--markdown"}).status, WrongUsage);
}

TEST(StatesCommand, MakesTheCommittedPage)
{
    EXPECT_EQ(run({"states", "--markdown"}).out, contentOf(HOSTLINK_SOURCE_DIR "/docs/states.md"))
        << "to renew it: hostlink states --markdown > docs/states.md";
}

TEST(DecodeCommand, PrintsAMessageALine)
{
    const Outcome outcome = run({"decode"}, "00020009\n00 01 00 09 CC 41\n");
    EXPECT_EQ(outcome.out, "MSG_GetState STA_Volume\nMSG_SetState STA_Volume=u8:65\n");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, Done);
}

TEST(DecodeCommand, KeepsTimeAndDirection)
{
    const Outcome outcome = run({"decode"}, "> 00020009\n"
                                            "12.503 < 8002 0009cc41\n"
                                            "[10:30:01.250]\thost:\t0002 0009\n"
                                            "1763712000 rx 0002 0009\n"
                                            "2026-11-21T10:30:01Z 00020009\n"
                                            "-> 5s 00020009\n");
    EXPECT_EQ(outcome.out, "> MSG_GetState STA_Volume\n"
                           "12.503 < MSG_GetStateResponse STA_Volume=u8:65\n"
                           "[10:30:01.250] host: MSG_GetState STA_Volume\n"
                           "1763712000 rx MSG_GetState STA_Volume\n"
                           "2026-11-21T10:30:01Z MSG_GetState STA_Volume\n"
                           "-> 5s MSG_GetState STA_Volume\n");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, Done);
}

TEST(DecodeCommand, TakesPlainNumbersInFrontForBytes)
{
    EXPECT_EQ(run({"decode"}, "0002 0009\n").out, "MSG_GetState STA_Volume\n");
}

TEST(DecodeCommand, PassesOverBlankLinesAndComments)
{
    const Outcome outcome = run({"decode"}, "\n  \t\n# recorded at noon\n00020009\r\n");
    EXPECT_EQ(outcome.out, "MSG_GetState STA_Volume\n");
    EXPECT_EQ(outcome.status, Done);
}

TEST(DecodeCommand, NamesBadLinesAndGoesOn)
{
    const Outcome outcome = run({"decode"}, "00020009\n0002000\n\n> 0002 zz09 0007\nin\n00020007");
    EXPECT_EQ(outcome.out, "MSG_GetState STA_Volume\nMSG_GetState STA_Mute\n");
    EXPECT_EQ(outcome.err, "hostlink decode: line 2: '0002000' is no pairs of hexadecimal digits\n"
                           "hostlink decode: line 4: 'zz09' is no pairs of hexadecimal digits\n"
                           "hostlink decode: line 5: there is no message\n");
    EXPECT_EQ(outcome.status, Refused);
}

TEST(DecodeCommand, ReadsTheMessagesOfATraceBack)
{
    const Outcome outcome =
        run({"decode"}, "10:30:01.250001 - line up\n"
                        "10:30:01.250100 > frame hello instance=01 knows=nobody received=0 credit=0+0\n"
                        "10:30:01.250200 - session begins\n"
                        "10:30:01.260001 > message MSG_GetState STA_Volume | 00020009\n"
                        "10:30:01.260002 > frame data seq=0 ack=0 state whole MSG_GetState STA_Volume\n"
                        "10:30:01.270000 < message MSG_StateChanged STA_DeviceName=str:\"a | b\" | "
                        "00020009\n"
                        "10:30:01.280000 > message refused MSG_GetState STA_Volume | 00020009\n"
                        "10:30:01.290000 < message cut of\n");
    EXPECT_EQ(outcome.out, "10:30:01.260001 > MSG_GetState STA_Volume\n"
                           "10:30:01.270000 < MSG_GetState STA_Volume\n"
                           "10:30:01.280000 > MSG_GetState STA_Volume\n");
    EXPECT_EQ(outcome.err, "hostlink decode: line 8: there is no message\n");
    EXPECT_EQ(outcome.status, Refused);
}

TEST(DecodeCommand, PassesOverWhatElseStandsInARecordedStandardError)
{
    const Outcome outcome = run({"decode"}, "ERROR HostLink: Uinput not available\n"
                                            "10:30:01.260001 > message MSG_GetState | 0002\n"
                                            "hostlink: the module ended the session\n"
                                            "stats link=unix:/tmp/l sessions=1\n"
                                            "DEBUGGED 0002\n");
    EXPECT_EQ(outcome.out, "10:30:01.260001 > MSG_GetState\n");
    EXPECT_EQ(outcome.err, "hostlink decode: line 5: 'DEBUGGED' is no pairs of hexadecimal digits\n");
    EXPECT_EQ(outcome.status, Refused);
}

TEST(DecodeCommand, NeverTakesBrokenBytesForATime)
{
    EXPECT_EQ(run({"decode"}, "0002 00:09 0007\n").status, Refused);
    EXPECT_EQ(run({"decode"}, "00zz 0002 0007\n").status, Refused);
}

TEST(DecodeCommand, PrintsBrokenMessagesAsFarAsTheyGo)
{
    EXPECT_EQ(run({"decode"}, "0001 0009 CC 41 000C DA\n00\n").out,
              "MSG_SetState STA_Volume=u8:65 + 3 unread bytes\nno message, 1 bytes\n");
}

TEST(DecodeCommand, ReadsAFile)
{
    const std::string file = testing::TempDir() + "decode-command-test.txt";
    std::ofstream(file) << "00020009\n";
    EXPECT_EQ(run({"decode", file}).out, "MSG_GetState STA_Volume\n");
    std::remove(file.c_str());
}

TEST(DecodeCommand, SaysWhenAFileCannotBeRead)
{
    const Outcome missing = run({"decode", "/nonexistent/trace"});
    EXPECT_EQ(missing.status, WrongUsage);
    EXPECT_EQ(missing.err, "hostlink decode: cannot read /nonexistent/trace: No such file or directory\n");
    const Outcome directory = run({"decode", testing::TempDir()});
    EXPECT_EQ(directory.status, WrongUsage);
    EXPECT_NE(directory.err.find("Is a directory"), std::string::npos) << directory.err;
}
