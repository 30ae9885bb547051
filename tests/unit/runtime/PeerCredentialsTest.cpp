#include "runtime/PeerCredentials.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <QFile>
#include <QTemporaryDir>
#include <cstring>

#include "runtime/NodeApi.h"
#include "runtime/NodeClient.h"
#include "runtime/OwnerSocket.h"
#include "support/AsUser.h"
#include "unit/runtime/ApiClient.h"

using namespace std::chrono_literals;

namespace
{
/// A folder that everybody may look into.
class PeerCredentialsTest : public testing::Test
{
protected:
    PeerCredentialsTest() : m_path(m_directory.filePath("api"))
    {
        EXPECT_EQ(::chmod(qPrintable(m_directory.path()), 0755), 0);
    }

    /// Lets everybody open the socket file, as somebody may who does not know what it is.
    void openToAll() { EXPECT_EQ(::chmod(qPrintable(m_path), 0666), 0); }

    QTemporaryDir m_directory;
    QString m_path;
    QString m_error;
};

/// A socket at which a program of `user` listens.
int listenAs(uid_t user, const QString& path)
{
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, qPrintable(path));
    EXPECT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    const AsUser other(user);
    EXPECT_EQ(::listen(socket, 8), 0); // nobody accepts
    return socket;
}
} // namespace

TEST_F(PeerCredentialsTest, OnesOwnUserIsServed)
{
    int sockets[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, sockets), 0);
    EXPECT_TRUE(isOfOwnUserOrRoot(sockets[0]));
    ::close(sockets[0]);
    ::close(sockets[1]);
}

TEST_F(PeerCredentialsTest, WhatIsNoUnixSocketIsNobodys)
{
    EXPECT_FALSE(isOfOwnUserOrRoot(-1));
    EXPECT_FALSE(isOfOwnUserOrRoot(STDIN_FILENO));
}

TEST_F(PeerCredentialsTest, RootIsServedByAnyUser)
{
    if (!AsUser::canBecome()) {
        GTEST_SKIP() << "only root can become another user";
    }
    int sockets[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, sockets), 0);
    {
        const AsUser nobody(AsUser::kNobody);
        EXPECT_TRUE(isOfOwnUserOrRoot(sockets[0]));
    }
    ::close(sockets[0]);
    ::close(sockets[1]);
}

TEST_F(PeerCredentialsTest, AClientOfAnotherUserIsTurnedAwayThoughTheFileIsOpenToAll)
{
    if (!AsUser::canBecome()) {
        GTEST_SKIP() << "only root can become another user";
    }
    NodeApi api;
    ASSERT_TRUE(api.listen(m_path, &m_error)) << m_error.toStdString();
    {
        const AsUser nobody(AsUser::kNobody);
        EXPECT_FALSE(ApiClient(m_path).connected()) << "the file's mode keeps others out";
    }
    openToAll();
    std::unique_ptr<ApiClient> stranger;
    {
        const AsUser nobody(AsUser::kNobody);
        stranger = std::make_unique<ApiClient>(m_path);
    }
    ASSERT_TRUE(stranger->connected());
    EXPECT_EQ(errorText(stranger->message()), "only the user who runs the module may use its nodes");
    EXPECT_TRUE(stranger->closedByModule());

    ApiClient own(m_path);
    EXPECT_TRUE(own.ask("list").contains("result"));
}

TEST_F(PeerCredentialsTest, AClientDoesNotTalkToAModuleOfAnotherUser)
{
    if (!AsUser::canBecome()) {
        GTEST_SKIP() << "only root can become another user";
    }
    const int listener = listenAs(AsUser::kSomebody, m_path);
    openToAll();
    NodeClient root;
    EXPECT_TRUE(root.connect(m_path, 10s, &m_error)) << "root may look at anybody's";
    {
        const AsUser nobody(AsUser::kNobody);
        NodeClient client;
        EXPECT_FALSE(client.connect(m_path, 10s, &m_error));
        EXPECT_EQ(m_error, m_path + " is served by another user");
    }
    {
        const AsUser somebody(AsUser::kSomebody);
        NodeClient client;
        EXPECT_TRUE(client.connect(m_path, 10s, &m_error)) << m_error.toStdString();
    }
    ::close(listener);
}

TEST_F(PeerCredentialsTest, AFolderOfAnotherUserIsNoPlaceForASocket)
{
    if (!AsUser::canBecome()) {
        GTEST_SKIP() << "only root can become another user";
    }
    ASSERT_EQ(::chown(qPrintable(m_directory.path()), AsUser::kNobody, AsUser::kNobody), 0);
    OwnerSocket socket;
    EXPECT_FALSE(socket.listen(m_path, &m_error));
    EXPECT_EQ(m_error,
              m_directory.path() + " can be written by other users, who could exchange a socket there");
    EXPECT_FALSE(QFile::exists(m_path));
    EXPECT_FALSE(QFile::exists(m_path + ".lock"));
}
