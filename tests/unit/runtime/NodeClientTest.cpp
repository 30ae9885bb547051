#include "runtime/NodeClient.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QFile>
#include <QTemporaryDir>
#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "platform/hostlink/UnixSocket.h"
#include "platform/sdk/CMNode.h"
#include "runtime/NodeApi.h"
#include "support/NoDescriptorsLeft.h"
#include "support/WaitFor.h"
#include "unit/runtime/ApiClient.h"

using namespace std::chrono_literals;

namespace
{
class NodeClientTest : public testing::Test
{
protected:
    NodeClientTest() : m_path(m_directory.filePath("api")), m_api(std::make_unique<NodeApi>())
    {
        QString error;
        EXPECT_TRUE(m_api->listen(m_path, &error)) << error.toStdString();
    }

    /// Runs the blocking client on a thread of its own while the event loop serves it.
    static void run(const std::function<void()>& client)
    {
        std::atomic<bool> done{false};
        std::thread thread([&] {
            client();
            done = true;
            QMetaObject::invokeMethod(
                qApp, [] {}, Qt::QueuedConnection);
        });
        EXPECT_TRUE(waitFor([&] { return done.load(); }));
        thread.join();
    }

    QTemporaryDir m_directory;
    QString m_path;
    CMNodes m_nodes;
    std::unique_ptr<NodeApi> m_api;
    QString m_error;
};

/// A module that takes nobody in: as many wait for it as may.
class BusySocket
{
public:
    explicit BusySocket(const QString& path) : m_address(*unixAddress(path.toStdString()))
    {
        m_listener = m_file.listen(m_address, 0);
        do {
            m_waiting.push_back(newUnixSocket());
        } while (connectUnix(m_waiting.back().get(), m_address));
        EXPECT_EQ(errno, EAGAIN);
    }

    void takeOneIn() { m_taken = FileDescriptor(::accept(m_listener.get(), nullptr, nullptr)); }

private:
    sockaddr_un m_address;
    UnixSocketFile m_file;
    FileDescriptor m_listener;
    FileDescriptor m_taken;
    std::vector<FileDescriptor> m_waiting;
};

bool sleeps(pid_t thread)
{
    QFile file(QString("/proc/self/task/%1/stat").arg(thread));
    return file.open(QIODevice::ReadOnly) && file.readAll().split(' ').value(2) == "S";
}
} // namespace

TEST_F(NodeClientTest, GetsResultsAndErrors)
{
    CMValueNode::create(&m_nodes, CMPath("/n"))->setValue(VornValue().setI32(5));
    run([&] {
        NodeClient client;
        ASSERT_TRUE(client.connect(m_path, 10s, &m_error)) << m_error.toStdString();
        const auto value = client.call("get", {{"path", "/n"}}, 10s, &m_error);
        ASSERT_TRUE(value) << m_error.toStdString();
        EXPECT_EQ(value->error.code, 0);
        EXPECT_EQ(value->result.toHash()["i32_"].toInt(), 5);
        const auto refusal = client.call("get", {{"path", "/none"}}, 10s, &m_error);
        ASSERT_TRUE(refusal) << m_error.toStdString();
        EXPECT_EQ(refusal->error.code, -32001);
        EXPECT_EQ(refusal->error.message, "no node at /none");
    });
}

TEST_F(NodeClientTest, KeepsNotificationsThatComeBeforeAnAnswer)
{
    CMValueNode::create(&m_nodes, CMPath("/n"))->setValue(VornValue().setI32(5));
    run([&] {
        NodeClient client;
        ASSERT_TRUE(client.connect(m_path, 10s, &m_error));
        ASSERT_TRUE(client.call("watch", {{"path", "/n"}}, 10s, &m_error));
        ASSERT_TRUE(client.call("set", {{"path", "/n"}, {"value", 6}}, 10s, &m_error));
        const auto change = client.nextNotification(&m_error);
        ASSERT_TRUE(change) << m_error.toStdString();
        EXPECT_EQ((*change)["value"].toHash()["i32_"].toInt(), 6);
    });
}

TEST_F(NodeClientTest, SaysThatNoModuleAnswers)
{
    NodeClient client;
    EXPECT_FALSE(client.connect(m_directory.filePath("none"), 10s, &m_error));
    EXPECT_EQ(m_error,
              "no module answers at " + m_directory.filePath("none") + ": No such file or directory");
    EXPECT_FALSE(NodeClient().connect(QString(200, 'x'), 10s, &m_error));
}

TEST_F(NodeClientTest, SaysThatAnAnswerDoesNotComeInTime)
{
    NodeClient client; // nobody runs the event loop meanwhile
    ASSERT_TRUE(client.connect(m_path, 10s, &m_error));
    EXPECT_FALSE(client.call("list", {}, 20ms, &m_error));
    EXPECT_EQ(m_error, "the module does not answer in time");
    EXPECT_FALSE(client.interrupted());
}

TEST_F(NodeClientTest, SaysThatAModuleThatTakesNobodyInDoesNotAnswerInTime)
{
    const BusySocket busy(m_directory.filePath("busy"));
    NodeClient client;
    EXPECT_FALSE(client.connect(m_directory.filePath("busy"), 20ms, &m_error));
    EXPECT_EQ(m_error, "the module does not answer in time");
}

TEST_F(NodeClientTest, WaitsForAModuleThatTakesNobodyInYet)
{
    BusySocket busy(m_directory.filePath("busy"));
    std::atomic<pid_t> connecting{0};
    std::atomic<bool> done{false};
    std::thread thread([&] {
        connecting = ::gettid();
        EXPECT_TRUE(NodeClient().connect(m_directory.filePath("busy"), 10s, &m_error))
            << m_error.toStdString();
        done = true;
    });
    while (!done && (connecting == 0 || !sleeps(connecting))) {
        std::this_thread::yield();
    }
    busy.takeOneIn();
    thread.join();
}

TEST_F(NodeClientTest, AnInterruptEndsWaitingForAModuleThatTakesNobodyIn)
{
    const BusySocket busy(m_directory.filePath("busy"));
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    ASSERT_EQ(::write(pipe[1], "x", 1), 1);
    NodeClient client(pipe[0]);
    EXPECT_FALSE(client.connect(m_directory.filePath("busy"), 1h, &m_error));
    EXPECT_TRUE(client.interrupted());
    ::close(pipe[0]);
    ::close(pipe[1]);
}

TEST_F(NodeClientTest, SaysThatThereIsNoDescriptorForASocket)
{
    NodeClient client;
    QString error;
    const QString path = m_path;
    bool connected = true;
    { // a sanitizer that looks at an object of this test needs a descriptor
        const NoDescriptorsLeft none;
        connected = client.connect(path, 10s, &error);
    }
    EXPECT_FALSE(connected);
    EXPECT_EQ(error, "cannot make a socket: Too many open files");
}

TEST_F(NodeClientTest, SaysThatTheModuleWentAway)
{
    std::atomic<bool> watching{false};
    std::thread thread([&] {
        NodeClient client;
        EXPECT_TRUE(client.connect(m_path, 10s, &m_error));
        EXPECT_TRUE(client.call("watch", {{"path", "/n"}}, 10s, &m_error));
        watching = true;
        QMetaObject::invokeMethod(
            qApp, [] {}, Qt::QueuedConnection);
        EXPECT_FALSE(client.nextNotification(&m_error));
        EXPECT_FALSE(client.interrupted());
    });
    EXPECT_TRUE(waitFor([&] {
        QCoreApplication::processEvents();
        return watching.load();
    }));
    m_api.reset();
    thread.join();
    EXPECT_EQ(m_error, "the module went away");
}

TEST_F(NodeClientTest, TellsWhyItWasTurnedAwayBeforeItAsked)
{
    std::vector<std::unique_ptr<ApiClient>> served;
    for (int i = 0; i < NodeApi::kMostClients; ++i) {
        served.push_back(std::make_unique<ApiClient>(m_path));
        ASSERT_FALSE(served.back()->ask("list").isEmpty());
    }
    NodeClient client;
    ASSERT_TRUE(client.connect(m_path, 10s, &m_error));
    ASSERT_TRUE(ApiClient(m_path).closedByModule()) << "and so is the one before it";
    const auto refusal = client.call("list", {}, 10s, &m_error);
    ASSERT_TRUE(refusal) << m_error.toStdString();
    EXPECT_EQ(refusal->error.message, "at most 64 clients at a time");
}

TEST_F(NodeClientTest, SaysThatAModuleWentAwayBeforeItWasAsked)
{
    NodeClient client;
    ASSERT_TRUE(client.connect(m_path, 10s, &m_error));
    m_api.reset();
    EXPECT_FALSE(client.call("list", {}, 10s, &m_error));
    EXPECT_EQ(m_error, "the module went away");
}

TEST_F(NodeClientTest, AnOutputThatNobodyReadsEndsWaiting)
{
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    NodeClient client(-1, pipe[1]);
    ASSERT_TRUE(client.connect(m_path, 10s, &m_error));
    EXPECT_FALSE(client.call("list", {}, 20ms, &m_error)); // nobody runs the event loop
    EXPECT_FALSE(client.outputGone()) << "somebody may still read";
    ::close(pipe[0]);
    EXPECT_FALSE(client.nextNotification(&m_error));
    EXPECT_TRUE(client.outputGone());
    EXPECT_FALSE(client.interrupted());
    ::close(pipe[1]);
}

TEST_F(NodeClientTest, AnInterruptEndsWaiting)
{
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    ASSERT_EQ(::write(pipe[1], "x", 1), 1);
    NodeClient client(pipe[0]);
    ASSERT_TRUE(client.connect(m_path, 10s, &m_error));
    EXPECT_FALSE(client.nextNotification(&m_error));
    EXPECT_TRUE(client.interrupted());
    ::close(pipe[0]);
    ::close(pipe[1]);
}
