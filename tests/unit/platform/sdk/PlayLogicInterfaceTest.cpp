#include "platform/sdk/PlayLogicInterface.h"

#include <gtest/gtest.h>

#include "platform/sdk/CMNode.h"
#include "platform/sdk/Paths.h"

namespace
{
using Texts = QStringList;

/// A player that keeps what it is asked for.
class PlayLogicInterfaceTest : public ::testing::Test
{
protected:
    PlayLogicInterfaceTest()
    {
        for (const char* name : {"play", "pause", "stop", "next", "previous", "like", "dislike"}) {
            const CMPath path(QString("/player/instance/%1").arg(name));
            CMActivateNode::create(
                &m_nodes, path, &m_nodes,
                [this, name](const CMSetDataRequest& request) {
                    m_asked.append(QString(name) + ' ' + VornHash(request.data().toHash()).toJsonString());
                    request.complete(QString("done"));
                },
                Qt::DirectConnection);
        }
    }

    /// Waits for the answer of an operation.
    static QString answer(const CMVoidReply& reply)
    {
        EXPECT_FALSE(reply.isFinished()) << "never inside the call";
        EXPECT_TRUE(reply.wait());
        return reply.error().isError() ? reply.error().Message() : reply.value().toString();
    }

    CMNodes m_nodes;
    Texts m_asked;
    PlayLogicInterface* m_player = PlayLogicInterface::playerInstance();
};
} // namespace

TEST_F(PlayLogicInterfaceTest, EachOperationAsksANodeOfTheInstance)
{
    EXPECT_EQ(answer(m_player->play(VornRoles().setTitle("a"), true)), "done");
    EXPECT_EQ(answer(m_player->play({}, false)), "done");
    EXPECT_EQ(answer(m_player->pause()), "done");
    EXPECT_EQ(answer(m_player->stop(VornPlayLogicStopReason::Unset)), "done");
    EXPECT_EQ(answer(m_player->next()), "done");
    EXPECT_EQ(answer(m_player->previous(false)), "done");
    EXPECT_EQ(answer(m_player->previous(true)), "done");
    EXPECT_EQ(answer(m_player->like()), "done");
    EXPECT_EQ(answer(m_player->dislike()), "done");
    EXPECT_EQ(m_asked,
              (Texts{R"(play {"append":true,"roles":{"title":"a"}})", R"(play {"append":false,"roles":{}})",
                     "pause {}", R"(stop {"reason":0})", "next {}", R"(previous {"restart":false})",
                     R"(previous {"restart":true})", "like {}", "dislike {}"}));
}

TEST_F(PlayLogicInterfaceTest, ItsDataIsTheWholeValueOfItsDataNode)
{
    EXPECT_TRUE(m_player->data().isEmpty()) << "no player yet";
    EXPECT_EQ(m_player->dataPath().toString(), "/player/instance/data");
    VornPlayLogicData data;
    data.setState(VornPlayLogicState::Playing).setTrackRoles(VornRoles().setTitle("a"));
    CMValueNode::create(&m_nodes, m_player->dataPath())->setValue(data);
    EXPECT_EQ(m_player->data().state(), VornPlayLogicState::Playing);
    EXPECT_EQ(m_player->data().trackRoles().title(), "a");
}

TEST(PlayLogicInterface, WithoutAPlayerAnOperationFails)
{
    const CMVoidReply reply = PlayLogicInterface::playerInstance()->pause();
    EXPECT_TRUE(reply.wait());
    EXPECT_TRUE(reply.error().isError());
}
