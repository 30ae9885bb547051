#include "services/ProfileNodes.h"

#include <gtest/gtest.h>

#include "platform/sdk/CMNode.h"
#include "platform/sdk/Paths.h"
#include "support/LogCapture.h"

namespace
{
Profile profileOf(const QString& text)
{
    QString error;
    const auto profile = Profile::parse(text, &error);
    EXPECT_TRUE(profile.has_value()) << error.toStdString();
    return profile.value_or(Profile());
}

VornValue valueAt(const CMPath& path)
{
    return VornHash(CMRoot()->getValue(path).toHash());
}
} // namespace

TEST(ProfileNodes, CreatesFirstWhatTheWorkersConstructorUses)
{
    ProfileNodes nodes(Profile::standard());
    nodes.createBeforeWorker();
    EXPECT_EQ(CMNodes::list(),
              QStringList({VornDiracActiveFilterPath().toString(), VornDiracSlotsSettingsPath().toString(),
                           VornHostLinkTcpTunnelingConfPath().toString()}));
}

TEST(ProfileNodes, CreatesAllOthersAfterTheWorker)
{
    const Profile profile = Profile::standard();
    const LogCapture log(log4cplus::WARN_LOG_LEVEL, "Services.Profile");
    ProfileNodes nodes(profile);
    nodes.createBeforeWorker();
    nodes.createAfterWorker();
    EXPECT_TRUE(log.lines().empty());
    for (auto entry = profile.values().begin(); entry != profile.values().end(); ++entry) {
        EXPECT_TRUE(valueAt(entry.key()).sameAs(entry.value())) << entry.key().toString().toStdString();
    }
}

TEST(ProfileNodes, WritesNodesThatStandAlreadyAsAnybodyWould)
{
    CMNodes other;
    CMValueNode::create(&other, CMPath("/mine"))->setValue(VornValue().setI32(7));
    CMValueNode::create(&other, CMPath("/text"))->setValue(VornValue().setString("a"));
    CMValueNode* locked = CMValueNode::create(&other, CMPath("/locked"));
    locked->setReadOnly(true);
    const LogCapture log(log4cplus::WARN_LOG_LEVEL, "Services.Profile");
    ProfileNodes nodes(profileOf(
        R"({"/mine": {"i32_": 1}, "/text": {"i32_": 2}, "/locked": {"i32_": 2}, "/new": {"i32_": 3}})"));
    nodes.createAfterWorker();
    EXPECT_EQ(valueAt(CMPath("/mine")).i32(), 1);
    EXPECT_EQ(valueAt(CMPath("/text")).string(), "a");
    EXPECT_TRUE(valueAt(CMPath("/locked")).isEmpty());
    EXPECT_EQ(valueAt(CMPath("/new")).i32(), 3);
    ASSERT_EQ(log.warnings().size(), 2U);
    EXPECT_EQ(log.warnings()[0].find("the profile's value is not used: /locked"), 0U) << log.warnings()[0];
    EXPECT_EQ(log.warnings()[1].find("the profile's value is not used: /text"), 0U) << log.warnings()[1];
}

TEST(ProfileNodes, TakesItsNodesAway)
{
    {
        ProfileNodes nodes(Profile::standard());
        nodes.createBeforeWorker();
        nodes.createAfterWorker();
    }
    EXPECT_TRUE(CMNodes::list().isEmpty());
}
