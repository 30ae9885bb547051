#include "runtime/NodeClient.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <QTemporaryDir>
#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "platform/sdk/CMNode.h"
#include "runtime/NodeApi.h"
#include "support/WaitFor.h"

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
} // namespace

TEST_F(NodeClientTest, GetsResultsAndErrors)
{
    CMValueNode::create(&m_nodes, CMPath("/n"))->setValue(VornValue().setI32(5));
    run([&] {
        NodeClient client;
        ASSERT_TRUE(client.connect(m_path, &m_error)) << m_error.toStdString();
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
        ASSERT_TRUE(client.connect(m_path, &m_error));
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
    EXPECT_FALSE(client.connect(m_directory.filePath("none"), &m_error));
    EXPECT_EQ(m_error,
              "no module answers at " + m_directory.filePath("none") + ": No such file or directory");
    EXPECT_FALSE(NodeClient().connect(QString(200, 'x'), &m_error));
}

TEST_F(NodeClientTest, SaysThatAnAnswerDoesNotComeInTime)
{
    NodeClient client; // nobody runs the event loop meanwhile
    ASSERT_TRUE(client.connect(m_path, &m_error));
    EXPECT_FALSE(client.call("list", {}, 20ms, &m_error));
    EXPECT_EQ(m_error, "the module does not answer in time");
    EXPECT_FALSE(client.interrupted());
}

TEST_F(NodeClientTest, SaysThatTheModuleWentAway)
{
    std::atomic<bool> watching{false};
    std::thread thread([&] {
        NodeClient client;
        EXPECT_TRUE(client.connect(m_path, &m_error));
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

TEST_F(NodeClientTest, AnOutputThatNobodyReadsEndsWaiting)
{
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    NodeClient client(-1, pipe[1]);
    ASSERT_TRUE(client.connect(m_path, &m_error));
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
    ASSERT_TRUE(client.connect(m_path, &m_error));
    EXPECT_FALSE(client.nextNotification(&m_error));
    EXPECT_TRUE(client.interrupted());
    ::close(pipe[0]);
    ::close(pipe[1]);
}
