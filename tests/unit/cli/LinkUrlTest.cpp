#include "cli/LinkUrl.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <CLI/Error.hpp>
#include <filesystem>

#include "support/Texts.h"

namespace
{
constexpr auto kDevice = HostLinkPhysicalLayer::Device;
constexpr auto kListen = HostLinkPhysicalLayer::Listen;
constexpr auto kFaults = HostLinkPhysicalLayer::Faults;
constexpr std::size_t kLongestPath = sizeof(sockaddr_un::sun_path) - 1;

std::string errorOf(const std::string& url, LinkUrl::Side side = LinkUrl::Side::Host)
{
    try {
        LinkUrl::parse(url, side);
    } catch (const CLI::ValidationError& error) {
        return error.what();
    }
    return {};
}

/// A run-time directory of its own for each test.
class UserFile : public testing::Test
{
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/userfile-test-XXXXXX";
        m_directory = mkdtemp(pattern);
        setenv("XDG_RUNTIME_DIR", m_directory.c_str(), 1);
    }

    void TearDown() override
    {
        unsetenv("XDG_RUNTIME_DIR");
        std::filesystem::remove_all(m_directory);
    }

    std::string m_directory;
};
} // namespace

TEST(LinkUrl, UnixLineIsConnectedByTheHost)
{
    const LinkUrl url = LinkUrl::parse("unix:/tmp/a.socket", LinkUrl::Side::Host);
    EXPECT_EQ(url.text, "unix:/tmp/a.socket");
    EXPECT_EQ(url.type, "unix");
    EXPECT_EQ(url.properties.string(kDevice), "/tmp/a.socket");
    EXPECT_EQ(url.properties.integer(kListen), 0);
}

TEST(LinkUrl, UnixLineIsListenedOnByTheModule)
{
    EXPECT_EQ(LinkUrl::parse("unix:/tmp/a.socket", LinkUrl::Side::Module).properties.integer(kListen), 1);
}

TEST(LinkUrl, SocketPathMayUseEveryByteOfAnAddress)
{
    const std::string longest(kLongestPath, 'p');
    EXPECT_EQ(LinkUrl::parse("unix:" + longest, LinkUrl::Side::Host).properties.string(kDevice), longest);
}

TEST(LinkUrl, SocketPathThatFitsNoAddressIsRefused)
{
    const std::string error = errorOf("unix:" + std::string(kLongestPath + 1, 'p'));
    EXPECT_TRUE(contains(error, std::to_string(kLongestPath + 1) + " bytes")) << error;
    EXPECT_TRUE(contains(error, std::to_string(kLongestPath))) << error;
}

TEST(LinkUrl, EmptySocketPathIsRefused)
{
    EXPECT_TRUE(contains(errorOf("unix:"), "path"));
}

TEST(LinkUrl, TcpLineKeepsHostAndPort)
{
    const LinkUrl url = LinkUrl::parse("tcp:module.local:7000", LinkUrl::Side::Module);
    EXPECT_EQ(url.text, "tcp:module.local:7000");
    EXPECT_EQ(url.type, "tcp");
    EXPECT_EQ(url.properties.string(kDevice), "module.local:7000");
    EXPECT_EQ(url.properties.integer(kListen), 1);
}

TEST(LinkUrl, TcpHostMayBeAnAddressInBrackets)
{
    EXPECT_EQ(LinkUrl::parse("tcp:[::1]:7000", LinkUrl::Side::Host).properties.string(kDevice), "[::1]:7000");
}

TEST(LinkUrl, TcpLineWithoutHostOrPortIsRefused)
{
    for (const char* url : {"tcp:", "tcp:localhost", "tcp::7000", "tcp:::1:7000", "tcp:[]:7000",
                            "tcp:[::1:7000", "tcp:[::1]7000", "tcp:a]:7000"}) {
        EXPECT_TRUE(contains(errorOf(url), "tcp: needs a host and a port")) << url << ": " << errorOf(url);
    }
}

TEST(LinkUrl, PortsAreOneToSixtyFiveThousand)
{
    for (const char* port : {"", "0", "65536", "99999999999", "-1", "+1", "7a", " 7"}) {
        EXPECT_TRUE(contains(errorOf(std::string("tcp:localhost:") + port), "is no port")) << port;
    }
    for (const char* port : {"1", "65535"}) {
        EXPECT_EQ(errorOf(std::string("tcp:localhost:") + port), "");
    }
}

TEST(LinkUrl, SerialLineHasADeviceAndTheLayersDefaults)
{
    for (const LinkUrl::Side side : {LinkUrl::Side::Host, LinkUrl::Side::Module}) {
        const LinkUrl url = LinkUrl::parse("serial:/dev/ttyUSB0", side);
        EXPECT_EQ(url.text, "serial:/dev/ttyUSB0");
        EXPECT_EQ(url.type, "serial");
        EXPECT_EQ(url.properties.string(kDevice), "/dev/ttyUSB0");
        EXPECT_EQ(url.properties.integer(kListen), std::nullopt);
        EXPECT_EQ(url.properties.integer(HostLinkPhysicalLayer::BitRate), std::nullopt);
        EXPECT_EQ(url.properties.string(HostLinkPhysicalLayer::Parity), std::nullopt);
        EXPECT_EQ(url.properties.integer(HostLinkPhysicalLayer::StopBits), std::nullopt);
    }
}

TEST(LinkUrl, SerialLineTakesRateParityAndStopBits)
{
    const std::string text = "serial:/dev/ttyS1?parity=odd&baud=31250&stop=2";
    const LinkUrl url = LinkUrl::parse(text, LinkUrl::Side::Host);
    EXPECT_EQ(url.text, text);
    EXPECT_EQ(url.properties.string(kDevice), "/dev/ttyS1");
    EXPECT_EQ(url.properties.integer(HostLinkPhysicalLayer::BitRate), 31250);
    EXPECT_EQ(url.properties.string(HostLinkPhysicalLayer::Parity), "odd");
    EXPECT_EQ(url.properties.integer(HostLinkPhysicalLayer::StopBits), 2);
    for (const char* parity : {"none", "even"}) {
        EXPECT_EQ(LinkUrl::parse(std::string("serial:/dev/ttyS1?parity=") + parity, LinkUrl::Side::Module)
                      .properties.string(HostLinkPhysicalLayer::Parity),
                  parity);
    }
}

TEST(LinkUrl, SerialSettingsThatCannotBeAreRefused)
{
    for (const char* url : {"serial:", "serial:?baud=9600"}) {
        EXPECT_TRUE(contains(errorOf(url), "serial: needs a device")) << url;
    }
    for (const char* rate : {"", "0", "-9600", "+9600", "9600x", " 9600", "9.6", "99999999999"}) {
        EXPECT_TRUE(
            contains(errorOf(std::string("serial:/dev/ttyS1?baud=") + rate), "baud is a positive number"))
            << rate;
    }
    for (const char* parity : {"", "mark", "Even", "n"}) {
        EXPECT_TRUE(contains(errorOf(std::string("serial:/dev/ttyS1?parity=") + parity), "none, even or odd"))
            << parity;
    }
    for (const char* stop : {"", "0", "3", "1.5"}) {
        EXPECT_TRUE(contains(errorOf(std::string("serial:/dev/ttyS1?stop=") + stop), "stop is 1 or 2"))
            << stop;
    }
    EXPECT_TRUE(contains(errorOf("serial:/dev/ttyS1?speed=9600"), "'speed' is no parameter"));
    EXPECT_TRUE(contains(errorOf("serial:/dev/ttyS1?baud=9600&flow=rts"), "'flow' is no parameter"));
    EXPECT_TRUE(contains(errorOf("serial:/dev/ttyS1?baud"), "'baud' is no NAME=VALUE"));
    EXPECT_TRUE(contains(errorOf("serial:/dev/ttyS1?=9600"), "'' is no parameter"));
    EXPECT_TRUE(contains(errorOf("serial:/dev/ttyS1?&baud=9600"), "'' is no NAME=VALUE"));
}

TEST(LinkUrl, I2cIsForModulesOnly)
{
    const LinkUrl url = LinkUrl::parse("i2c:/dev/i2c-1", LinkUrl::Side::Module);
    EXPECT_EQ(url.text, "i2c:/dev/i2c-1");
    EXPECT_EQ(url.type, "i2c");
    EXPECT_EQ(url.properties.string(kDevice), "/dev/i2c-1");
    EXPECT_TRUE(contains(errorOf("i2c:", LinkUrl::Side::Module), "i2c: needs a device"));
    EXPECT_TRUE(contains(errorOf("i2c:/dev/i2c-1"), "a host is the bus's slave"));
}

TEST(LinkUrl, NativeIsForModulesOnly)
{
    const LinkUrl native = LinkUrl::parse("native", LinkUrl::Side::Module);
    EXPECT_EQ(native.text, "native");
    EXPECT_EQ(native.type, "");
    EXPECT_TRUE(contains(errorOf("native", LinkUrl::Side::Host), "unix:PATH, tcp:HOST:PORT or emulated"));
}

TEST(LinkUrl, AnythingElseIsAnsweredWithTheKnownForms)
{
    for (const char* url : {"", "foo", "unix", "/tmp/a.socket", "UNIX:/tmp/a", "emulated:", "native:x"}) {
        EXPECT_TRUE(contains(errorOf(url), "unix:PATH, tcp:HOST:PORT or emulated")) << url;
        EXPECT_TRUE(contains(errorOf(url, LinkUrl::Side::Module), "emulated or native")) << url;
    }
}

TEST(LinkUrl, FaultsStandBehindAQuestionMark)
{
    const LinkUrl url =
        LinkUrl::parse("unix:/tmp/a.socket?drop=0.001&delay.in=5&seed=7", LinkUrl::Side::Host);
    EXPECT_EQ(url.type, "unix");
    EXPECT_EQ(url.text, "unix:/tmp/a.socket?drop=0.001&delay.in=5&seed=7");
    EXPECT_EQ(url.properties.string(kDevice), "/tmp/a.socket");
    EXPECT_EQ(url.properties.string(kFaults), "drop=0.001&delay.in=5&seed=7");
    EXPECT_EQ(LinkUrl::parse("tcp:[::1]:7000?seed=1", LinkUrl::Side::Module).properties.string(kDevice),
              "[::1]:7000");
    EXPECT_EQ(LinkUrl::parse("unix:/tmp/a.socket", LinkUrl::Side::Host).properties.string(kFaults),
              std::nullopt);
}

TEST(LinkUrl, LinesOfDevicesTakeFaultsBesideTheirOwnParameters)
{
    const LinkUrl serial =
        LinkUrl::parse("serial:/dev/ttyS1?drop=0.001&baud=9600&seed=7&stop=2", LinkUrl::Side::Host);
    EXPECT_EQ(serial.text, "serial:/dev/ttyS1?baud=9600&stop=2&drop=0.001&seed=7");
    EXPECT_EQ(serial.properties.string(kDevice), "/dev/ttyS1");
    EXPECT_EQ(serial.properties.integer(HostLinkPhysicalLayer::BitRate), 9600);
    EXPECT_EQ(serial.properties.string(kFaults), "drop=0.001&seed=7");
    EXPECT_EQ(LinkUrl::parse("serial:/dev/ttyS1?baud=9600", LinkUrl::Side::Host).properties.string(kFaults),
              std::nullopt);
    const LinkUrl bus = LinkUrl::parse("i2c:/dev/i2c-1?flip=0.1&seed=1", LinkUrl::Side::Module);
    EXPECT_EQ(bus.properties.string(kDevice), "/dev/i2c-1");
    EXPECT_EQ(bus.properties.string(kFaults), "flip=0.1&seed=1");
    EXPECT_TRUE(contains(errorOf("serial:/dev/ttyS1?bad=9600"), "did you mean baud"));
    EXPECT_TRUE(contains(errorOf("i2c:/dev/i2c-1?baud=9600", LinkUrl::Side::Module),
                         "'baud' is no parameter of this link"));
}

TEST(LinkUrl, SeedThatIsNotGivenIsDrawnAndSaid)
{
    testing::internal::CaptureStderr();
    const LinkUrl url = LinkUrl::parse("unix:/tmp/a.socket?drop=0.001", LinkUrl::Side::Host);
    const std::string said = testing::internal::GetCapturedStderr();
    const std::string faults = url.properties.string(kFaults).value_or("");
    ASSERT_EQ(faults.find("drop=0.001&seed="), 0u) << faults;
    EXPECT_EQ(said, "hostlink: the faults of this link come from " + faults.substr(11) + "\n");
    EXPECT_EQ(url.text, "unix:/tmp/a.socket?" + faults);
}

TEST(LinkUrl, SeedThatIsGivenIsNotSaid)
{
    testing::internal::CaptureStderr();
    LinkUrl::parse("unix:/tmp/a.socket?drop=0.001&seed=7", LinkUrl::Side::Host);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(LinkUrl, WrongFaultIsAnsweredWithWhatIsRight)
{
    EXPECT_TRUE(
        contains(errorOf("unix:/a?drop=1.5"), "drop is a probability per byte, a number from 0 to 1"));
    EXPECT_TRUE(contains(errorOf("unix:/a?rate=-1"), "rate is bytes per second, a whole number from 1"));
    EXPECT_TRUE(contains(errorOf("unix:/a?seed=x"), "seed is what all chance comes from"));
    EXPECT_TRUE(contains(errorOf("unix:/a?drop=0&drop=0"), "drop is given twice"));
}

TEST(LinkUrl, UnknownParameterIsAnsweredWithTheNearestOnes)
{
    EXPECT_TRUE(
        contains(errorOf("unix:/a?drp=0.1"), "'drp' is no parameter of this link; did you mean drop"));
    EXPECT_TRUE(contains(errorOf("unix:/a?delay.inn=1"), "did you mean delay.in"));
    EXPECT_TRUE(contains(errorOf("unix:/a?frobnicate=1"),
                         "there are drop, flip, dup, insert, burst, split, merge, delay, rate, cut, outage, "
                         "seed, most faults also with .in or .out"));
}

TEST(LinkUrl, ParameterWithoutAValueIsRefused)
{
    EXPECT_TRUE(contains(errorOf("unix:/a?drop"), "'drop' is no NAME=VALUE"));
    EXPECT_TRUE(contains(errorOf("unix:/a?drop=0&&flip=0"), "'' is no NAME=VALUE"));
    EXPECT_EQ(errorOf("unix:/a?"), "");
}

TEST(LinkUrl, NativeTakesNoParameters)
{
    EXPECT_TRUE(contains(errorOf("native?drop=0.1", LinkUrl::Side::Module), "takes no parameters"));
}

TEST_F(UserFile, EmulatedTakesFaultsToo)
{
    const LinkUrl url = LinkUrl::parse("emulated?flip=0.1&seed=3", LinkUrl::Side::Host);
    EXPECT_EQ(url.text, "unix:" + m_directory + "/hostlink/link.socket?flip=0.1&seed=3");
    EXPECT_EQ(url.properties.string(kFaults), "flip=0.1&seed=3");
}

TEST_F(UserFile, EmulatedIsTheSameUnixSocketForBothSides)
{
    const LinkUrl host = LinkUrl::parse("emulated", LinkUrl::Side::Host);
    const LinkUrl module = LinkUrl::parse("emulated", LinkUrl::Side::Module);
    EXPECT_EQ(host.text, "unix:" + m_directory + "/hostlink/link.socket");
    EXPECT_EQ(host.text, module.text);
    EXPECT_EQ(host.type, "unix");
    EXPECT_EQ(host.properties.integer(kListen), 0);
    EXPECT_EQ(module.properties.integer(kListen), 1);
}

TEST_F(UserFile, ItsDirectoryIsCreatedForItsOwnerOnly)
{
    EXPECT_EQ(userFile("a"), m_directory + "/hostlink/a");
    struct stat status {
    };
    ASSERT_EQ(stat((m_directory + "/hostlink").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0700u);
    EXPECT_EQ(userFile("b"), m_directory + "/hostlink/b");
}

TEST_F(UserFile, DirectoryThatOthersMayUseIsRefused)
{
    ASSERT_EQ(mkdir((m_directory + "/hostlink").c_str(), 0755), 0);
    ASSERT_EQ(chmod((m_directory + "/hostlink").c_str(), 0755), 0);
    EXPECT_THROW(userFile("a"), std::runtime_error);
}

TEST_F(UserFile, LinkToADirectoryIsRefused)
{
    ASSERT_EQ(mkdir((m_directory + "/elsewhere").c_str(), 0700), 0);
    ASSERT_EQ(symlink("elsewhere", (m_directory + "/hostlink").c_str()), 0);
    EXPECT_THROW(userFile("a"), std::runtime_error);
}

TEST_F(UserFile, StandsBelowTmpWithoutARuntimeDirectory)
{
    const std::string expected = "/tmp/hostlink-" + std::to_string(geteuid()) + "/a";
    for (const char* directory : {"", "relative", "/no/such/directory"}) {
        setenv("XDG_RUNTIME_DIR", directory, 1);
        EXPECT_EQ(userFile("a"), expected) << directory;
    }
    unsetenv("XDG_RUNTIME_DIR");
    EXPECT_EQ(userFile("a"), expected);
}
