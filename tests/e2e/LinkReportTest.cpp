#include <gtest/gtest.h>
#include <signal.h>

#include <cctype>
#include <cstdio>

#include "host/HostSession.h"
#include "platform/hostlink/HostLinkCounters.h"
#include "platform/hostlink/HostLinkUInt16Message.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "support/ModuleFixture.h"
#include "support/Texts.h"
#include "vocabulary/States.h"

using namespace std::chrono_literals;

namespace
{
/// The number behind NAME= or "NAME": in a text.
long counterIn(const std::string& text, const std::string& name)
{
    for (const std::string& key : {name + '=', '"' + name + "\":"}) {
        for (std::size_t at = 0; (at = text.find(key, at)) != std::string::npos; at += key.size()) {
            if (at == 0 || std::isalnum(static_cast<unsigned char>(text[at - 1])) == 0) {
                return std::stol(text.substr(at + key.size()));
            }
        }
    }
    return -1;
}

/// The line that holds this part; empty when there is none.
std::string lineWith(const std::string& text, const std::string& part)
{
    const std::size_t at = text.find(part);
    if (at == std::string::npos) {
        return {};
    }
    const std::size_t begin = text.rfind('\n', at) + 1;
    return text.substr(begin, at + part.size() - begin);
}

/// Every counter is there.
void expectAllCounters(const std::string& text)
{
    for (const HostLinkCounters::Row& row : HostLinkCounters::kRows) {
        EXPECT_GE(counterIn(text, row.name), 0) << row.name << " in " << text;
    }
}

ByteArray getRequest(State state, int times)
{
    HostLinkUInt16Message message(MSG_GetState);
    for (int i = 0; i < times; ++i) {
        message.addValue(state);
    }
    return message.serialize();
}

ByteArray setRequest(State state, std::uint8_t value)
{
    HostLinkValueMessage message(MSG_SetState);
    message.addValueUint8(state, value);
    return message.serialize();
}
} // namespace

class LinkReport : public ModuleFixture
{
};

TEST_F(LinkReport, HostCommandsTellTheirCountersAtTheEnd)
{
    const ProgramResult result = host({"get", "STA_Volume", "--stats"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "STA_Volume\tu8\t25\n");
    EXPECT_TRUE(contains(result.err, "stats link=unix:" + directory() + "/hostlink/link.socket bytesSent="))
        << result.err;
    expectAllCounters(result.err);
    EXPECT_EQ(counterIn(result.err, "sessions"), 1);
    EXPECT_GT(counterIn(result.err, "messagesReceived"), 1);
    EXPECT_GT(counterIn(result.err, "roundTrip"), 0);
}

TEST_F(LinkReport, CountersAreAnObjectWhenAskedFor)
{
    const ProgramResult result = host({"get", "STA_Volume", "--stats", "--json"});
    EXPECT_TRUE(contains(result.err, "{\"link\":\"unix:" + directory()
                                         + "/hostlink/link.socket\",\"stats\":{\"bytesSent\":"))
        << result.err;
    expectAllCounters(result.err);
}

TEST_F(LinkReport, CountersAreToldAlsoWhenThereWasNoLink)
{
    const ProgramResult result =
        host({"get", "7", "--stats", "--link", "unix:/tmp/no/such", "--timeout", "10"});
    EXPECT_EQ(result.status, 3);
    EXPECT_TRUE(contains(result.err, "stats link=unix:/tmp/no/such bytesSent=0")) << result.err;
}

TEST_F(LinkReport, AttendedHostTellsThemWhenAsked)
{
    Program attend({"host", "attend"}, Program::Input::Typed);
    attend.nextLineWith("a session with the module begins");
    attend.type("stats\n");
    const std::string line = attend.nextLineWith(" -- stats bytesSent=");
    expectAllCounters(line);
    attend.type("quit\n");
    EXPECT_EQ(attend.wait().status, 0);
    Program json({"host", "attend", "--json"}, Program::Input::Typed);
    json.nextLineWith("a session with the module begins");
    json.type("stats\n");
    expectAllCounters(json.nextLineWith("\"stats\":{\"bytesSent\":"));
}

TEST_F(LinkReport, ModuleHasThemInAReadOnlyNode)
{
    Program attend({"host", "attend"}, Program::Input::Typed);
    attend.nextLineWith("a session with the module begins");
    attend.type("get STA_Volume\n");
    attend.nextLineWith("MSG_GetStateResponse STA_Volume");
    const ProgramResult first = Program::run({"node", "get", "VornHostLinkLinksPath"});
    EXPECT_EQ(first.status, 0) << first.err;
    EXPECT_TRUE(contains(first.out, "\"name\":\"unix:" + directory() + "/hostlink/link.socket\""))
        << first.out;
    expectAllCounters(first.out);
    EXPECT_EQ(counterIn(first.out, "sessions"), 1);

    attend.type("get STA_Volume\n");
    attend.nextLineWith("MSG_GetStateResponse STA_Volume");
    const ProgramResult second = Program::run({"node", "get", "/hostLink/links"});
    EXPECT_EQ(counterIn(second.out, "messagesReceived"), counterIn(first.out, "messagesReceived") + 1);

    const ProgramResult set = Program::run({"node", "set", "/hostLink/links", "{}"});
    EXPECT_EQ(set.status, 1);
    EXPECT_TRUE(contains(set.err, "read-only")) << set.err;
}

TEST_F(LinkReport, WatchersOfTheNodeAreToldWhileItChanges)
{
    Program watch({"node", "watch", "/hostLink/links"});
    watch.nextLineWith("\"links\"");
    EXPECT_EQ(host({"get", "STA_Volume"}).status, 0);
    EXPECT_EQ(counterIn(watch.nextLineWith("\"sessions\":1,"), "sessions"), 1);
    EXPECT_EQ(host({"get", "STA_Volume"}).status, 0);
    EXPECT_EQ(counterIn(watch.nextLineWith("\"sessions\":2,"), "sessions"), 2);
}

TEST_F(LinkReport, TraceOfAHostIsReadableAndReadBack)
{
    const ProgramResult result = host({"get", "STA_Volume", "--trace"});
    EXPECT_EQ(result.out, "STA_Volume\tu8\t25\n");
    const std::string frame = lineWith(result.err, " state whole MSG_GetStateResponse STA_Volume=u8:25\n");
    int read[6];
    EXPECT_EQ(std::sscanf(frame.c_str(), "%2d:%2d:%2d.%6d < frame data seq=%d ack=%d state", &read[0],
                          &read[1], &read[2], &read[3], &read[4], &read[5]),
              6)
        << result.err;
    EXPECT_TRUE(contains(result.err, " > message MSG_GetState STA_Volume | 00020009\n")) << result.err;
    EXPECT_TRUE(contains(result.err, " - session begins\n")) << result.err;
    EXPECT_TRUE(contains(result.err, " > frame goodbye ack=")) << result.err;

    Program decode({"decode"}, Program::Input::Typed);
    decode.type(result.err);
    decode.endInput();
    const ProgramResult messages = decode.wait();
    EXPECT_EQ(messages.status, 0) << messages.err;
    EXPECT_TRUE(contains(messages.out, " < MSG_GetStateResponse STA_Volume=u8:25\n")) << messages.out;
    EXPECT_FALSE(contains(messages.out, "frame")) << messages.out;
}

TEST_F(RuntimeDirectory, ModuleTracesAndTellsItsCountersAtTheEnd)
{
    Program module({"module", "--trace", "--stats"});
    ASSERT_NE(module.waitForLine("ready link="), "");
    EXPECT_EQ(host({"get", "STA_Volume"}).status, 0);
    EXPECT_TRUE(module.waitForError(" - session ended: the peer said goodbye\n"));
    module.signal(SIGTERM);
    const ProgramResult result = module.wait();
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(contains(result.err, " > message MSG_GetStateResponse STA_Volume=u8:25 | 80020009cc19\n"))
        << result.err;
    expectAllCounters(result.err.substr(result.err.rfind("stats link=")));
}

TEST_F(RuntimeDirectory, ModuleTellsTheCountersOfALinkThatAPowerTargetHasStopped)
{
    Program module({"module", "--stats"});
    ASSERT_NE(module.waitForLine("ready link="), "");
    Program attend({"host", "attend"});
    attend.nextLineWith("a session with the module begins");
    EXPECT_EQ(Program::run({"node", "set", "VornPowerManagerTargetPath", R"({"powerTarget": {"target": 4}})"})
                  .status,
              0);
    attend.nextLineWith("the module ended the session");
    EXPECT_EQ(Program::run({"node", "get", "/hostLink/links"}).out, "{\"links\":[]}\n");
    module.signal(SIGTERM);
    const ProgramResult result = module.wait();
    EXPECT_EQ(result.status, 0);
    expectAllCounters(result.err);
    EXPECT_EQ(counterIn(result.err, "sessions"), 1);
}

TEST_F(RuntimeDirectory, AConversationAndALargeTransferAreWholeWhileTheLinkIsCutAllTheTime)
{
    constexpr int kRounds = 200;
    constexpr int kMany = 12'000; // 24 KB there, 48 KB back
    const std::string socket = directory() + "/socket";
    Program module({"module", "--link", "unix:" + socket + "?cut=0.1&outage=10&seed=1", "--stats"});
    ASSERT_NE(module.waitForLine("ready link="), "");
    HostLinkPhysicalLayer::Properties line;
    line.setString(HostLinkPhysicalLayer::Device, socket);
    line.setString(HostLinkPhysicalLayer::Faults, "cut=0.05&outage=10&rate=2000000&seed=2");
    Host host(HostLinkPhysicalLayer::create("unix", line));
    HostSession session(host, 10s);
    session.open();
    for (int round = 0; round < kRounds; ++round) {
        const auto volume = std::uint8_t(round % 100);
        const HostLinkValueMessage taken(
            session.request(setRequest(STA_Volume, volume), HostSession::Repeat::Never));
        ASSERT_EQ(taken.size(), 1);
        EXPECT_EQ(taken.getUint8(0), 1);
        const HostLinkValueMessage reply(
            session.request(getRequest(STA_Volume, round % 20 == 0 ? kMany : 1), HostSession::Repeat::Never));
        ASSERT_EQ(reply.size(), round % 20 == 0 ? kMany : 1);
        for (int i = 0; i < reply.size(); ++i) {
            ASSERT_EQ(reply.getUint8(i), volume) << round;
        }
    }
    EXPECT_EQ(session.counters().sessions, 1U);
    EXPECT_GT(session.counters().greetings, 3U); // it was cut often
    module.signal(SIGTERM);
    const ProgramResult result = module.wait();
    EXPECT_EQ(counterIn(result.err, "sessions"), 1);
    EXPECT_EQ(counterIn(result.err, "messagesDiscarded"), 0);
    EXPECT_EQ(counterIn(result.err, "messagesRefused"), 0);
}

TEST_F(RuntimeDirectory, ARestartOfEitherSideIsANewSessionForBoth)
{
    const std::string url = "unix:" + directory() + "/socket";
    auto module = std::make_unique<Program>(Program::Arguments{"module", "--link", url, "--stats"});
    ASSERT_NE(module->waitForLine("ready link="), "");
    Program attend({"host", "--link", url, "--stats", "attend"}, Program::Input::Typed);
    attend.nextLineWith("a session with the module begins");
    module->signal(SIGKILL);
    module->wait();
    module = std::make_unique<Program>(Program::Arguments{"module", "--link", url, "--stats"});
    ASSERT_NE(module->waitForLine("ready link="), "");
    attend.nextLineWith("a session with the module begins");
    attend.signal(SIGKILL);
    attend.wait();
    Program next({"host", "--link", url, "--stats", "attend"}, Program::Input::Typed);
    next.nextLineWith("a session with the module begins");
    next.type("quit\n");
    EXPECT_EQ(counterIn(next.wait().err, "sessions"), 1);
    module->signal(SIGTERM);
    EXPECT_EQ(counterIn(module->wait().err, "sessions"), 2);
}
