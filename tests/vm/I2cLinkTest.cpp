#include <signal.h>

#include <algorithm>
#include <sstream>

#include "platform/hostlink/HexText.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "vm/BusFixture.h"

namespace
{
std::string namesOfAllStates()
{
    std::istringstream lines(Program::run({"states"}).out);
    std::string names;
    std::string line;
    std::getline(lines, line); // the heading
    while (std::getline(lines, line)) {
        names += " " + line.substr(0, line.find(' '));
    }
    return names;
}

/// The text of a message in a line of an attended host, without time and sender.
std::string messageOf(const std::string& line)
{
    const std::size_t at = line.find("MSG_");
    return at == std::string::npos ? line : line.substr(at);
}

/// No part of it is like another.
std::string longText(std::size_t size)
{
    std::string text;
    for (int i = 0; text.size() < size; ++i) {
        text += std::to_string(i) + ".";
    }
    return text.substr(0, size);
}

constexpr const char* kModulesStartUp[] = {"module: MSG_StateChanged STA_SystemUp=u8:1",
                                           "module: MSG_Subscribe STA_HostMicMute",
                                           "module: MSG_SetState STA_ModulePower=u8:5",
                                           "module: MSG_GetState STA_Host", "host:   MSG_GetStateResponse"};
} // namespace

/// `hostlink module --link native` with the worker as it is shipped, and a host behind the bus.
class I2cLink : public BusFixture
{
protected:
    static constexpr Program::Input kTyped = Program::Input::Typed;

    void startModule()
    {
        m_module = std::make_unique<Program>(
            Program::Arguments{"module", "--link", "native", "--state-dir", directory() + "/state"});
        ASSERT_EQ(m_module->waitForLine("ready ").rfind("ready link=native api=", 0), 0u);
    }

    void startHost()
    {
        m_host = std::make_unique<Program>(
            Program::Arguments{"host", "--link", "unix:" + linkSocket(), "attend", "HostMicMute=1"}, kTyped);
    }

    /// Types at the host and returns the next message with this text.
    std::string ask(const std::string& command, const std::string& answer)
    {
        m_host->type(command + "\n");
        return messageOf(m_host->nextLineWith(answer));
    }

    void expectStartUpMessages()
    {
        for (const char* message : kModulesStartUp) {
            ASSERT_NE(m_host->nextLineWith(message), "");
        }
    }

    /// The module answers for every state there is as it does on another link.
    void expectAllStates()
    {
        const std::string request = "get" + namesOfAllStates();
        Program module({"module", "--link", "unix:" + directory() + "/other.socket", "--api",
                        directory() + "/other-api.socket", "--state-dir", directory() + "/other-state"});
        ASSERT_NE(module.waitForLine("ready "), "");
        Program other({"host", "--link", "unix:" + directory() + "/other.socket", "attend"}, kTyped);
        other.type(request + "\n");
        const std::string answer = "module: MSG_GetStateResponse STA_SystemVersion";
        const std::string expected = messageOf(other.nextLineWith(answer));
        EXPECT_GT(std::count(expected.begin(), expected.end(), '='), 100) << expected;
        EXPECT_EQ(ask(request, answer), expected);
    }

    void expectSetAndWatch()
    {
        ask("watch Volume", "module: MSG_StateChanged STA_Volume");
        for (const char* volume : {"31", "32"}) {
            EXPECT_EQ(ask(std::string("set Volume=") + volume, "module: MSG_SetStateResponse"),
                      "MSG_SetStateResponse STA_Volume=u8:1");
            EXPECT_EQ(messageOf(m_host->nextLineWith("module: MSG_StateChanged")),
                      std::string("MSG_StateChanged STA_Volume=u8:") + volume);
        }
    }

    /// 64 KiB of the bulk class, each message of it answered: nobody takes tunnelled data where no tunnel is.
    void expectBulkStream()
    {
        typeBulkStream(16);
        for (int i = 0; i < 16; ++i) {
            ASSERT_NE(m_host->nextLineWith("module: MSG_ErrorResponse MSG_TcpTunnel=nil"), "");
        }
    }

    void typeBulkStream(int messages)
    {
        for (int i = 0; i < messages; ++i) {
            HostLinkValueMessage message(MSG_TcpTunnel);
            message.addValueBin16(1, ByteArray(4096, std::uint8_t(i)));
            m_host->type("send " + hexText(message.serialize()) + "\n");
        }
    }

    /// The longest text, there and back.
    void expectLongMessages()
    {
        const std::string text = longText(65'000);
        ask("set DeviceName=" + text, "module: MSG_SetStateResponse STA_DeviceName=u8:1");
        EXPECT_EQ(ask("get DeviceName", "module: MSG_GetStateResponse STA_DeviceName"),
                  "MSG_GetStateResponse STA_DeviceName=str:\"" + text + "\"");
    }

    /// Ends both as they should end, and returns what the module said on its log.
    std::string endAll()
    {
        m_host->type("quit\n");
        const ProgramResult host = m_host->wait();
        EXPECT_EQ(host.status, 0) << host.err;
        m_module->signal(SIGTERM);
        const ProgramResult module = m_module->wait();
        EXPECT_EQ(module.status, 0) << module.err;
        return module.err;
    }

    std::unique_ptr<Program> m_module;
    std::unique_ptr<Program> m_host;
};

TEST_F(I2cLink, DeviceThatAppearsLaterIsTaken)
{
    startBus({"--absent"});
    startModule();
    startHost();
    bus("appear");
    expectStartUpMessages();
    EXPECT_EQ(ask("get STA_Mute", "module: MSG_GetStateResponse STA_Mute"),
              "MSG_GetStateResponse STA_Mute=u8:0");
    EXPECT_EQ(report().breaches, "");
    const std::string log = endAll();
    const std::string said = "i2c:/dev/i2c-3: the device is not there";
    EXPECT_NE(log.find(said), std::string::npos) << log;
    EXPECT_EQ(log.find(said), log.rfind(said)) << "it is said once: " << log;
}

TEST_F(I2cLink, HostThatComesLaterIsFound)
{
    startBus();
    startModule();
    while (report().failed == 0) {
    }
    startHost();
    expectStartUpMessages();
    EXPECT_EQ(report().breaches, "");
    const std::string log = endAll();
    EXPECT_NE(log.find("no answer from address 0x77"), std::string::npos) << log;
}

TEST_F(I2cLink, OneHostFollowsAnother)
{
    startBus();
    startModule();
    const std::string link = "unix:" + linkSocket();
    for (const char* volume : {"31", "32"}) {
        const ProgramResult set =
            host({"--link", link, "--timeout", "5000", "set", std::string("Volume=") + volume});
        EXPECT_EQ(set.out, "STA_Volume\tu8\t1\n") << set.err;
        const ProgramResult get = host({"--link", link, "--timeout", "5000", "get", "Volume"});
        EXPECT_EQ(get.out, std::string("STA_Volume\tu8\t") + volume + "\n") << get.err;
    }
}

TEST_F(I2cLink, ModuleEndsWhileTheBusHangs)
{
    startBus();
    startModule();
    startHost();
    expectStartUpMessages();
    bus("stall 60000");
    const int before = report().failed;
    while (report().failed == before) { // a transfer is counted when it begins
    }
    m_module->signal(SIGTERM);
    EXPECT_EQ(m_module->wait().status, 0);
}

namespace
{
struct Misbehaviour {
    const char* name;
    const char* command; ///< for the bus
};

std::ostream& operator<<(std::ostream& stream, const Misbehaviour& misbehaviour)
{
    return stream << misbehaviour.command;
}

// So many good transfers lie between two bad ones that a frame gets through: one of 511 bytes takes 8 writes,
// and reads in between.
constexpr Misbehaviour kMisbehaviours[] = {
    {"AsItShould", "heal"},          {"Refuses", "refuse every 41"},
    {"Stalls", "stall 30 every 37"}, {"CutsTransfersShort", "cut 20 every 41"},
    {"Floats", "float every 31"},    {"TimesOut", "stall 1100 every 401"}};
} // namespace

/// Everything goes over the bus while it misbehaves.
class I2cLinkWhileTheBus : public I2cLink, public testing::WithParamInterface<Misbehaviour>
{
};

INSTANTIATE_TEST_SUITE_P(Misbehaves, I2cLinkWhileTheBus, testing::ValuesIn(kMisbehaviours),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_P(I2cLinkWhileTheBus, EverythingArrives)
{
    startBus();
    bus(GetParam().command);
    startModule();
    startHost();
    expectStartUpMessages();
    expectAllStates();
    expectSetAndWatch();
    expectBulkStream();
    expectLongMessages();
    const Report seen = report();
    EXPECT_EQ(seen.breaches, "");
    EXPECT_EQ(seen.longest, 64);
    EXPECT_EQ(seen.timeout, 1000);
    endAll();
}
