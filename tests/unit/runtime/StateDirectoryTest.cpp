#include "runtime/StateDirectory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

namespace
{
class StateDirectoryTest : public testing::Test
{
protected:
    unsigned mode() const
    {
        struct stat status {
        };
        EXPECT_EQ(::stat(qPrintable(m_path), &status), 0);
        return status.st_mode & 0777;
    }

    QTemporaryDir m_directory;
    QString m_path = m_directory.filePath("some/state");
    QString m_error;
};
} // namespace

TEST_F(StateDirectoryTest, IsMadeForItsOwnerOnly)
{
    StateDirectory state;
    ASSERT_TRUE(state.open(m_path, &m_error)) << m_error.toStdString();
    EXPECT_EQ(mode(), 0700U);
    EXPECT_EQ(state.file("name"), m_path + "/name");
}

TEST_F(StateDirectoryTest, IsLeftAsItIsWhereItStands)
{
    QDir().mkpath(m_path);
    ASSERT_EQ(::chmod(qPrintable(m_path), 0550), 0);
    StateDirectory state;
    ASSERT_TRUE(state.open(m_path, &m_error)) << m_error.toStdString();
    EXPECT_EQ(mode(), 0550U);
    EXPECT_TRUE(QDir(m_path).isEmpty());
    ASSERT_EQ(::chmod(qPrintable(m_path), 0700), 0);
}

TEST_F(StateDirectoryTest, IsForOneAtATime)
{
    {
        StateDirectory first;
        ASSERT_TRUE(first.open(m_path, &m_error));
        StateDirectory second;
        EXPECT_FALSE(second.open(m_path, &m_error));
        EXPECT_EQ(m_error, "the state directory " + m_path + " is in use by another module");
        StateDirectory elsewhere;
        EXPECT_TRUE(elsewhere.open(m_directory.filePath("other"), &m_error));
    }
    StateDirectory next;
    EXPECT_TRUE(next.open(m_path, &m_error)) << m_error.toStdString();
}

TEST_F(StateDirectoryTest, OneThatWasRefusedDoesNotFreeIt)
{
    StateDirectory first;
    ASSERT_TRUE(first.open(m_path, &m_error));
    EXPECT_FALSE(StateDirectory().open(m_path, &m_error));
    EXPECT_FALSE(StateDirectory().open(m_path, &m_error));
}

TEST_F(StateDirectoryTest, AFileInItsPlaceIsAnError)
{
    QFile file(m_directory.filePath("file"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    StateDirectory state;
    EXPECT_FALSE(state.open(file.fileName(), &m_error));
    EXPECT_EQ(m_error, "cannot create the state directory " + file.fileName());
}
