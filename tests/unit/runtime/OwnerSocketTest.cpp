#include "runtime/OwnerSocket.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cstring>

namespace
{
class OwnerSocketTest : public testing::Test
{
protected:
    std::string listenError(const QString& path)
    {
        OwnerSocket socket;
        QString error;
        EXPECT_FALSE(socket.listen(path, &error));
        return error.toStdString();
    }

    QString path() const { return m_directory.filePath("api.socket"); }

    QTemporaryDir m_directory;
    QString m_error;
};

/// A socket at `path` that was made by some other program.
int foreignSocket(const QString& path, bool listening, int type = SOCK_STREAM)
{
    const int descriptor = ::socket(AF_UNIX, type, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, qPrintable(path));
    EXPECT_EQ(::bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    if (listening) {
        EXPECT_EQ(::listen(descriptor, 1), 0);
    }
    return descriptor;
}
} // namespace

TEST_F(OwnerSocketTest, OnlyItsOwnerMayOpenIt)
{
    const mode_t before = ::umask(0);
    OwnerSocket socket;
    ASSERT_TRUE(socket.listen(path(), &m_error)) << m_error.toStdString();
    ::umask(before);
    for (const QString& file : {path(), path() + ".lock"}) {
        struct stat status {
        };
        ASSERT_EQ(::stat(qPrintable(file), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0600) << file.toStdString();
    }
}

TEST_F(OwnerSocketTest, IsRemovedAtTheEndAndCanBeMadeAgain)
{
    for (int i = 0; i < 2; ++i) {
        OwnerSocket socket;
        ASSERT_TRUE(socket.listen(path(), &m_error)) << m_error.toStdString();
        EXPECT_TRUE(QFile::exists(path()));
    }
    EXPECT_FALSE(QFile::exists(path()));
}

TEST_F(OwnerSocketTest, TakesOverWhatAKilledProcessLeftBehind)
{
    ::close(foreignSocket(path(), true));
    ASSERT_TRUE(QFile::exists(path()));
    OwnerSocket socket;
    EXPECT_TRUE(socket.listen(path(), &m_error)) << m_error.toStdString();
}

TEST_F(OwnerSocketTest, RefusesASocketInUse)
{
    OwnerSocket socket;
    ASSERT_TRUE(socket.listen(path(), &m_error));
    EXPECT_EQ(listenError(path()), path().toStdString() + " is in use by another module");
    EXPECT_TRUE(QFile::exists(path()));
}

TEST_F(OwnerSocketTest, LeavesTheSocketOfAnotherProgramAlone)
{
    const int foreign = foreignSocket(path(), true);
    EXPECT_EQ(listenError(path()), path().toStdString() + " is in use by another program");
    EXPECT_TRUE(QFile::exists(path()));
    ::close(foreign);
}

TEST_F(OwnerSocketTest, LeavesASocketOfAnotherTypeAlone)
{
    const int foreign = foreignSocket(path(), false, SOCK_DGRAM);
    EXPECT_EQ(listenError(path()), path().toStdString() + " is in use by another program");
    EXPECT_TRUE(QFile::exists(path()));
    ::close(foreign);
}

TEST_F(OwnerSocketTest, LeavesWhatHasTakenItsPlaceAloneAtTheEnd)
{
    {
        OwnerSocket socket;
        ASSERT_TRUE(socket.listen(path(), &m_error)) << m_error.toStdString();
        ASSERT_TRUE(QFile::rename(path(), path() + ".away"));
        ::close(foreignSocket(path(), true));
    }
    EXPECT_TRUE(QFile::exists(path()));
}

TEST_F(OwnerSocketTest, LeavesAFileThatIsNoSocketAlone)
{
    QFile file(path());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("precious");
    file.close();
    EXPECT_EQ(listenError(path()), path().toStdString() + " exists and is no socket");
    EXPECT_EQ(QFile(path()).size(), 8);
}

TEST_F(OwnerSocketTest, SaysThatAPathIsTooLongOrItsDirectoryMissing)
{
    EXPECT_NE(listenError(path() + QString(200, 'x')).find("a socket's path has 1 to 107 bytes"),
              std::string::npos);
    EXPECT_NE(listenError("").find("a socket's path has 1 to 107 bytes"), std::string::npos);
    EXPECT_NE(listenError(m_directory.filePath("none/api.socket")).find("No such file or directory"),
              std::string::npos);
}

TEST_F(OwnerSocketTest, AFolderThatOthersMayWriteIsRefusedUnlessTheyCannotExchangeItsFiles)
{
    const QByteArray folder = QFile::encodeName(m_directory.path());
    for (const mode_t mode : {0770, 0707, 0777, 0722}) {
        ASSERT_EQ(::chmod(folder.constData(), mode), 0);
        EXPECT_EQ(listenError(path()),
                  folder.toStdString() + " can be written by other users, who could exchange a socket there");
        EXPECT_TRUE(m_directory.isValid() && !QFile::exists(path()));
    }
    for (const mode_t mode : {0700, 0755, 01777}) {
        ASSERT_EQ(::chmod(folder.constData(), mode), 0);
        OwnerSocket socket;
        EXPECT_TRUE(socket.listen(path(), &m_error)) << m_error.toStdString();
    }
}

TEST_F(OwnerSocketTest, TheFolderOfARelativePathIsLookedAtToo)
{
    const QString before = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(m_directory.path()));
    ASSERT_EQ(::chmod(".", 0777), 0);
    EXPECT_NE(listenError("api.socket").find("can be written by other users"), std::string::npos);
    ASSERT_TRUE(QDir::setCurrent(before));
}
