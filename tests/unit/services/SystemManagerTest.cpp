#include "services/SystemManager.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QTemporaryDir>

#include "platform/sdk/CMNode.h"
#include "platform/sdk/Paths.h"
#include "services/NodeSettings.h"
#include "support/LogCapture.h"
#include "support/WaitFor.h"

namespace
{
using Texts = std::vector<std::string>;

class SystemManagerTest : public testing::Test
{
protected:
    SystemManagerTest()
    {
        m_mute->setValue(VornValue().setBool(false));
        m_settings.adopt();
        m_mute->setValue(VornValue().setBool(true));
    }

    static CMReply<QVariant> askForReset()
    {
        CMReply<QVariant> reply;
        CMRoot()->invoke(VornSystemManagerFactoryResetPath(), VornHash(), reply);
        return reply;
    }

    const QTemporaryDir m_directory;
    const QString m_path = m_directory.filePath("state/settings.json");
    const bool m_made = QDir(m_directory.path()).mkdir("state");
    LogCapture m_log{log4cplus::TRACE_LOG_LEVEL, "Services.SystemManager"};
    CMNodes m_nodes;
    CMValueNode* m_mute = CMValueNode::create(&m_nodes, VornPlayerMutePath());
    NodeSettings m_settings{m_path, {VornPlayerMutePath()}, {std::chrono::hours(1), std::chrono::hours(1)}};
    SystemManager m_manager{&m_settings};
};
} // namespace

TEST_F(SystemManagerTest, AFactoryResetGivesTheFirstValuesAndIsAnswered)
{
    const CMReply<QVariant> reply = askForReset();
    EXPECT_FALSE(reply.isFinished());
    ASSERT_TRUE(waitFor([&] { return reply.isFinished(); }));
    EXPECT_FALSE(reply.error().isError());
    EXPECT_FALSE(reply.value().isValid());
    EXPECT_FALSE(m_mute->value().bool_());
    EXPECT_TRUE(QFile::exists(m_path));
    EXPECT_TRUE(SettingsFile(m_path).load().isEmpty());
    EXPECT_EQ(m_log.warnings(),
              Texts({"factory reset requested", "factory reset done: all settings have their first values"}));
}

TEST_F(SystemManagerTest, TwoResetsAtOnceAreBothAnswered)
{
    const CMReply<QVariant> first = askForReset();
    const CMReply<QVariant> second = askForReset();
    ASSERT_TRUE(waitFor([&] { return first.isFinished() && second.isFinished(); }));
    EXPECT_FALSE(first.error().isError());
    EXPECT_FALSE(second.error().isError());
    EXPECT_FALSE(m_mute->value().bool_());
}

TEST_F(SystemManagerTest, AResetThatDoesNotReachTheDiskIsAnError)
{
    QDir(m_directory.filePath("state")).removeRecursively();
    const CMReply<QVariant> reply = askForReset();
    ASSERT_TRUE(waitFor([&] { return reply.isFinished(); }));
    EXPECT_EQ(reply.error().Message(),
              "/systemManager/factoryReset: settings have their first values, but not after a restart: "
                  + m_path + ".new: No such file or directory");
    EXPECT_FALSE(m_mute->value().bool_());
    EXPECT_EQ(m_log.warnings(), Texts{"factory reset requested"});
}
