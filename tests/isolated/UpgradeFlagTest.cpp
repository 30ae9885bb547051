#include <filesystem>
#include <fstream>

#include "platform/sdk/CMSetDataRequest.h"
#include "support/PrivateRoot.h"
#include "support/WorkerFixture.h"

namespace
{

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

constexpr const char* kDirectory = "/media/settings/settings";
constexpr const char* kFlagOfOmbrel = "/media/settings/settings/sentOmbrelUpgradeInProgress";
constexpr const char* kStatus = "MSG_SetState STA_SomUpgradeStatus=u8:4";

/// The appliance's settings, empty at first, and a worker that is told of an upgrade under way.
class UpgradeFlagTest : public WorkerFixture
{
protected:
    UpgradeFlagTest() { fs::create_directories(kDirectory); }

    /// Tells the worker through its node; it has answered, with an empty value, on return.
    static void tellOfUpgrade()
    {
        const CMVoidReply reply;
        CMRoot()->invoke(VornHostLinkSendSoftwareUpgradeInProgressPath(), {}, reply);
        ASSERT_TRUE(waitFor([&] { return reply.isFinished(); }));
        EXPECT_FALSE(reply.error().isError()) << reply.error().Message().toStdString();
        EXPECT_FALSE(reply.value().isValid());
    }

    static void expectEmptyFlagAlone()
    {
        EXPECT_TRUE(fs::is_regular_file(kFlagOfOmbrel));
        EXPECT_EQ(fs::file_size(kFlagOfOmbrel), 0U);
        EXPECT_EQ(std::distance(fs::directory_iterator(kDirectory), {}), 1);
    }

    TemporaryMount m_settings{"/media/settings"};
};

TEST_F(UpgradeFlagTest, TheHostIsToldAndAnEmptyFlagIsLeft)
{
    tellOfUpgrade();
    EXPECT_EQ(receive(), kStatus);
    EXPECT_TRUE(nothingSent());
    expectEmptyFlagAlone();
}

TEST_F(UpgradeFlagTest, AFlagThatIsThereIsEmptied)
{
    std::ofstream(kFlagOfOmbrel) << "of an earlier release";
    ASSERT_GT(fs::file_size(kFlagOfOmbrel), 0U);
    tellOfUpgrade();
    EXPECT_EQ(receive(), kStatus);
    expectEmptyFlagAlone();
}

TEST_F(UpgradeFlagTest, ToldTwiceTheHostIsToldTwiceAndOneEmptyFlagIsLeft)
{
    tellOfUpgrade();
    tellOfUpgrade();
    EXPECT_EQ(receive(), kStatus);
    EXPECT_EQ(receive(), kStatus);
    EXPECT_TRUE(nothingSent());
    expectEmptyFlagAlone();
}

TEST_F(UpgradeFlagTest, WithoutItsDirectoryTheHostIsToldAllTheSame)
{
    fs::remove(kDirectory);
    m_log.clear();
    tellOfUpgrade();
    EXPECT_EQ(receive(), kStatus);
    EXPECT_TRUE(nothingSent());
    EXPECT_FALSE(fs::exists(kDirectory)) << "the directory is not the worker's to make";
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(UpgradeFlagTest, WhereNothingCanBeWrittenTheHostIsToldAllTheSame)
{
    m_settings.makeReadOnly();
    m_log.clear();
    tellOfUpgrade();
    EXPECT_EQ(receive(), kStatus);
    EXPECT_TRUE(nothingSent());
    EXPECT_FALSE(fs::exists(kFlagOfOmbrel));
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(UpgradeFlagTest, AFlagThatCannotBeEmptiedStays)
{
    std::ofstream(kFlagOfOmbrel) << "of an earlier release";
    m_settings.makeReadOnly();
    tellOfUpgrade();
    EXPECT_EQ(receive(), kStatus);
    EXPECT_GT(fs::file_size(kFlagOfOmbrel), 0U);
}

TEST_F(UpgradeFlagTest, ADirectoryInItsPlaceIsLeftAlone)
{
    fs::create_directory(kFlagOfOmbrel);
    tellOfUpgrade();
    EXPECT_EQ(receive(), kStatus);
    EXPECT_TRUE(fs::is_directory(kFlagOfOmbrel));
}

TEST_F(UpgradeFlagTest, AHostThatCannotBeToldStillLeavesTheFlag)
{
    m_worker->m_transport->stop();
    tellOfUpgrade();
    expectEmptyFlagAlone();
}

/// Says of each message that is sent whether the flag was there.
class FlagWatchingTransport : public HostLinkTransportLayer
{
public:
    explicit FlagWatchingTransport(HostLinkTransportLayer* link)
        : HostLinkTransportLayer(HostLinkPhysicalLayer::create("none", {})), m_link(link)
    {
    }

    int send(const ByteArray& message) override
    {
        m_sent.push_back(HostLinkPrinter::printMessage(message)
                         + (fs::exists(kFlagOfOmbrel) ? " behind" : " before") + " the flag");
        return m_link->send(message);
    }

    Texts m_sent;

private:
    HostLinkTransportLayer* m_link;
};

TEST_F(UpgradeFlagTest, TheHostIsToldFirstThenComesTheFlagThenTheAnswer)
{
    HostLinkTransportLayer* link = m_worker->m_transport;
    FlagWatchingTransport watching(link);
    m_worker->m_transport = &watching;
    m_log.clear();

    const CMVoidReply reply;
    bool flagAtAnswer = false;
    Texts tracesAtAnswer;
    reply.onResult(nullptr, [&](const QVariant&) {
        flagAtAnswer = fs::exists(kFlagOfOmbrel);
        tracesAtAnswer = m_log.traces();
    });
    CMRoot()->invoke(VornHostLinkSendSoftwareUpgradeInProgressPath(), {}, reply);
    EXPECT_FALSE(fs::exists(kFlagOfOmbrel)) << "the node's requests are queued";
    ASSERT_TRUE(waitFor([&] { return reply.isFinished(); }));
    m_worker->m_transport = link;

    EXPECT_EQ(watching.m_sent, Texts{std::string(kStatus) + " before the flag"});
    EXPECT_TRUE(flagAtAnswer);
    const std::string function =
        "void CMHostLinkWorker::on_tarkoSendSoftwareUpgradeInProgress_invoked(const CMSetDataRequest&)";
    EXPECT_EQ(tracesAtAnswer, Texts{"Enter " + function});
    EXPECT_EQ(m_log.traces(), (Texts{"Enter " + function, "Leave " + function}));
}

} // namespace
