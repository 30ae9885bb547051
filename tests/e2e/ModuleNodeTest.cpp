#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "support/ModuleFixture.h"
#include "support/Texts.h"
#include "vocabulary/Proxies.h"

namespace
{
using Arguments = Program::Arguments;

int countOf(const std::string& text, const std::string& part)
{
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

bool exists(const std::string& file)
{
    return std::filesystem::exists(file);
}

std::string words(const Arguments& arguments)
{
    std::string text;
    for (const std::string& argument : arguments) {
        text += argument + ' ';
    }
    return text;
}

/// The states that are answered with an empty text.
std::vector<std::string> emptyTexts(const std::string& answers)
{
    std::vector<std::string> states;
    std::istringstream lines(answers);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t name = line.find("\tstr\t");
        if (name != std::string::npos && line.back() == '\t') {
            states.push_back(line.substr(0, name));
        }
    }
    return states;
}

/// Modules and node commands in one run-time directory.
class ModuleNode : public RuntimeDirectory
{
protected:
    std::unique_ptr<Program> startModule(const Arguments& more = {})
    {
        auto module = std::make_unique<Program>(with({"module"}, more));
        m_ready = module->waitForLine("");
        return module;
    }

    static Arguments with(Arguments arguments, const Arguments& more)
    {
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }

    static ProgramResult node(const Arguments& arguments) { return Program::run(with({"node"}, arguments)); }
    static std::string get(const std::string& path) { return node({"get", path}).out; }

    std::string file(const std::string& name) const { return directory() + '/' + name; }
    std::string standard(const std::string& name) const { return file("hostlink/" + name); }

    void write(const std::string& name, const std::string& text) const { std::ofstream(file(name)) << text; }

    std::string m_ready;
};
} // namespace

TEST_F(ModuleNode, BareCommandsFindEachOther)
{
    const auto module = startModule();
    EXPECT_EQ(m_ready, "ready link=unix:" + standard("link.socket") + " api=" + standard("api.socket"));
    EXPECT_EQ(get("VornDeviceNamePath"), "Living Room\n");
    EXPECT_TRUE(std::filesystem::is_directory(standard("state")));
}

TEST_F(ModuleNode, EveryPlaceCanBeChosen)
{
    const auto module =
        startModule({"--link", "unix:" + file("l"), "--api", file("a"), "--state-dir", file("s/t")});
    EXPECT_EQ(m_ready, "ready link=unix:" + file("l") + " api=" + file("a"));
    EXPECT_TRUE(std::filesystem::is_directory(file("s/t")));
    EXPECT_TRUE(exists(file("l")));
    EXPECT_EQ(node({"--api", file("a"), "get", "/player/mute"}).out, "false\n");
    EXPECT_EQ(node({"get", "--api", file("a"), "/player/mute"}).out, "false\n");
    EXPECT_FALSE(exists(standard("api.socket")));
}

TEST_F(ModuleNode, OnlyTheOwnerMayOpenTheApi)
{
    const auto module = startModule({"--api", file("a")});
    struct stat status {
    };
    ASSERT_EQ(::stat(file("a").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600);
}

TEST_F(ModuleNode, TextThatHoldsCommandsToATerminalGetsThereEscaped)
{
    const auto module = startModule();
    const std::string name = R"("\u001b[2J\u0085\tend")";
    ASSERT_EQ(node({"set", "VornDeviceNamePath", name}).status, 0);
    EXPECT_EQ(get("VornDeviceNamePath"), "\x1B[2J\xC2\x85\tend\n") << "what is no terminal gets it as it is";
    EXPECT_EQ(Program::run({"host", "get", "DeviceName"}).out,
              "STA_DeviceName\tstr\t\x1B[2J\xC2\x85\\tend\n");
    for (const std::string command : {"node get VornDeviceNamePath", "host get DeviceName"}) {
        const Arguments arguments{"-qec", "'" HOSTLINK_PROGRAM "' " + command, "/dev/null"};
        const ProgramResult onTerminal = Program("/usr/bin/script", arguments, Program::Input::Empty).wait();
        EXPECT_EQ(onTerminal.status, 0) << onTerminal.err;
        EXPECT_NE(onTerminal.out.find(R"(\x1b[2J\xc2\x85)"), std::string::npos) << onTerminal.out;
        EXPECT_EQ(onTerminal.out.find('\x1B'), std::string::npos);
    }
}

namespace
{
/// Errors but the one of a machine whose kernel has no virtual input devices.
std::string withoutUInput(const std::string& errors)
{
    std::istringstream lines(errors);
    std::string others;
    for (std::string line; std::getline(lines, line);) {
        others += line.find("Uinput not available") == std::string::npos ? line + '\n' : "";
    }
    return others;
}
} // namespace

TEST_F(ModuleNode, ASignalEndsTheModuleAndLeavesNothing)
{
    for (const int signal : {SIGTERM, SIGINT}) {
        const auto module = startModule();
        module->signal(signal);
        const ProgramResult end = module->wait();
        EXPECT_EQ(end.status, 0);
        EXPECT_EQ(end.out, m_ready + '\n');
        EXPECT_EQ(withoutUInput(end.err), "");
        EXPECT_FALSE(exists(standard("api.socket")));
        EXPECT_FALSE(exists(standard("link.socket")));
    }
}

TEST_F(ModuleNode, TheSocketsOfAKilledModuleAreTakenOver)
{
    const auto killed = startModule();
    killed->signal(SIGKILL);
    EXPECT_EQ(killed->wait().status, -SIGKILL);
    ASSERT_TRUE(exists(standard("api.socket")));
    ASSERT_TRUE(exists(standard("link.socket")));
    EXPECT_EQ(node({"list"}).status, 3);
    const auto module = startModule();
    EXPECT_EQ(get("VornPlayerMutePath"), "false\n");
}

TEST_F(ModuleNode, ASecondModuleIsRefused)
{
    const auto module = startModule();
    const ProgramResult sameApi = Program::run({"module", "--link", "unix:" + file("other")});
    EXPECT_EQ(sameApi.status, 3);
    EXPECT_EQ(sameApi.out, "");
    EXPECT_EQ(sameApi.err, "hostlink module: " + standard("api.socket") + " is in use by another module\n");
    const ProgramResult sameLink = Program::run({"module", "--api", file("other-api")});
    EXPECT_EQ(sameLink.status, 3);
    EXPECT_EQ(sameLink.out, "");
    EXPECT_TRUE(contains(sameLink.err, standard("link.socket"))) << sameLink.err;
    EXPECT_TRUE(contains(sameLink.err, "somebody else listens there")) << sameLink.err;
    EXPECT_EQ(get("VornPlayerMutePath"), "false\n");
}

TEST_F(ModuleNode, WrongUsageOfTheModuleEndsWithTwo)
{
    write("bad.json", "{\n\"/n\": 5}");
    for (const Arguments& arguments : std::vector<Arguments>{
             Arguments{"--link", "nonsense"}, Arguments{"--log-level", "loud"},
             Arguments{"--tunnel-port", "65536"}, Arguments{"--tunnel-connections", "-1"},
             Arguments{"--no-such-option"}, Arguments{"word"}, Arguments{"--profile", file("none.json")},
             Arguments{"--profile", file("bad.json")}}) {
        const ProgramResult end = Program::run(with({"module"}, arguments));
        EXPECT_EQ(end.status, 2) << words(arguments);
        EXPECT_EQ(end.out, "") << words(arguments);
        EXPECT_NE(end.err, "") << words(arguments);
    }
}

TEST_F(ModuleNode, AMissingPluginEndsWithThree)
{
    const ProgramResult end = Program::run({"module", "--plugin", file("none.so")});
    EXPECT_EQ(end.status, 3);
    EXPECT_EQ(end.err, "hostlink module: no plug-in at " + file("none.so") + "\n");
}

TEST_F(ModuleNode, AProfileGivesTheFirstValues)
{
    write("p.json", R"({"VornPlayerMutePath": {"bool_": true}, "/my/node": {"string_": "text"}})");
    const auto module =
        startModule({"--profile", file("p.json"), "--tunnel-port", "0", "--tunnel-connections", "7"});
    EXPECT_EQ(get("VornPlayerMutePath"), "true\n");
    EXPECT_EQ(get("/my/node"), "text\n");
    EXPECT_EQ(get("VornHostLinkTcpTunnelingConfPath"), "{\"maxOpenConnections\":7,\"port\":0}\n");
    EXPECT_EQ(node({"get", "VornDeviceNamePath"}).status, 1);
}

TEST_F(ModuleNode, LogLinesGoToStandardError)
{
    const auto module = startModule({"--log-level", "trace"});
    module->signal(SIGTERM);
    const ProgramResult end = module->wait();
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.out, m_ready + '\n');
    EXPECT_TRUE(contains(end.err, "TRACE HostLink: ")) << end.err;
}

TEST_F(ModuleNode, AFloodOfOneHostIsCountedAndHidesNothingElse)
{
    const auto module = startModule({"--log-level", "info"});
    std::string event = "0004";
    for (int state = 0x7000; state < 0x7000 + 500; ++state) {
        char value[8];
        std::snprintf(value, sizeof value, "%04XC0", static_cast<unsigned>(state));
        event += value;
    }
    EXPECT_EQ(host({"--timeout", "300", "send", event}).status, 0);
    EXPECT_EQ(host({"--timeout", "300", "send", "0042"}).out, "80000042c0\n");
    module->signal(SIGTERM);
    const std::string log = module->wait().err;
    EXPECT_EQ(countOf(log, "Unsupported state "), 11) << log;
    EXPECT_TRUE(contains(log, "INFO  HostLink: Unsupported state 28672\n")) << log;
    EXPECT_TRUE(contains(log, "INFO  HostLink: 490 more lines like: Unsupported state 29171\n")) << log;
    EXPECT_TRUE(contains(log, "Unhandled message id:66\n")) << log;
}

TEST_F(ModuleNode, ListsNodes)
{
    const auto module = startModule();
    EXPECT_EQ(node({"list", "/kestalPrime/dirac/stimuliGain/"}).out,
              "/kestalPrime/dirac/stimuliGain/0\n/kestalPrime/dirac/stimuliGain/1\n"
              "/kestalPrime/dirac/stimuliGain/2\n/kestalPrime/dirac/stimuliGain/3\n");
    const std::string all = node({"list"}).out;
    EXPECT_GT(std::count(all.begin(), all.end(), '\n'), 60);
    EXPECT_EQ(node({"--json", "list", "/player/mute"}).out, "{\"path\":\"/player/mute\"}\n");
    EXPECT_EQ(node({"list", "/none"}).status, 0);
}

TEST_F(ModuleNode, GetsScalarsBareAndOthersAsJson)
{
    const auto module = startModule();
    EXPECT_EQ(get("VornUIDisplayBrightnessPath"), "80\n");
    EXPECT_EQ(get("VornPlayLogicPlayTimePath"), "73500\n");
    EXPECT_EQ(get("VornKestalPrimeBtPairedDevicePath"),
              "{\"address\":\"02:4F:A8:13:C2:9D\",\"name\":\"Anna's phone\"}\n");
    EXPECT_EQ(node({"--json", "get", "VornUIDisplayBrightnessPath"}).out,
              "{\"path\":\"VornUIDisplayBrightnessPath\",\"value\":{\"i32_\":80}}\n");
}

TEST_F(ModuleNode, SetsScalarsWordsAndJson)
{
    const auto module = startModule();
    const auto setTo = [&](const std::string& path, const std::string& value) {
        const ProgramResult end = node({"set", path, value});
        EXPECT_EQ(end.status, 0) << end.err;
        EXPECT_EQ(end.out, "");
        return get(path);
    };
    EXPECT_EQ(setTo("VornUIDisplayBrightnessPath", "-5"), "-5\n");
    EXPECT_EQ(setTo("VornUIDisplayBrightnessPath", R"({"i32_": 6})"), "6\n");
    EXPECT_EQ(setTo("VornPlayerMutePath", "true"), "true\n");
    EXPECT_EQ(setTo("VornPlayLogicPlayTimePath", "9007199254740993"), "9007199254740993\n");
    EXPECT_EQ(setTo("VornDeviceNamePath", R"("Café")"), "Café\n");
    EXPECT_EQ(setTo("VornDeviceNamePath", "Kitchen upstairs"), "Kitchen upstairs\n");
    EXPECT_EQ(setTo("VornDeviceNamePath", "42"), "42\n");
    EXPECT_EQ(setTo("VornKestalPrimeBtPairedDevicePath", "{}"), "{}\n");
    EXPECT_EQ(node({"--json", "set", "VornPlayerMutePath", "false"}).out,
              "{\"path\":\"VornPlayerMutePath\",\"value\":false}\n");
}

TEST_F(ModuleNode, ARefusalEndsWithOne)
{
    const auto module = startModule();
    EXPECT_EQ(node({"set", "VornUIDisplayBrightnessPath", "true"}).status, 1);
    EXPECT_EQ(node({"set", "VornUIDisplayBrightnessPath", "true"}).err,
              "hostlink node: /ui/displayBrightness takes i32, not true\n");
    EXPECT_EQ(node({"get", "/player/mut"}).err,
              "hostlink node: no node at /player/mut; did you mean /player/mute?\n");
    EXPECT_EQ(node({"get", "/player/mut"}).status, 1);
    EXPECT_EQ(node({"set", "VornPlayerMutPath", "true"}).status, 1);
    EXPECT_TRUE(contains(node({"set", "VornPlayerMutPath", "true"}).err, "did you mean VornPlayerMutePath"));
    EXPECT_EQ(node({"get", "VornSystemManagerFactoryResetPath"}).status, 1);
    EXPECT_EQ(node({"invoke", "VornPlayerMutePath", "{}"}).status, 1);
    EXPECT_EQ(get("VornUIDisplayBrightnessPath"), "80\n");
}

TEST_F(ModuleNode, WrongUsageOfNodeEndsWithTwo)
{
    const auto module = startModule();
    for (const Arguments& arguments : std::vector<Arguments>{
             Arguments{}, Arguments{"get"}, Arguments{"set", "/player/mute"}, Arguments{"unknown"},
             Arguments{"get", "/player/mute", "more"}, Arguments{"set", "/player/mute", "maybe"},
             Arguments{"set", "/player/mute", "{\"bool_\":"}, Arguments{"invoke", "/player/mute", "{"},
             Arguments{"invoke", "/player/mute", "5"}, Arguments{"--wrong", "list"}}) {
        const ProgramResult end = node(arguments);
        EXPECT_EQ(end.status, 2) << words(arguments);
        EXPECT_EQ(end.out, "") << words(arguments);
        EXPECT_NE(end.err, "") << words(arguments);
    }
    EXPECT_EQ(get("/player/mute"), "false\n");
}

TEST_F(ModuleNode, WithoutAModuleNodeEndsWithThree)
{
    const ProgramResult end = node({"--api", file("none"), "get", "/player/mute"});
    EXPECT_EQ(end.status, 3);
    EXPECT_EQ(end.err,
              "hostlink node: no module answers at " + file("none") + ": No such file or directory\n");
}

TEST_F(ModuleNode, InvokesANode)
{
    const auto module = startModule();
    const ProgramResult end = node({"invoke", "VornSystemManagerFactoryResetPath", "{}"});
    EXPECT_EQ(end.status, 0) << end.err;
    EXPECT_EQ(end.out, "");
    EXPECT_EQ(node({"--json", "invoke", "VornSystemManagerFactoryResetPath", R"({"a": 1})"}).out,
              "{\"path\":\"VornSystemManagerFactoryResetPath\",\"result\":null}\n");
    module->signal(SIGTERM);
    EXPECT_TRUE(contains(module->wait().err, "WARN  Services.SystemManager: factory reset requested\n"));
}

TEST_F(ModuleNode, WatchPrintsTheValueThenEachChangeUntilASignal)
{
    const auto module = startModule();
    Program watch({"node", "watch", "VornUIDisplayBrightnessPath"});
    watch.waitForLine("80");
    node({"set", "/ui/displayBrightness", "81"});
    watch.waitForLine("81");
    node({"set", "/ui/displayBrightness", "81"});
    node({"set", "/ui/displayBrightness", "82"});
    watch.waitForLine("82");
    watch.signal(SIGINT);
    const ProgramResult end = watch.wait();
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.out, "80\n81\n82\n");
    EXPECT_EQ(end.err, "");
}

TEST_F(ModuleNode, WatchPrintsRecords)
{
    const auto module = startModule();
    Program watch({"node", "--json", "watch", "/ui/displayBrightness"});
    watch.waitForLine(R"({"path":"/ui/displayBrightness","value":{"i32_":80}})");
    node({"set", "/ui/displayBrightness", "81"});
    watch.waitForLine(R"({"path":"/ui/displayBrightness","previous":{"i32_":80},"value":{"i32_":81}})");
    watch.signal(SIGTERM);
    EXPECT_EQ(watch.wait().status, 0);
}

TEST_F(ModuleNode, WatchEndsWithThreeWhenTheModuleGoesAway)
{
    const auto module = startModule();
    Program watch({"node", "watch", "VornUIDisplayBrightnessPath"});
    watch.waitForLine("80");
    module->signal(SIGKILL);
    const ProgramResult end = watch.wait();
    EXPECT_EQ(end.status, 3);
    EXPECT_EQ(end.err, "hostlink node: the module went away\n");
}

TEST_F(ModuleNode, WatchEndsWhenNobodyReadsAnyMoreThoughNothingChanges)
{
    const auto module = startModule();
    Program watch({"node", "watch", "VornUIDisplayBrightnessPath"});
    watch.waitForLine("80");
    watch.stopReading();
    EXPECT_EQ(watch.wait().status, -SIGPIPE);
}

TEST_F(ModuleNode, HowLongAnAnswerIsWaitedForCanBeChosen)
{
    const auto module = startModule();
    EXPECT_EQ(node({"--timeout", "60000", "get", "/player/mute"}).out, "false\n");
    EXPECT_EQ(node({"--timeout", "0", "get", "/player/mute"}).status, 2);
    module->signal(SIGSTOP);
    const auto begin = std::chrono::steady_clock::now();
    const ProgramResult end = node({"--timeout", "50", "get", "/player/mute"});
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10)) << "the usual time";
    EXPECT_EQ(end.status, 3);
    EXPECT_EQ(end.err, "hostlink node: the module does not answer in time\n");
    module->signal(SIGCONT);
}

TEST_F(ModuleNode, AWorkerOfAnotherPluginIsRun)
{
    const auto module = startModule({"--plugin", LAB_WORKER});
    EXPECT_EQ(get("VornPlayerMutePath"), "false\n");
}

TEST_F(ModuleNode, StatesOfProxiesThatTheWorkerLeavesOutAnswerWithTheLabWorkerOnly)
{
    const Arguments served{"--json", "get", "32", "33", "37", "46", "47"};
    const Arguments never{"--json", "get", "41", "42", "43", "44", "45", "48"};
    const auto nils = [](const Arguments& arguments) {
        const std::string answer = host(arguments).out;
        std::size_t count = 0;
        for (std::size_t at = 0; (at = answer.find("\"nil\"", at)) != std::string::npos; ++at) {
            ++count;
        }
        return count;
    };
    {
        const auto module = startModule();
        EXPECT_EQ(nils(served), 5U);
        EXPECT_EQ(nils(never), 6U);
    }
    const auto module = startModule({"--plugin", LAB_WORKER});
    EXPECT_EQ(nils(served), 0U);
    EXPECT_EQ(nils(never), 6U);
}

TEST_F(ModuleNode, HostAndNodesSeeTheSameValues)
{
    const auto module = startModule();
    EXPECT_EQ(host({"set", "STA_DisplayBrightness=33"}).status, 0);
    EXPECT_EQ(get("VornUIDisplayBrightnessPath"), "33\n");
    EXPECT_EQ(node({"set", "VornUIDisplayBrightnessPath", "34"}).status, 0);
    EXPECT_EQ(host({"get", "STA_DisplayBrightness"}).out, "STA_DisplayBrightness\tu8\t34\n");
}

TEST_F(ModuleNode, EveryConvertedStateAnswersAValue)
{
    const auto module = startModule();
    Arguments states{"get"};
    for (const ProxyRow& row : kProxies) {
        if (row.proxy == ProxyClass::ValueItemProxy) {
            states.emplace_back(findState(row.states.front())->name);
        }
    }
    const ProgramResult answers = host(states);
    EXPECT_EQ(std::count(answers.out.begin(), answers.out.end(), '\n'),
              static_cast<std::ptrdiff_t>(states.size() - 1));
    EXPECT_FALSE(contains(answers.out, "\tnil\t")) << answers.out;
    EXPECT_FALSE(contains(answers.out, "\tnone\t")) << answers.out;
    EXPECT_EQ(emptyTexts(answers.out), Arguments{"STA_BtFirmwareVersion"})
        << "the host has not told its chip's version yet";
}
