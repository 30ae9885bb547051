#include "services/ReplaceFile.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cerrno>

#include "unit/services/SyncSpy.h"

namespace
{
using Texts = std::vector<std::string>;

/// No file of this process grows beyond a size, as on a full disk.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        m_handlerBefore = signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit{bytes, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_before);
        signal(SIGXFSZ, m_handlerBefore);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit m_before{};
    void (*m_handlerBefore)(int) = nullptr;
};

class ReplaceFileTest : public testing::Test
{
protected:
    static QByteArray contentOf(const QString& path)
    {
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
        return file.readAll();
    }

    static void write(const QString& path, const QByteArray& content)
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
        file.write(content);
    }

    bool replace(const QByteArray& content)
    {
        m_error.clear();
        return replaceFile(m_path, content, &m_error);
    }

    QStringList files() const
    {
        return QDir(m_directory.path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries);
    }

    QTemporaryDir m_directory;
    QString m_path = m_directory.filePath("file");
    QString m_error;
};
} // namespace

TEST_F(ReplaceFileTest, MakesAFileForItsOwnerOnly)
{
    ASSERT_TRUE(replace("content"));
    EXPECT_EQ(contentOf(m_path), "content");
    struct stat status {
    };
    ASSERT_EQ(::stat(qPrintable(m_path), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600);
    EXPECT_EQ(files(), QStringList{"file"});
}

TEST_F(ReplaceFileTest, ReplacesLongerAndShorterContent)
{
    for (const QByteArray& content : {QByteArray(100'000, 'a'), QByteArray("b"), QByteArray()}) {
        ASSERT_TRUE(replace(content));
        EXPECT_EQ(contentOf(m_path), content);
    }
}

TEST_F(ReplaceFileTest, ReplacesWhatAnInterruptedWriteLeft)
{
    write(m_path + ".new", QByteArray(1000, 'x'));
    ASSERT_TRUE(replace("content"));
    EXPECT_EQ(contentOf(m_path), "content");
    EXPECT_EQ(files(), QStringList{"file"});
}

TEST_F(ReplaceFileTest, SyncsTheContentBeforeTheNameAndTheNameBeforeItReturns)
{
    write(m_path, "old");
    Texts order;
    const SyncSpy spy([&](const std::string& path) {
        order.push_back(path + " while it is " + contentOf(m_path).toStdString());
        return 0;
    });
    ASSERT_TRUE(replace("new"));
    EXPECT_EQ(order, Texts({m_path.toStdString() + ".new while it is old",
                            m_directory.path().toStdString() + " while it is new"}));
}

TEST_F(ReplaceFileTest, AFullDiskLeavesTheFileAndNothingElse)
{
    write(m_path, "old");
    {
        const FileSizeLimit full(5000);
        EXPECT_FALSE(replace(QByteArray(10'000, 'n')));
    }
    EXPECT_EQ(m_error, m_path + ".new: File too large");
    EXPECT_EQ(contentOf(m_path), "old");
    EXPECT_EQ(files(), QStringList{"file"});
    EXPECT_TRUE(replace(QByteArray(10'000, 'n')));
}

TEST_F(ReplaceFileTest, ContentThatDoesNotReachTheDiskLeavesTheFile)
{
    write(m_path, "old");
    const SyncSpy spy([](const std::string& path) { return path.back() == 'w' ? EIO : 0; });
    EXPECT_FALSE(replace("new"));
    EXPECT_EQ(m_error, m_path + ".new: Input/output error");
    EXPECT_EQ(contentOf(m_path), "old");
    EXPECT_EQ(files(), QStringList{"file"});
}

TEST_F(ReplaceFileTest, ANameThatDoesNotReachTheDiskIsAnError)
{
    const std::string directory = m_directory.path().toStdString();
    int error = EIO;
    const SyncSpy spy([&](const std::string& path) { return path == directory ? error : 0; });
    EXPECT_FALSE(replace("new"));
    EXPECT_EQ(m_error, m_directory.path() + ": Input/output error");
    error = EINVAL;
    EXPECT_TRUE(replace("newer")) << "this file system syncs no directories";
}

TEST_F(ReplaceFileTest, AMissingDirectoryIsAnError)
{
    m_path = m_directory.filePath("none/file");
    EXPECT_FALSE(replace("new"));
    EXPECT_EQ(m_error, m_path + ".new: No such file or directory");
}

TEST_F(ReplaceFileTest, ADirectoryIsNotReplaced)
{
    QDir(m_directory.path()).mkpath("file/more");
    EXPECT_FALSE(replace("new"));
    EXPECT_EQ(m_error, m_path + ": Is a directory");
}

TEST_F(ReplaceFileTest, ALinkInTheWayIsNotFollowed)
{
    const QString other = m_directory.filePath("other");
    write(other, "of somebody");
    ASSERT_TRUE(QFile::link(other, m_path + ".new"));
    EXPECT_FALSE(replace("new"));
    EXPECT_EQ(contentOf(other), "of somebody");
}
