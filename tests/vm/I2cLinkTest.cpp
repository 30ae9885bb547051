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

int countOf(const std::string& part, const std::string& text)
{
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
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

// How the answer to a request for all states begins.
constexpr const char* kAllStates = "module: MSG_GetStateResponse STA_SystemVersion";

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
    static constexpr int kBulkMessages = 16;
    static constexpr std::size_t kBulkSize = 4096; ///< bytes of data in each

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
    void expectAllStates() { EXPECT_EQ(ask(requestForAllStates(), kAllStates), allStates()); }

    static const std::string& requestForAllStates()
    {
        static const std::string request = "get" + namesOfAllStates();
        return request;
    }

    /// The answer to requestForAllStates() on a link without a bus.
    const std::string& allStates() const
    {
        static const std::string answer = askForAllStates();
        return answer;
    }

    std::string askForAllStates() const
    {
        const std::string socket = directory() + "/other.socket";
        Program module({"module", "--link", "unix:" + socket, "--api", directory() + "/other-api.socket",
                        "--state-dir", directory() + "/other-state"});
        EXPECT_NE(module.waitForLine("ready "), "");
        Program other({"host", "--link", "unix:" + socket, "attend"}, kTyped);
        other.type(requestForAllStates() + "\n");
        const std::string answer = messageOf(other.nextLineWith(kAllStates));
        EXPECT_GT(std::count(answer.begin(), answer.end(), '='), 100) << answer;
        return answer;
    }

    void expectSetAndWatch()
    {
        ask("watch Volume", "module: MSG_StateChanged STA_Volume");
        expectSet("31");
        expectSet("32");
    }

    /// Sets the volume, which is watched.
    void expectSet(const std::string& volume)
    {
        EXPECT_EQ(ask("set Volume=" + volume, "module: MSG_SetStateResponse"),
                  "MSG_SetStateResponse STA_Volume=u8:1");
        EXPECT_EQ(messageOf(m_host->nextLineWith("module: MSG_StateChanged")),
                  "MSG_StateChanged STA_Volume=u8:" + volume);
    }

    /// 64 KiB of the bulk class, each message of it answered: nobody takes tunnelled data where no tunnel is.
    void expectBulkStream()
    {
        typeBulk(kBulkMessages);
        expectBulkAnswers(kBulkMessages);
    }

    void typeBulk(int messages)
    {
        for (int i = 0; i < messages; ++i) {
            HostLinkValueMessage message(MSG_TcpTunnel);
            message.addValueBin16(1, ByteArray(kBulkSize, std::uint8_t(i)));
            ++m_bulkTyped;
            m_host->type("send " + hexText(message.serialize()) + "\n");
        }
    }

    void expectBulkAnswers(int messages)
    {
        for (int i = 0; i < messages; ++i) {
            ASSERT_NE(m_host->nextLineWith("module: MSG_ErrorResponse MSG_TcpTunnel=nil"), "");
        }
    }

    /// A text of this size goes there and back.
    void expectText(std::size_t size)
    {
        const std::string text = longText(size);
        ask("set DeviceName=" + text, "module: MSG_SetStateResponse STA_DeviceName=u8:1");
        EXPECT_EQ(ask("get DeviceName", "module: MSG_GetStateResponse STA_DeviceName"),
                  "MSG_GetStateResponse STA_DeviceName=str:\"" + text + "\"");
    }

    /// Returns when so many transfers more had the fault that was typed.
    void awaitFaults(int count)
    {
        const int before = report().faults;
        while (!HasFailure() && report().faults < before + count) {
        }
    }

    /// Ends both as they should end. They had one session, in which nothing is lost or repeated.
    void endAll()
    {
        m_host->type("quit\n");
        const ProgramResult host = m_host->wait();
        EXPECT_EQ(host.status, 0) << host.err;
        EXPECT_EQ(countOf("a session with the module begins", host.out), 1);
        EXPECT_EQ(countOf("module: MSG_ErrorResponse", host.out), m_bulkTyped);
        m_module->signal(SIGTERM);
        const ProgramResult module = m_module->wait();
        EXPECT_EQ(module.status, 0) << module.err;
        m_log = module.err;
    }

    std::unique_ptr<Program> m_module;
    std::unique_ptr<Program> m_host;
    int m_bulkTyped = 0; ///< messages
    std::string m_log;   ///< of the module that has ended
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
    endAll();
    EXPECT_EQ(countOf("i2c:/dev/i2c-3: the device is not there", m_log), 1) << m_log;
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
    endAll();
    EXPECT_NE(m_log.find("no answer from address 0x77"), std::string::npos) << m_log;
}

TEST_F(I2cLink, OneHostFollowsAnother)
{
    startBus();
    startModule();
    const auto hostThat = [this](const Program::Arguments& command) {
        Program::Arguments arguments{"--link", "unix:" + linkSocket(), "--timeout", "5000"};
        arguments.insert(arguments.end(), command.begin(), command.end());
        return host(arguments);
    };
    EXPECT_EQ(hostThat({"set", "Volume=31"}).out, "STA_Volume\tu8\t1\n");
    EXPECT_EQ(hostThat({"get", "Volume"}).out, "STA_Volume\tu8\t31\n");
}

TEST_F(I2cLink, EverythingArrivesThoughTheDeviceVanishesAndComesBack)
{
    startBus();
    startModule();
    startHost();
    bus("vanish");
    bus("appear");
    expectStartUpMessages();

    const auto askWhileItIsGone = [this](const std::string& command, const std::string& answer) {
        bus("vanish");
        m_host->type(command + "\n");
        bus("appear");
        return messageOf(m_host->nextLineWith(answer));
    };
    EXPECT_EQ(askWhileItIsGone(requestForAllStates(), kAllStates), allStates());
    askWhileItIsGone("watch Volume", "module: MSG_StateChanged STA_Volume");
    EXPECT_EQ(askWhileItIsGone("set Volume=31", "module: MSG_SetStateResponse"),
              "MSG_SetStateResponse STA_Volume=u8:1");
    EXPECT_EQ(messageOf(m_host->nextLineWith("module: MSG_StateChanged")),
              "MSG_StateChanged STA_Volume=u8:31");
    typeBulk(kBulkMessages);
    for (int quarter = 0; quarter < 4; ++quarter) {
        bus("vanish");
        bus("appear");
        expectBulkAnswers(kBulkMessages / 4);
    }
    EXPECT_EQ(report().breaches, "");
    endAll();
}

TEST_F(I2cLink, OutlivesABusThatFailsEachTransferForAWhile)
{
    startBus();
    startModule();
    startHost();
    expectStartUpMessages();
    ask("watch Volume", "module: MSG_StateChanged STA_Volume");
    int volume = 30;
    for (const char* fault : {"refuse", "stall 1100", "cut 1", "float"}) {
        SCOPED_TRACE(fault);
        bus(fault);
        awaitFaults(2);
        bus("heal");
        expectSet(std::to_string(++volume));
    }
    EXPECT_EQ(report().breaches, "");
    endAll();
}

TEST_F(I2cLink, ModuleEndsWhileTheBusHangs)
{
    startBus();
    startModule();
    startHost();
    expectStartUpMessages();
    bus("stall 60000");
    awaitFaults(1); // counted when the transfer begins
    m_module->signal(SIGTERM);
    EXPECT_EQ(m_module->wait().status, 0);
}

namespace
{
struct Misbehaviour {
    const char* name;
    const char* command; ///< for the bus
    int leastFaults;     ///< while everything goes over it
};

std::ostream& operator<<(std::ostream& stream, const Misbehaviour& misbehaviour)
{
    return stream << misbehaviour.command;
}

// So many good transfers lie between two bad ones that a frame gets through: one of 511 bytes takes 8 writes,
// and reads in between.
constexpr Misbehaviour kMisbehaviours[] = {{"Refuses", "refuse every 97", 15},
                                           {"Stalls", "stall 30 every 97", 15},
                                           {"CutsTransfersShort", "cut 20 every 97", 15},
                                           {"Floats", "float every 97", 15}};
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
    expectText(8'000);
    const Report seen = report();
    EXPECT_EQ(seen.breaches, "");
    EXPECT_EQ(seen.longest, 64);
    EXPECT_EQ(seen.timeout, 1000);
    EXPECT_GE(seen.faults, GetParam().leastFaults);
    endAll();
}
