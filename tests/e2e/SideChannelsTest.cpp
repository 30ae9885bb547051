#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <tuple>

#include "support/FaultyRelay.h"
#include "support/ModuleFixture.h"
#include "support/TcpClient.h"
#include "support/Texts.h"

namespace
{
const std::string kTransfer = "VornHostLinkDataTransferPath";
const std::string kStatus = "VornHostLinkDataTransferStatusPath";

std::string randomBytes(std::size_t size, unsigned seed)
{
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
        byte = char(random());
    }
    return bytes;
}
} // namespace

class FilePush : public ModuleFixture
{
protected:
    FilePush() { std::filesystem::create_directory(received()); }

    std::string received() const { return directory() + "/received"; }
    std::string pushed() const { return directory() + "/song.flac"; }

    void makeFile(std::size_t size)
    {
        m_content = randomBytes(size, unsigned(size));
        std::ofstream(pushed(), std::ios::binary) << m_content;
    }

    /// A host that takes one file, or so many, into received().
    std::unique_ptr<Program> startHost(const Program::Arguments& more = {}, int count = 1)
    {
        Program::Arguments arguments{"host", "receive", received(), "--count", std::to_string(count)};
        arguments.insert(arguments.end(), more.begin(), more.end());
        auto host = std::make_unique<Program>(arguments);
        EXPECT_TRUE(host->waitForError("ready for files"));
        return host;
    }

    /// Starts to push the file, with these parameters too.
    ProgramResult start(const std::string& more = "") const
    {
        return Program::run(
            {"node", "invoke", kTransfer, R"({"action":0,"fileName":")" + pushed() + "\"" + more + "}"});
    }

    /// Returns when the host has got some of the file, and most of it is still to come.
    void startAndAwaitAChunk() const
    {
        Program watch({"node", "watch", kStatus});
        EXPECT_NE(watch.waitForLine("{\"active\":false"), "");
        EXPECT_EQ(start(R"(,"chunkSize":128)").status, 0);
        EXPECT_NE(watch.nextLineWith(R"("chunksSent":2,)"), "");
    }

    static std::string status() { return Program::run({"node", "get", kStatus}).out; }

    /// Whatever their names are.
    int filesReceived() const
    {
        return int(std::distance(std::filesystem::directory_iterator(received()), {}));
    }

    std::string m_content;
};

class WholeFilePush : public FilePush, public testing::WithParamInterface<std::tuple<int, bool>>
{
};

TEST_P(WholeFilePush, TenMegabytesArriveIdentical)
{
    makeFile(10 * 1024 * 1024);
    const auto host = startHost();
    const auto [chunkSize, crc] = GetParam();
    EXPECT_EQ(start(",\"chunkSize\":" + std::to_string(chunkSize) + (crc ? ",\"crc\":true" : "")).status, 0);
    const ProgramResult result = host->wait();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "song.flac\t10485760\n");
    EXPECT_TRUE(contentOf(received() + "/song.flac") == m_content);
    EXPECT_TRUE(contains(status(), R"("active":false)")) << status();
    EXPECT_FALSE(contains(status(), "error")) << status();
}

INSTANTIATE_TEST_SUITE_P(ChunkSizes, WholeFilePush,
                         testing::Combine(testing::Values(128, 4096, 32768), testing::Bool()));

TEST_F(FilePush, AFileArrivesIdenticalOverABadLine)
{
    makeFile(1024 * 1024 + 77);
    const std::string path = directory() + "/bad.socket";
    FaultyRelay relay(path, directory() + "/hostlink/link.socket", {20'000, 20'000, 100'000});
    for (const char* more : {R"(,"chunkSize":32768)", R"(,"chunkSize":4096,"crc":true)"}) {
        const auto host = startHost({"--link", "unix:" + path});
        EXPECT_EQ(start(more).status, 0);
        const ProgramResult result = host->wait();
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_TRUE(contentOf(received() + "/song.flac") == m_content);
        std::filesystem::remove(received() + "/song.flac");
    }
    EXPECT_GT(relay.cuts(), 2U);
    EXPECT_GT(relay.faults(), 20U);
}

TEST_F(FilePush, AFileArrivesIdenticalOverALinkThatMakesFaults)
{
    makeFile(3'000'000);
    const auto host =
        startHost({"--link", "unix:" + directory() + "/hostlink/link.socket?drop=0.0001&cut=0.05&seed=7",
                   "--timeout", "10000"});
    EXPECT_EQ(start(R"(,"crc":true)").status, 0);
    const ProgramResult result = host->wait();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contentOf(received() + "/song.flac") == m_content);
}

TEST_F(FilePush, AHostThatAnswersMinusOneEndsIt)
{
    makeFile(20'000);
    const auto host = startHost({"--fail-chunk", "2:-1"});
    start();
    const ProgramResult result = host->wait();
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.err, "\"song.flac\" was not received: answered -1 as asked for"))
        << result.err;
    EXPECT_TRUE(contains(status(), R"("error":"Block failed")")) << status();
    EXPECT_TRUE(contains(status(), R"("chunksSent":3)")) << status();
    EXPECT_TRUE(std::filesystem::is_empty(received()));
}

TEST_F(FilePush, ChunksThatAreAskedForAgainStillMakeTheFile)
{
    makeFile(20'001); // five chunks, the last one short
    const auto host = startHost({"--fail-chunk", "0:-2", "--fail-chunk", "2:-2", "--fail-chunk", "4:-2"});
    start(R"(,"crc":true)");
    const ProgramResult result = host->wait();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contentOf(received() + "/song.flac") == m_content);
    EXPECT_FALSE(contains(status(), "error")) << status();
}

TEST_F(FilePush, AHostKilledAmidAFileLeavesNoHalfOneAndTheNextGetsItWhole)
{
    makeFile(10 * 1024 * 1024);
    const auto host = startHost();
    startAndAwaitAChunk();
    host->signal(SIGKILL);
    host->wait();
    EXPECT_EQ(filesReceived(), 1) << "only what the kill has left of the file";
    EXPECT_FALSE(std::filesystem::exists(received() + "/song.flac"));
    EXPECT_EQ(Program::run({"node", "invoke", kTransfer, R"({"action":1})"}).status, 0);

    makeFile(100'000);
    const auto next = startHost();
    EXPECT_EQ(filesReceived(), 0) << "the next host removes it";
    EXPECT_EQ(start().status, 0);
    const ProgramResult result = next->wait();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contentOf(received() + "/song.flac") == m_content);
    EXPECT_EQ(filesReceived(), 1);
}

TEST_F(FilePush, AModuleKilledAmidAFileLeavesNoHalfOneAndTheNextSendsItWhole)
{
    makeFile(10 * 1024 * 1024);
    const auto host = startHost({}, 2);
    startAndAwaitAChunk();
    m_module->signal(SIGKILL);
    m_module->wait();
    EXPECT_FALSE(std::filesystem::exists(received() + "/song.flac"));

    makeFile(100'000);
    startModule();
    EXPECT_TRUE(host->waitForError("\"song.flac\" was not received: a new session began"));
    EXPECT_EQ(filesReceived(), 0);
    EXPECT_EQ(start().status, 0);
    const ProgramResult result = host->wait();
    EXPECT_EQ(result.status, 1) << "one of the two was not received";
    EXPECT_EQ(result.out, "song.flac\t100000\n");
    EXPECT_TRUE(contentOf(received() + "/song.flac") == m_content);
}

TEST_F(FilePush, AHostThatAnswersMinusThreeEndsIt)
{
    makeFile(20'000);
    const auto host = startHost({"--fail-chunk", "0:-3"});
    start();
    EXPECT_EQ(host->wait().status, 1);
    EXPECT_TRUE(contains(status(), R"_("error":"Invalid response from host (-3)")_")) << status();
}

TEST_F(FilePush, AHostThatDoesNotAnswerEndsItByTime)
{
    makeFile(20'000);
    const auto host = startHost({"--fail-chunk", "1:none"});
    Program progress({"node", "watch", "--progress"});
    start(R"(,"timeout":100)");
    const ProgramResult end = progress.wait();
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(end.err, "hostlink node: Timeout\n");
    EXPECT_EQ(host->wait().status, 1);
    EXPECT_TRUE(contains(status(), R"("error":"Timeout")")) << status();
}

TEST_F(FilePush, AStopReachesTheHost)
{
    makeFile(10 * 1024 * 1024);
    const auto host = startHost();
    start(R"(,"chunkSize":128)");
    EXPECT_EQ(Program::run({"node", "invoke", kTransfer, R"({"action":1})"}).status, 0);
    const ProgramResult result = host->wait();
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.err, "the module has stopped the transfer")) << result.err;
    EXPECT_TRUE(contains(status(), R"("error":"Stopped by API request")")) << status();
    EXPECT_TRUE(std::filesystem::is_empty(received()));
}

TEST_F(FilePush, WhatCannotBeStartedIsRefusedWithTheReason)
{
    const ProgramResult missing = start();
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err, "hostlink node: Failed to open file '" + pushed() + "'\n");
    makeFile(1000);
    const ProgramResult size = start(R"(,"chunkSize":127)");
    EXPECT_EQ(size.status, 1);
    EXPECT_EQ(size.err, "hostlink node: 128 <= chunkSize <= 32768\n");
    EXPECT_EQ(status(), "{\"active\":false}\n");
}

TEST_F(FilePush, ProgressEndsWithTheFile)
{
    makeFile(100'000);
    start(R"(,"chunkSize":1000,"timeout":60000)");
    Program progress({"node", "watch", "--progress"});
    EXPECT_EQ(progress.waitForLine(""), "1 %") << "the first chunk waits for its host";
    const auto host = startHost();
    const ProgramResult result = progress.wait();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(result.out, "\n50 %\n")) << result.out;
    EXPECT_TRUE(contains(result.out, "100 %\n" + pushed() + "\t100000\n")) << result.out;
    EXPECT_EQ(host->wait().status, 0);
}

TEST_F(FilePush, AFileThatIsTooLargeIsNotTaken)
{
    makeFile(10'000);
    const auto host = startHost({"--largest", "9999"});
    start(R"(,"chunkSize":1000)");
    const ProgramResult result = host->wait();
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.err, "was not received: it is larger than 9999 bytes")) << result.err;
    EXPECT_EQ(result.out, "");
}

TEST_F(FilePush, AnInterruptBeforeTheCountIsReachedEndsWith3)
{
    const auto host = startHost();
    host->signal(SIGINT);
    EXPECT_EQ(host->wait().status, 3);
}

TEST_F(FilePush, WrongUseIsSaid)
{
    EXPECT_EQ(host({"receive", directory() + "/nowhere"}).status, 2);
    for (const char* text : {"", "1", "1:", ":-1", "x:-1", "1:x", "-1:1", "1:99999999999"}) {
        EXPECT_EQ(host({"receive", received(), "--fail-chunk", text}).status, 2) << text;
    }
    for (const char* text : {"", "x", "-1", "1.5"}) {
        EXPECT_EQ(host({"receive", received(), "--largest", text}).status, 2) << text;
    }
    EXPECT_EQ(Program::run({"node", "watch"}).status, 2);
}

class Keys : public ModuleFixture
{
    void SetUp() override { startModule({"--log-level", "debug"}); }
};

TEST_F(Keys, AreTakenByTheModuleByNameAndCode)
{
    const ProgramResult result = host({"key", "KEY_VOLUMEUP:press", "115:release", "mute:press"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(m_module->waitForError("received input event, key: 115 key action: 1"));
    EXPECT_TRUE(m_module->waitForError("received input event, key: 115 key action: 0"));
    EXPECT_TRUE(m_module->waitForError("received input event, key: 113 key action: 1"));
}

TEST_F(Keys, WrongOnesAreSaid)
{
    for (const char* event :
         {"KEY_VOLUMUP:press", "115", "115:push", ":press", "65536:press", "115:press:"}) {
        EXPECT_EQ(host({"key", event}).status, 2) << event;
    }
    EXPECT_TRUE(contains(host({"key", "KEY_VOLUMUP:press"}).err, "did you mean KEY_VOLUMEUP?"));
}

constexpr int kConnections = 50;

class Tunnel : public ModuleFixture
{
protected:
    void SetUp() override
    {
        startModule(
            {"--tunnel-port", std::to_string(m_port), "--tunnel-connections", std::to_string(kConnections)});
    }

    static std::unique_ptr<Program> startHost(const Program::Arguments& more = {})
    {
        Program::Arguments arguments{"host", "tunnel"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        auto host = std::make_unique<Program>(arguments, Program::Input::Typed);
        EXPECT_TRUE(host->waitForError("ready for clients"));
        return host;
    }

    /// Lets each client send its data and get it back; all at once.
    static void echo(std::vector<TcpClient>& clients, const std::vector<std::string>& data)
    {
        const auto isDone = [&] {
            for (std::size_t i = 0; i < clients.size(); ++i) {
                if (clients[i].received().size() < data[i].size() && !clients[i].isClosed()) {
                    return false;
                }
            }
            return true;
        };
        while (!isDone()) {
            std::vector<pollfd> ready;
            for (std::size_t i = 0; i < clients.size(); ++i) {
                const bool all = clients[i].isAllSent(data[i]);
                ready.push_back({clients[i].descriptor(), short(all ? POLLIN : POLLIN | POLLOUT), 0});
            }
            ASSERT_GT(::poll(ready.data(), ready.size(), 20'000), 0) << "nothing moves any more";
            for (std::size_t i = 0; i < clients.size(); ++i) {
                if (ready[i].revents != 0) {
                    clients[i].exchange(data[i]);
                }
            }
        }
        for (std::size_t i = 0; i < clients.size(); ++i) {
            EXPECT_TRUE(clients[i].received() == data[i]) << i;
        }
    }

    const std::uint16_t m_port = freePort();
};

TEST_F(Tunnel, FiftyClientsGetTheirMegabyteBackAndThe51stIsClosed)
{
    const auto host = startHost({"--echo"});
    std::vector<TcpClient> clients;
    std::vector<std::string> data;
    for (int i = 0; i < kConnections; ++i) {
        clients.emplace_back(m_port);
        data.push_back(randomBytes(1024 * 1024, unsigned(i)));
    }
    echo(clients, data);
    TcpClient oneMore(m_port);
    EXPECT_TRUE(oneMore.awaitClosed());
    EXPECT_EQ(oneMore.received(), "");
    EXPECT_TRUE(m_module->waitForError("Max connection reached, rejecting"));
    host->signal(SIGINT);
    EXPECT_EQ(host->wait().status, 0);
    EXPECT_TRUE(std::all_of(clients.begin(), clients.end(), [](TcpClient& client) {
        return client.awaitClosed();
    })) << "a host that goes closes what it spoke for";
}

TEST_F(Tunnel, NothingIsLostOverABadLine)
{
    const std::string path = directory() + "/bad.socket";
    FaultyRelay relay(path, directory() + "/hostlink/link.socket", {30'000, 30'000, 150'000});
    const auto host = startHost({"--echo", "--link", "unix:" + path});
    std::vector<TcpClient> clients;
    std::vector<std::string> data;
    for (int i = 0; i < 5; ++i) {
        clients.emplace_back(m_port);
        data.push_back(randomBytes(200'000, unsigned(i)));
    }
    echo(clients, data);
    EXPECT_GT(relay.cuts(), 2U);
}

TEST_F(Tunnel, IdsAreGivenSmallestFirst)
{
    const auto host = startHost();
    TcpClient first(m_port);
    first.say("a");
    EXPECT_EQ(host->nextLineWith("data"), "0\tdata\t61");
    auto second = std::make_unique<TcpClient>(m_port);
    second->say("b");
    EXPECT_EQ(host->nextLineWith("data"), "1\tdata\t62");
    TcpClient third(m_port);
    third.say("c");
    EXPECT_EQ(host->nextLineWith("data"), "2\tdata\t63");
    second.reset();
    EXPECT_EQ(host->nextLineWith("closed"), "1\tclosed\t");
    TcpClient fourth(m_port);
    fourth.say("d");
    EXPECT_EQ(host->nextLineWith("data"), "1\tdata\t64");
    first.reset();
    EXPECT_EQ(host->nextLineWith("closed"), "0\tclosed\t") << "a reset closes too";
}

TEST_F(Tunnel, TheHostWritesAndCloses)
{
    const auto host = startHost({"--json"});
    TcpClient client(m_port);
    client.say("hi");
    EXPECT_EQ(host->nextLineWith("data"), R"({"connection":0,"data":"6869"})");
    host->type("write 0 68656c6c6f\nclose 0\n");
    EXPECT_EQ(client.await(5), "hello");
    EXPECT_TRUE(client.awaitClosed());
    EXPECT_EQ(host->nextLineWith("closed"), R"({"connection":0,"closed":true})");
    host->type("close 0\n");
    EXPECT_TRUE(host->waitForError("connection 0: there is no such connection"));
    host->type("shut 0\nwrite 0\nwrite x 00\nclose 256\nclose\n");
    EXPECT_TRUE(host->waitForError("'close' is neither 'close ID' nor 'write ID HEX'"));
}

TEST_F(Tunnel, AClientThatNeverReadsStopsNoOther)
{
    const auto host = startHost({"--echo"});
    TcpClient stuck(m_port);
    const std::string much = randomBytes(8 * 1024 * 1024, 1);
    std::size_t sent = 0;
    for (pollfd ready{stuck.descriptor(), POLLOUT, 0};
         sent < much.size() && ::poll(&ready, 1, 10'000) == 1;) {
        const ssize_t size = ::send(stuck.descriptor(), much.data() + sent, much.size() - sent, MSG_NOSIGNAL);
        sent += size > 0 ? std::size_t(size) : 0;
    }
    EXPECT_EQ(sent, much.size()) << "that it does not read does not keep it from sending";
    EXPECT_TRUE(m_module->waitForError("Failed to write data to connection: 0, written: 0"));
    std::vector<TcpClient> clients;
    clients.emplace_back(m_port);
    echo(clients, {randomBytes(1024 * 1024, 2)});
    EXPECT_TRUE(stuck.await(much.size()) == much) << "and when it reads, nothing is missing";
}

TEST_F(Tunnel, AShutdownClosesTheConnections)
{
    const auto host = startHost();
    TcpClient client(m_port);
    client.say("hi");
    host->nextLineWith("data");
    EXPECT_EQ(Program::run({"node", "set", "VornPowerManagerTargetPath",
                            R"({"powerTarget":{"nextTarget":1,"reason":0,"target":3}})"})
                  .status,
              0);
    EXPECT_TRUE(client.awaitClosed());
}

TEST_F(Tunnel, ClientsOfAModuleThatRestartedAreNotTakenForThoseOfBefore)
{
    const auto host = startHost({"--echo"});
    TcpClient before(m_port);
    before.say("x");
    EXPECT_EQ(before.await(1), "x");
    host->signal(SIGSTOP);
    m_module->signal(SIGKILL);
    m_module->wait();
    SetUp();
    TcpClient after(m_port);
    after.say("y"); // waits for the session
    host->signal(SIGCONT);
    EXPECT_EQ(after.await(1), "y");
    after.say("z");
    EXPECT_EQ(after.await(2), "yz");
    EXPECT_TRUE(host->waitForError("connection 0: a new session began; closing"));
}

TEST_F(Tunnel, AHostThatRestartsFindsAWorkingTunnel)
{
    TcpClient before(m_port);
    {
        const auto host = startHost({"--echo"});
        before.say("x");
        EXPECT_EQ(before.await(1), "x");
        host->signal(SIGKILL);
        host->wait();
    }
    const auto host = startHost({"--echo"});
    TcpClient after(m_port);
    after.say("y");
    EXPECT_EQ(after.await(1), "y");
    before.say("z");
    EXPECT_EQ(before.await(2), "xz") << "its connection is still there";
}
