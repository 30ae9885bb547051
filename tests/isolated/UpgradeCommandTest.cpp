#include <QElapsedTimer>
#include <filesystem>
#include <fstream>

#include "modules/hostlink/proxy/TarkoUpgradeProxy.h"
#include "support/PrivateRoot.h"
#include "support/ProxyFixture.h"

namespace
{

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

constexpr const char* kFlag = "/hostUpgradeRequestFlag";
constexpr const char* kRecord = "/tmp/calls";
constexpr const char* kRestart = R"(restart {"reason":3,"target":3}, flag 0)";
constexpr const char* kRestartWithFlag = R"(restart {"reason":3,"target":3}, flag 1)";

Texts linesOf(const std::string& file)
{
    Texts lines;
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// Makes a command that records how it was called, and ends with this status.
void writeRecorder(const std::string& name, int status)
{
    writeProgram(name,
                 "echo " + name + R"( "$#: $@" >> )" + kRecord + "\nexit " + std::to_string(status) + "\n");
}

/// The proxy with the state that whoever registers it gives it.
class UpgradeProxy : public TarkoUpgradeProxy
{
public:
    using TarkoUpgradeProxy::TarkoUpgradeProxy;
    QList<State> states() const override { return {STA_HostUpgradeStatus}; }
};

/// The upgrade commands and a power manager, which all record that they were called.
class UpgradeCommandTest : public ProxyFixture
{
protected:
    UpgradeCommandTest()
    {
        writeRecorder("fw_setenv", 0);
        writeRecorder("sfuflags", 0);
        CMActivateNode::create(&m_nodes, VornPowerManagerTargetRequestPath(), &m_nodes, recordRestart,
                               Qt::QueuedConnection);
    }

    ~UpgradeCommandTest() override
    {
        for (const char* file : {kFlag, kRecord, "/programs/fw_setenv", "/programs/sfuflags"}) {
            fs::remove_all(file);
        }
    }

    static void recordRestart(const CMSetDataRequest& request)
    {
        const VornHash target(request.data().toHash());
        std::ofstream(kRecord, std::ios::app)
            << "restart " << target.toJsonString().toStdString() << ", flag " << fs::exists(kFlag) << '\n';
        request.complete({});
    }

    void set(std::uint8_t status)
    {
        HostLinkValueMessage request(MSG_SetState);
        request.addValueUint8(STA_HostUpgradeStatus, status);
        EXPECT_EQ(write(m_proxy, request), "MSG_SetStateResponse");
    }

    static bool isRestarted()
    {
        return waitFor([] {
            const Texts calls = linesOf(kRecord);
            return !calls.empty() && calls.back().compare(0, 7, "restart") == 0;
        });
    }

    UpgradeProxy m_proxy{nullptr};
};

TEST_F(UpgradeCommandTest, TheUsbUpgradeSetsBothFlagsThenRestarts)
{
    set(8);
    ASSERT_TRUE(isRestarted());
    EXPECT_EQ(linesOf(kRecord),
              (Texts{"fw_setenv 2: usb_update_req 1", "sfuflags 4: -f update -v 1", kRestart}));
    EXPECT_FALSE(fs::exists(kFlag));
    EXPECT_EQ(m_log.errors(), Texts());
}

TEST_F(UpgradeCommandTest, TheAnswerLeavesHalfASecondBeforeEitherRestart)
{
    QElapsedTimer sinceSet;
    sinceSet.start();
    set(8);
    set(0);
    ASSERT_TRUE(isRestarted()) << "by the first of the two";
    EXPECT_GE(sinceSet.elapsed(), 500);
    EXPECT_TRUE(waitFor([] { return linesOf(kRecord).size() == 4; })) << "two commands, two restarts";
}

TEST_F(UpgradeCommandTest, CommandsThatFailDoNotKeepTheRestart)
{
    writeRecorder("fw_setenv", 1);
    writeRecorder("sfuflags", 2);
    m_proxy.on_ombrelUsbUpgradeRequested();
    EXPECT_EQ(linesOf(kRecord).size(), 3U);
    EXPECT_EQ(linesOf(kRecord).back(), kRestart);
    EXPECT_EQ(m_log.errors(), Texts());
}

TEST_F(UpgradeCommandTest, AMissingCommandDoesNotKeepTheOther)
{
    fs::remove("/programs/fw_setenv");
    m_proxy.on_ombrelUsbUpgradeRequested();
    EXPECT_EQ(linesOf(kRecord), (Texts{"sfuflags 4: -f update -v 1", kRestart}));
}

TEST_F(UpgradeCommandTest, WithoutAnyCommandTheModuleRestartsAllTheSame)
{
    fs::remove("/programs/fw_setenv");
    fs::remove("/programs/sfuflags");
    m_proxy.on_ombrelUsbUpgradeRequested();
    EXPECT_EQ(linesOf(kRecord), Texts{kRestart});
}

TEST_F(UpgradeCommandTest, TheHostsUpgradeLeavesAFlagThenRestarts)
{
    set(0);
    ASSERT_TRUE(isRestarted());
    EXPECT_EQ(linesOf(kRecord), Texts{kRestartWithFlag});
    EXPECT_TRUE(fs::is_regular_file(kFlag));
    EXPECT_EQ(fs::file_size(kFlag), 0U);
    EXPECT_EQ(m_log.infos(),
              Texts{"Created flag file to start requested host upgrade. Now restarting vorn..."});
}

TEST_F(UpgradeCommandTest, AFlagThatIsThereIsKeptAsItIs)
{
    std::ofstream(kFlag) << "of an earlier request";
    m_proxy.on_tarkoHostUpgradeRequested();
    ASSERT_TRUE(isRestarted());
    EXPECT_EQ(linesOf(kFlag), Texts{"of an earlier request"});
}

TEST_F(UpgradeCommandTest, WithoutAFlagThereIsNoRestart)
{
    fs::create_directory(kFlag); // nobody can write this one
    m_proxy.on_tarkoHostUpgradeRequested();
    EXPECT_EQ(m_log.errors(), Texts{"Unable to create host upgrade request flag file!"});
    m_proxy.on_ombrelUsbUpgradeRequested(); // its request would come behind an earlier one
    EXPECT_EQ(linesOf(kRecord).size(), 3U);
}

TEST_F(UpgradeCommandTest, WithoutAPowerManagerTheUsbUpgradeEndsAllTheSame)
{
    qDeleteAll(m_nodes.findChildren<CMActivateNode*>());
    m_proxy.on_ombrelUsbUpgradeRequested();
    EXPECT_EQ(linesOf(kRecord).size(), 2U);
}

} // namespace
