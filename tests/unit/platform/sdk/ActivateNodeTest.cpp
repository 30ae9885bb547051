#include <gtest/gtest.h>

#include <memory>

#include "unit/platform/sdk/SdkTest.h"

namespace
{
const CMPath kActivatePath(QStringLiteral("/test/activate"));
} // namespace

class ActivateNodeReceiver : public QObject
{
public:
    void take(const CMSetDataRequest& request)
    {
        seen.push_back(request.data());
        request.complete(static_cast<int>(seen.size()));
    }

    std::vector<QVariant> seen;
};

class ActivateNodeTest : public ::testing::Test
{
protected:
    CMNodes m_nodes;
    std::unique_ptr<ActivateNodeReceiver> m_receiver = std::make_unique<ActivateNodeReceiver>();
    CMVoidReply m_reply;
};

TEST_F(ActivateNodeTest, GivesTheDataToTheSlotAndTheAnswerToTheReply)
{
    CMActivateNode::create(&m_nodes, kActivatePath, m_receiver.get(), &ActivateNodeReceiver::take);
    CMRoot()->invoke(kActivatePath, VornHash{{"i32_", 5}}, m_reply);
    runEvents();
    ASSERT_EQ(m_receiver->seen.size(), 1U);
    EXPECT_EQ(m_receiver->seen[0], QVariant(QVariantHash{{"i32_", 5}}));
    EXPECT_EQ(m_reply.value(), QVariant(1));
}

TEST_F(ActivateNodeTest, InvocationNeverRunsInsideTheCall)
{
    for (const auto type : {Qt::DirectConnection, Qt::QueuedConnection, Qt::AutoConnection}) {
        CMNodes nodes;
        CMActivateNode::create(&nodes, kActivatePath, m_receiver.get(), &ActivateNodeReceiver::take, type);
        m_receiver->seen.clear();
        CMRoot()->invoke(kActivatePath, {}, {});
        EXPECT_TRUE(m_receiver->seen.empty());
        runEvents();
        EXPECT_EQ(m_receiver->seen.size(), 1U);
    }
}

TEST_F(ActivateNodeTest, QueuedDeliveryIsLaterThanActivation)
{
    CMActivateNode* const node = CMActivateNode::create(&m_nodes, kActivatePath, m_receiver.get(),
                                                        &ActivateNodeReceiver::take, Qt::QueuedConnection);
    node->activate(CMSetDataRequest(1, m_reply));
    EXPECT_TRUE(m_receiver->seen.empty());
    runEvents();
    EXPECT_EQ(m_receiver->seen.size(), 1U);
    EXPECT_TRUE(m_reply.isFinished());
}

TEST_F(ActivateNodeTest, DirectDeliveryIsInsideActivation)
{
    CMActivateNode* const node = CMActivateNode::create(&m_nodes, kActivatePath, m_receiver.get(),
                                                        &ActivateNodeReceiver::take, Qt::DirectConnection);
    node->activate(CMSetDataRequest(1, m_reply));
    EXPECT_EQ(m_receiver->seen.size(), 1U);
}

TEST_F(ActivateNodeTest, RequestsKeepTheirOrder)
{
    CMActivateNode::create(&m_nodes, kActivatePath, m_receiver.get(), &ActivateNodeReceiver::take);
    for (int i = 0; i < 3; ++i) {
        CMRoot()->invoke(kActivatePath, VornHash{{"i", i}}, {});
    }
    runEvents();
    ASSERT_EQ(m_receiver->seen.size(), 3U);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(m_receiver->seen[i].toHash().value("i"), QVariant(i));
    }
}

TEST_F(ActivateNodeTest, AnswerMayComeMuchLater)
{
    CMSetDataRequest kept;
    CMActivateNode::create(
        &m_nodes, kActivatePath, m_receiver.get(),
        [&kept](const CMSetDataRequest& request) { kept = request; }, Qt::QueuedConnection);
    CMRoot()->invoke(kActivatePath, {}, m_reply);
    runEvents();
    EXPECT_FALSE(m_reply.isFinished());
    kept.complete(QVariant(5));
    EXPECT_EQ(m_reply.value(), QVariant(5));
}

TEST_F(ActivateNodeTest, UnansweredRequestCompletesEmpty)
{
    CMActivateNode::create(
        &m_nodes, kActivatePath, m_receiver.get(), [](const CMSetDataRequest&) {}, Qt::QueuedConnection);
    CMRoot()->invoke(kActivatePath, {}, m_reply);
    runEvents();
    EXPECT_TRUE(m_reply.isFinished());
    EXPECT_FALSE(m_reply.value().isValid());
    EXPECT_FALSE(m_reply.error().isError());
}

TEST_F(ActivateNodeTest, WithoutReceiverFails)
{
    CMActivateNode::create(&m_nodes, kActivatePath, static_cast<ActivateNodeReceiver*>(nullptr),
                           &ActivateNodeReceiver::take);
    CMRoot()->invoke(kActivatePath, {}, m_reply);
    runEvents();
    EXPECT_EQ(m_reply.error().code(), CMError::NotInvocable);
    EXPECT_EQ(m_reply.error().Message(), "/test/activate: nobody answers for this node");
}

TEST_F(ActivateNodeTest, WithoutHandlerFails)
{
    CMActivateNode::create(&m_nodes, kActivatePath, m_receiver.get(), nullptr, Qt::DirectConnection);
    CMRoot()->invoke(kActivatePath, {}, m_reply);
    runEvents();
    EXPECT_EQ(m_reply.error().code(), CMError::NotInvocable);
}

TEST_F(ActivateNodeTest, WithDestroyedReceiverFails)
{
    CMActivateNode::create(&m_nodes, kActivatePath, m_receiver.get(), &ActivateNodeReceiver::take);
    m_receiver.reset();
    CMRoot()->invoke(kActivatePath, {}, m_reply);
    runEvents();
    EXPECT_EQ(m_reply.error().code(), CMError::NotInvocable);
}

TEST_F(ActivateNodeTest, ReceiverMayGoBeforeQueuedDelivery)
{
    CMActivateNode* const node =
        CMActivateNode::create(&m_nodes, kActivatePath, m_receiver.get(), &ActivateNodeReceiver::take);
    node->activate(CMSetDataRequest(1, m_reply));
    m_receiver.reset();
    runEvents();
    EXPECT_EQ(m_reply.error().code(), CMError::NotInvocable);
}

TEST_F(ActivateNodeTest, NodeMayGoBeforeQueuedDelivery)
{
    CMActivateNode* const node =
        CMActivateNode::create(&m_nodes, kActivatePath, m_receiver.get(), &ActivateNodeReceiver::take);
    node->activate(CMSetDataRequest(1, m_reply));
    delete node;
    runEvents();
    EXPECT_TRUE(m_receiver->seen.empty());
    EXPECT_EQ(m_reply.error().code(), CMError::NoSuchNode);
    EXPECT_EQ(m_reply.error().Message(), "/test/activate: the node went away");
}

TEST_F(ActivateNodeTest, HandlerMayDestroyTheNode)
{
    CMActivateNode* node = nullptr;
    int answer = 5;
    node = CMActivateNode::create(
        &m_nodes, kActivatePath, m_receiver.get(),
        [&node, answer](const CMSetDataRequest& request) {
            delete node;
            request.complete(answer);
        },
        Qt::DirectConnection);
    CMRoot()->invoke(kActivatePath, {}, m_reply);
    runEvents();
    EXPECT_EQ(m_reply.value(), QVariant(5));
}
