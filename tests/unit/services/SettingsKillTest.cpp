#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <QDeadlineTimer>
#include <QFileInfo>
#include <QTemporaryDir>
#include <random>

#include "services/SettingsFile.h"

extern char** environ;

namespace
{
/// A running settings_writer.
class Writer
{
public:
    Writer(const QString& file, qint64 firstNumber)
    {
        std::string path = file.toStdString();
        std::string number = std::to_string(firstNumber);
        std::string program = SETTINGS_WRITER;
        char* argv[] = {program.data(), path.data(), number.data(), nullptr};
        int out[2];
        EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        EXPECT_EQ(posix_spawn(&m_pid, program.c_str(), &actions, nullptr, argv, environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        close(out[1]);
        m_out = out[0];
    }
    ~Writer() { close(m_out); }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    /// The next number that it saved; -1 at its end.
    qint64 next() const
    {
        qint64 number = -1;
        return read(m_out, &number, sizeof number) == sizeof number ? number : -1;
    }

    void kill() const
    {
        ::kill(m_pid, SIGKILL);
        int status = 0;
        waitpid(m_pid, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status)) << "it ended by itself, with " << WEXITSTATUS(status);
    }

private:
    pid_t m_pid = -1;
    int m_out = -1;
};

/// Until a write has begun, or long enough to show that none does.
void waitForWrite(const QString& file)
{
    const QDeadlineTimer patience(std::chrono::seconds(10));
    while (!QFileInfo::exists(file + ".new") && !patience.hasExpired()) {
    }
}

void pause(std::chrono::nanoseconds time)
{
    const timespec length{0, static_cast<long>(time.count())};
    nanosleep(&length, nullptr);
}

/// The number that all values hold; -1 where they differ or are none.
qint64 numberIn(const SettingsFile::Values& values)
{
    qint64 number = -1;
    for (const VornValue& value : values) {
        const qint64 other = value.string().toLongLong();
        if (number != -1 && other != number) {
            return -1;
        }
        number = other;
    }
    return number;
}
} // namespace

/// Wherever a kill comes, the file is whole and holds the last number that was told or the one after it.
TEST(SettingsKill, AKillAtAnyMomentLeavesAWholeFileAndLosesNothingSaved)
{
    constexpr int kRounds = 60;
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> savesBefore(1, 3);
    std::uniform_int_distribution<int> microseconds(0, 6000);

    const QTemporaryDir directory;
    const QString path = directory.filePath("settings.json");
    qint64 number = 0;
    int interrupted = 0;
    for (int round = 0; round < kRounds && !testing::Test::HasFailure(); ++round) {
        const Writer writer(path, number + 1);
        qint64 saved = number;
        for (int save = savesBefore(random); save > 0; --save) {
            saved = writer.next();
        }
        if (round % 2 == 0) {
            waitForWrite(path);
        } else {
            pause(std::chrono::microseconds(microseconds(random)));
        }
        writer.kill();
        for (qint64 more = writer.next(); more != -1; more = writer.next()) {
            saved = more;
        }
        ASSERT_GT(saved, number);
        interrupted += QFileInfo::exists(path + ".new") ? 1 : 0;
        number = numberIn(SettingsFile(path).load());
        EXPECT_TRUE(number == saved || number == saved + 1) << number << " after " << saved;
        EXPECT_FALSE(QFileInfo::exists(path + ".bad"));
    }
    RecordProperty("KilledInTheMiddleOfAWrite", interrupted);
    RecordProperty("Saves", static_cast<int>(number));
    EXPECT_GT(interrupted, 0) << "kills came between the writes, not into them";
}
