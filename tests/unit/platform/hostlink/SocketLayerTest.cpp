#include "platform/hostlink/SocketLayer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "platform/hostlink/HostLinkCore.h"
#include "platform/hostlink/UnixLayer.h"
#include "support/LineKind.h"
#include "support/LinkLogCapture.h"

using namespace std::chrono_literals;

namespace
{

using Layer = HostLinkPhysicalLayer;

bool comeUp(Layer& a, Layer& b)
{
    return serviceUntil({&a, &b}, [&] { return a.lineNumber() != 0 && b.lineNumber() != 0; });
}

/// Services at each time that the layer asks for, as far as `span` in the future.
int attemptsWithin(Layer& layer, HostLinkDuration span)
{
    const HostLinkTime end = now() + span;
    int attempts = 0;
    while (layer.nextService() < end && attempts < 100'000) {
        layer.service(layer.nextService());
        ++attempts;
    }
    return attempts;
}

mode_t modeOf(const std::string& path)
{
    struct stat file {
    };
    return ::lstat(path.c_str(), &file) == 0 ? file.st_mode : 0;
}

/// A socket file as a killed process leaves it behind.
void leaveSocketBehind(const std::string& path)
{
    const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(socket.get(), 1), 0);
}

} // namespace

class SocketLineTest : public ::testing::TestWithParam<std::string>
{
protected:
    SocketLineTest() { m_listening->open(now()); }

    std::unique_ptr<Layer> newcomer()
    {
        auto layer = m_line.connecting();
        layer->open(now());
        return layer;
    }

    SocketLine m_line{GetParam()};
    std::unique_ptr<Layer> m_listening = m_line.listening();
};

INSTANTIATE_TEST_SUITE_P(Kinds, SocketLineTest, ::testing::Values("unix", "tcp"),
                         [](const auto& kind) { return kind.param; });

TEST_P(SocketLineTest, ASecondPeerIsRefusedAndTheFirstKeepsTheLine)
{
    const auto first = newcomer();
    ASSERT_TRUE(comeUp(*m_listening, *first));
    const std::uint64_t number = m_listening->lineNumber();

    const auto second = newcomer();
    ByteArray got;
    ASSERT_TRUE(serviceUntil({m_listening.get(), second.get()}, [&] {
        const ByteArray more = readNow(*second);
        got.insert(got.end(), more.begin(), more.end());
        return second->refused() && second->lineNumber() == 0;
    }));
    EXPECT_EQ(got, HostLinkCore::refusalFrame());
    EXPECT_EQ(m_listening->lineNumber(), number);
    EXPECT_FALSE(first->refused());

    const std::uint8_t byte = 42;
    EXPECT_EQ(first->write(&byte, 1, now()), 1u);
    ByteArray bytes;
    EXPECT_TRUE(serviceUntil({m_listening.get()}, [&] { return !(bytes = readNow(*m_listening)).empty(); }));
    EXPECT_EQ(bytes, ByteArray{42});
}

TEST_P(SocketLineTest, ARefusedPeerTriesAgainSeldomAndGetsTheLineOnceItIsFree)
{
    auto first = newcomer();
    ASSERT_TRUE(comeUp(*m_listening, *first));
    const auto second = newcomer();
    ASSERT_TRUE(serviceUntil({m_listening.get(), second.get()}, [&] {
        readNow(*second);
        return second->refused() && second->lineNumber() == 0;
    }));
    EXPECT_GT(second->nextService(), now() + 500ms);

    first.reset();
    ASSERT_TRUE(serviceUntil({m_listening.get()}, [&] {
        readNow(*m_listening);
        return m_listening->lineNumber() == 0;
    }));
    second->service(second->nextService());
    EXPECT_TRUE(comeUp(*m_listening, *second));
    const std::uint8_t byte = 42;
    EXPECT_EQ(m_listening->write(&byte, 1, now()), 1u);
    EXPECT_TRUE(serviceUntil({second.get()}, [&] { return !readNow(*second).empty(); }));
    EXPECT_FALSE(second->refused());
}

TEST_P(SocketLineTest, ASilentPeerMakesRoomForANewcomer)
{
    const auto first = newcomer();
    ASSERT_TRUE(comeUp(*m_listening, *first));
    const std::uint64_t number = m_listening->lineNumber();

    const auto second = newcomer();
    const HostLinkTime later = now() + HostLinkCore::kSilence;
    ASSERT_TRUE(serviceUntil({second.get()}, [&] {
        m_listening->service(later);
        return m_listening->lineNumber() > number && second->lineNumber() != 0;
    }));
    const std::uint8_t byte = 42;
    EXPECT_EQ(second->write(&byte, 1, now()), 1u);
    EXPECT_TRUE(serviceUntil({m_listening.get()}, [&] { return !readNow(*m_listening).empty(); }));
    EXPECT_FALSE(second->refused());
}

TEST_P(SocketLineTest, APeerThatWentIsReadToItsEndBeforeANewcomerIsLookedAt)
{
    auto first = newcomer();
    ASSERT_TRUE(comeUp(*m_listening, *first));
    const std::uint64_t number = m_listening->lineNumber();
    const ByteArray last(2000, 7);
    EXPECT_EQ(first->write(last.data(), last.size(), now()), last.size());
    first.reset();
    const auto second = newcomer(); // before the listening side had a chance to notice anything
    ByteArray got;
    ASSERT_TRUE(serviceUntil({m_listening.get(), second.get()}, [&] {
        if (m_listening->lineNumber() == number) {
            const ByteArray more = readNow(*m_listening);
            got.insert(got.end(), more.begin(), more.end());
        }
        return m_listening->lineNumber() > number && second->lineNumber() != 0;
    }));
    EXPECT_EQ(got, last);
    EXPECT_EQ(readNow(*second), ByteArray{});
    EXPECT_FALSE(second->refused());
}

TEST_P(SocketLineTest, ALoopOfShortPeersIsNeverRefused)
{
    auto peer = newcomer();
    for (std::uint8_t i = 0; i < 100; ++i) {
        ASSERT_TRUE(serviceUntil({peer.get()}, [&] { return peer->lineNumber() != 0; }));
        ASSERT_EQ(peer->write(&i, 1, now()), 1u);
        peer.reset();
        newcomer().reset(); // one that leaves without a word
        peer = newcomer();
        ByteArray got;
        ASSERT_TRUE(serviceUntil({m_listening.get()}, [&] {
            const ByteArray more = readNow(*m_listening);
            got.insert(got.end(), more.begin(), more.end());
            return !got.empty();
        }));
        EXPECT_EQ(got, ByteArray{i});
    }
}

TEST_P(SocketLineTest, APeerThatStopsReadingButNotWritingIsGoneOnceItIsReadToItsEnd)
{
    const auto peer = newcomer();
    ASSERT_TRUE(comeUp(*m_listening, *peer));
    const std::uint8_t byte = 9;
    ASSERT_EQ(peer->write(&byte, 1, now()), 1u);
    std::vector<pollfd> descriptors;
    peer->waitOn(descriptors, false);
    ASSERT_EQ(::shutdown(descriptors.front().fd, SHUT_RDWR), 0);
    ByteArray got;
    ASSERT_TRUE(serviceUntil({m_listening.get()}, [&] {
        m_listening->write(&byte, 1, now());
        const ByteArray more = readNow(*m_listening);
        got.insert(got.end(), more.begin(), more.end());
        return m_listening->lineNumber() == 0;
    }));
    EXPECT_EQ(got, ByteArray{9});
}

TEST_P(SocketLineTest, AWaitingSideLooksOftenEnoughButNotEndlessly)
{
    m_listening->close();
    const auto layer = newcomer();
    const int attempts = attemptsWithin(*layer, 10s);
    EXPECT_GE(attempts, 10'000 / 50);
    EXPECT_LE(attempts, 1'000);
    EXPECT_LE(layer->nextService(), now() + 10s + 50ms);
}

TEST_P(SocketLineTest, APeerThatAcceptsAndHangsUpIsNotHammered)
{
    m_listening->close();
    m_listening->open(now());
    const auto layer = newcomer();
    HostLinkTime time = now();
    for (int i = 0; i < 7; ++i) {
        ASSERT_TRUE(comeUp(*m_listening, *layer));
        m_listening->close();
        m_listening = m_line.listening();
        m_listening->open(now());
        ASSERT_TRUE(serviceUntil({layer.get()}, [&] {
            time = now();
            readNow(*layer);
            return layer->lineNumber() == 0;
        }));
    }
    EXPECT_GE(layer->nextService(), time + 20ms);
}

TEST_P(SocketLineTest, ALineOnWhichSomebodyListensIsNotTakenButWaitedFor)
{
    const LinkLogCapture log;
    const auto first = newcomer();
    ASSERT_TRUE(comeUp(*m_listening, *first));
    const auto other = m_line.listening();
    other->open(now());
    attemptsWithin(*other, 3s);
    EXPECT_EQ(log.count("somebody else listens there"), 1u);
    EXPECT_EQ(other->lineNumber(), 0u);
    EXPECT_LT(other->nextService(), now() + 5s);
    m_listening->service(now());
    EXPECT_NE(m_listening->lineNumber(), 0u);

    m_listening.reset();
    other->service(other->nextService());
    const auto second = newcomer();
    EXPECT_TRUE(comeUp(*other, *second));
}

class UnixLayerTest : public ::testing::Test
{
protected:
    std::unique_ptr<Layer> listening() const { return makeLayer("unix", m_path, true); }
    std::unique_ptr<Layer> connecting() const { return makeLayer("unix", m_path, false); }

    Layer::Properties properties(bool listens) const
    {
        Layer::Properties properties;
        properties.setString(Layer::Device, m_path);
        properties.setInt(Layer::Listen, listens ? 1 : 0);
        return properties;
    }

    const TemporaryDirectory m_directory;
    const std::string m_path = m_directory.file("link");
};

TEST_F(UnixLayerTest, TheSocketFileIsForItsOwnerOnlyAndGoesAwayOnClose)
{
    const auto layer = listening();
    layer->open(now());
    EXPECT_EQ(modeOf(m_path), mode_t(S_IFSOCK | S_IRUSR | S_IWUSR));
    layer->close();
    EXPECT_EQ(modeOf(m_path), 0u);
}

TEST_F(UnixLayerTest, TheSocketFileOfAKilledProcessIsTakenOver)
{
    leaveSocketBehind(m_path);
    const auto layer = listening();
    layer->open(now());
    const auto peer = connecting();
    peer->open(now());
    EXPECT_TRUE(comeUp(*layer, *peer));
    EXPECT_EQ(modeOf(m_path), mode_t(S_IFSOCK | S_IRUSR | S_IWUSR));
}

TEST_F(UnixLayerTest, NothingButTheSocketFileIsLeftBeside)
{
    const auto layer = listening();
    layer->open(now());
    const std::filesystem::directory_iterator files(m_directory.file(""));
    EXPECT_EQ(std::distance(begin(files), end(files)), 1);
}

TEST_F(UnixLayerTest, ADirectoryThatSomebodyElseHasLockedIsNoHindrance)
{
    const FileDescriptor other(::open(m_directory.file("").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_EQ(::flock(other.get(), LOCK_EX), 0);
    const auto layer = listening();
    layer->open(now());
    EXPECT_NE(modeOf(m_path), 0u);
}

TEST_F(UnixLayerTest, ASideThatIsAboutToListenIsWaitedForWithoutAWord)
{
    const LinkLogCapture log;
    FileDescriptor other(::open((m_path + ".start.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(::flock(other.get(), LOCK_EX), 0);
    const auto layer = listening();
    layer->open(now());
    EXPECT_EQ(modeOf(m_path), 0u);
    other.reset();
    layer->service(layer->nextService());
    EXPECT_NE(modeOf(m_path), 0u);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(UnixLayerTest, AFileThatIsNoSocketIsLeftAlone)
{
    const LinkLogCapture log;
    std::ofstream(m_path) << "precious";
    const auto layer = listening();
    layer->open(now());
    attemptsWithin(*layer, 3s);
    layer->close();
    EXPECT_EQ(log.count("not a socket"), 1u);
    EXPECT_EQ(std::filesystem::file_size(m_path), 8u);
}

TEST_F(UnixLayerTest, AnotherOnesSocketFileStaysOnClose)
{
    const auto layer = listening();
    layer->open(now());
    std::filesystem::remove(m_path);
    const auto other = listening();
    other->open(now());
    layer->close();
    EXPECT_NE(modeOf(m_path), 0u);
}

TEST_F(UnixLayerTest, ADirectoryThatIsMissingIsSaidOnceAndWaitedFor)
{
    const LinkLogCapture log;
    const std::string path = m_directory.file("later/link");
    const auto layer = makeLayer("unix", path, true);
    layer->open(now());
    attemptsWithin(*layer, 3s);
    EXPECT_EQ(log.lines().size(), 1u);
    std::filesystem::create_directory(m_directory.file("later"));
    layer->service(layer->nextService());
    EXPECT_NE(modeOf(path), 0u);
}

TEST_F(UnixLayerTest, APathThatNoSocketCanHaveIsSaidOnceAndNotTriedAgain)
{
    for (const bool listens : {true, false}) {
        for (const std::string& path : {std::string(108, 'x'), std::string()}) {
            const LinkLogCapture log;
            const auto layer = makeLayer("unix", path, listens);
            layer->open(now());
            EXPECT_EQ(layer->nextService(), HostLinkTime::max());
            EXPECT_EQ(log.count("1 to 107 bytes, this one has " + std::to_string(path.size())), 1u);
        }
    }
}

TEST_F(UnixLayerTest, ThePathMayBeAsLongAsASocketsPathCanBe)
{
    const std::string path = m_directory.file(std::string(106 - m_directory.file("").size() + 1, 'x'));
    ASSERT_EQ(path.size(), 107u);
    const auto layer = makeLayer("unix", path, true);
    const auto peer = makeLayer("unix", path, false);
    layer->open(now());
    peer->open(now());
    EXPECT_TRUE(comeUp(*layer, *peer));
}

/// Its connections cannot be made fit to carry bytes.
class UnfitLayer : public UnixLayer
{
public:
    using UnixLayer::UnixLayer;

protected:
    bool prepare(int) override
    {
        errno = ENOBUFS;
        return false;
    }
};

TEST_F(UnixLayerTest, AConnectionThatCannotBePreparedIsSaidOnceByTheListeningSide)
{
    const LinkLogCapture log;
    UnfitLayer layer(properties(true));
    layer.open(now());
    for (int i = 0; i < 3; ++i) {
        const auto peer = connecting();
        peer->open(now());
        ASSERT_TRUE(serviceUntil({&layer}, [&] {
            readNow(*peer);
            return peer->lineNumber() == 0;
        }));
    }
    EXPECT_EQ(log.count("cannot take a connection: No buffer space available"), 1u);
    EXPECT_EQ(layer.lineNumber(), 0u);
}

TEST_F(UnixLayerTest, AConnectionThatCannotBePreparedIsSaidOnceByTheConnectingSide)
{
    const LinkLogCapture log;
    const auto peer = listening();
    peer->open(now());
    UnfitLayer layer(properties(false));
    layer.open(now());
    EXPECT_GE(attemptsWithin(layer, 3s), 2);
    EXPECT_EQ(log.count("cannot connect: No buffer space available"), 1u);
    EXPECT_EQ(layer.lineNumber(), 0u);
}

TEST_F(UnixLayerTest, ASideWithoutListenConnects)
{
    Layer::Properties properties;
    properties.setString(Layer::Device, m_path);
    const auto layer = Layer::create("unix", properties);
    layer->open(now());
    EXPECT_EQ(modeOf(m_path), 0u);
}

class TcpLayerTest : public ::testing::Test
{
protected:
    static bool meet(const std::string& listening, const std::string& connecting)
    {
        const auto layer = makeLayer("tcp", listening, true);
        const auto peer = makeLayer("tcp", connecting, false);
        layer->open(now());
        peer->open(now());
        return comeUp(*layer, *peer);
    }

    /// A machine without /etc/hosts may not.
    static bool knowsLocalhost()
    {
        addrinfo* found = nullptr;
        const bool known = ::getaddrinfo("localhost", nullptr, nullptr, &found) == 0;
        if (known) {
            ::freeaddrinfo(found);
        }
        return known;
    }

    const std::string m_port = std::to_string(freePort());
};

TEST_F(TcpLayerTest, TakesAnIPv4Address)
{
    EXPECT_TRUE(meet("127.0.0.1:" + m_port, "127.0.0.1:" + m_port));
}

TEST_F(TcpLayerTest, TakesAName)
{
    if (!knowsLocalhost()) {
        GTEST_SKIP() << "this machine has no name of its own";
    }
    EXPECT_TRUE(meet("localhost:" + m_port, "localhost:" + m_port));
}

TEST_F(TcpLayerTest, ANameListensOnTheIPv4AddressToo)
{
    if (!knowsLocalhost()) {
        GTEST_SKIP() << "this machine has no name of its own";
    }
    EXPECT_TRUE(meet("localhost:" + m_port, "127.0.0.1:" + m_port));
}

TEST_F(TcpLayerTest, WithoutAHostItListensEverywhere)
{
    EXPECT_TRUE(meet(":" + m_port, "127.0.0.1:" + m_port));
}

TEST_F(TcpLayerTest, TakesAnIPv6AddressInBrackets)
{
    const FileDescriptor probe(::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in6 loopback{};
    loopback.sin6_family = AF_INET6;
    loopback.sin6_addr = in6addr_loopback;
    if (!probe || ::bind(probe.get(), reinterpret_cast<sockaddr*>(&loopback), sizeof loopback) != 0) {
        GTEST_SKIP() << "this machine has no IPv6";
    }
    EXPECT_TRUE(meet("[::1]:" + m_port, "[::1]:" + m_port));
}

TEST_F(TcpLayerTest, WhatIsNoHostAndPortIsSaidOnceAndNotTriedAgain)
{
    for (const char* device :
         {"", "host", "host:", "host:0", "host:65536", "host:-1", "host:x", "host:80x", "::1:80"}) {
        for (const bool listens : {true, false}) {
            const LinkLogCapture log;
            const auto layer = makeLayer("tcp", device, listens);
            layer->open(now());
            EXPECT_EQ(layer->nextService(), HostLinkTime::max()) << device;
            EXPECT_EQ(log.count("not HOST:PORT"), 1u) << device;
        }
    }
}

TEST_F(TcpLayerTest, ANameThatIsUnknownIsSaid)
{
    const LinkLogCapture log;
    const auto layer = makeLayer("tcp", "no-such-host.invalid:" + m_port, false);
    layer->open(now());
    EXPECT_TRUE(
        serviceUntil({layer.get()}, [&] { return log.count("cannot find no-such-host.invalid") > 0; }));
    EXPECT_NE(layer->nextService(), HostLinkTime::max());
}
