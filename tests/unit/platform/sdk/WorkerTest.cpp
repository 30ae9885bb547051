#include <gtest/gtest.h>

#include <memory>

#include "unit/platform/sdk/SdkTest.h"

namespace
{
const CMPath kWorkerPath(QStringLiteral("/test/worker"));

VornValue valueAt(const CMPath& path)
{
    return VornHash(CMRoot()->getValue(path).toHash());
}

class WorkerTest : public ::testing::Test
{
protected:
    CMError write(const CMPath& path, const VornValue& value)
    {
        const CMVoidReply reply;
        CMRoot()->setValue(path, value, reply);
        runEvents();
        EXPECT_TRUE(reply.isFinished());
        return reply.error();
    }

    CMNodes m_nodes;
    CMValueNode* m_node = CMValueNode::create(&m_nodes, kWorkerPath);
};
} // namespace

TEST_F(WorkerTest, RootIsOne)
{
    ASSERT_NE(CMRoot(), nullptr);
    EXPECT_EQ(CMRoot(), CMRoot());
}

TEST_F(WorkerTest, GetValueIsTheNodesHashAtOnce)
{
    m_node->setValue(i32(5));
    EXPECT_EQ(CMRoot()->getValue(kWorkerPath), QVariant(QVariantHash{{"i32_", 5}}));
}

TEST_F(WorkerTest, GetValueOfANodeWithoutValueIsAnEmptyHash)
{
    EXPECT_EQ(CMRoot()->getValue(kWorkerPath), QVariant(QVariantHash()));
}

TEST_F(WorkerTest, GetValueWithoutAValueNodeIsInvalid)
{
    const CMPath action = kWorkerPath.appendSubpath(QStringLiteral("action"));
    CMActivateNode::create(&m_nodes, action, nullptr, nullptr, Qt::DirectConnection);
    EXPECT_FALSE(CMRoot()->getValue(CMPath(QStringLiteral("/test/nothing"))).isValid());
    EXPECT_FALSE(CMRoot()->getValue(CMPath()).isValid());
    EXPECT_FALSE(CMRoot()->getValue(action).isValid());
}

TEST_F(WorkerTest, SetValueCompletesThroughTheEventLoopOnly)
{
    m_node->setValue(i32(1));
    CMValueItem item(nullptr, kWorkerPath);
    const ValueRecord record(&item);
    const CMVoidReply reply;
    CMRoot()->setValue(kWorkerPath, i32(2), reply);
    EXPECT_FALSE(reply.isFinished());
    EXPECT_EQ(record.count(), 0U);
    EXPECT_EQ(m_node->value().i32(), 1);
    runEvents();
    EXPECT_TRUE(reply.isFinished());
    EXPECT_FALSE(reply.error().isError());
    EXPECT_FALSE(reply.value().isValid());
    EXPECT_EQ(record.count(), 1U);
    EXPECT_EQ(m_node->value().i32(), 2);
}

TEST_F(WorkerTest, FailuresCompleteThroughTheEventLoopOnly)
{
    const CMVoidReply write;
    const CMVoidReply invocation;
    CMRoot()->setValue(CMPath(QStringLiteral("/test/nothing")), i32(2), write);
    CMRoot()->invoke(CMPath(QStringLiteral("/test/nothing")), {}, invocation);
    EXPECT_FALSE(write.isFinished());
    EXPECT_FALSE(invocation.isFinished());
    runEvents();
    EXPECT_TRUE(write.error().isError());
    EXPECT_TRUE(invocation.error().isError());
}

TEST_F(WorkerTest, NobodyNeedsToKeepTheReply)
{
    m_node->setValue(i32(1));
    CMRoot()->setValue(kWorkerPath, i32(2), CMVoidReply(new CMReplyData<QVariant>));
    runEvents();
    EXPECT_EQ(m_node->value().i32(), 2);
}

TEST_F(WorkerTest, WritesCompleteInTheOrderOfTheCalls)
{
    m_node->setValue(i32(0));
    QObject context;
    std::vector<int> order;
    for (int i = 1; i <= 3; ++i) {
        const CMVoidReply reply;
        reply.onResult(&context, [&order, this](const QVariant&) { order.push_back(m_node->value().i32()); });
        CMRoot()->setValue(kWorkerPath, i32(i), reply);
    }
    runEvents();
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST_F(WorkerTest, WriteOfAnEqualValueSucceedsSilently)
{
    m_node->setValue(i32(1));
    CMValueItem item(nullptr, kWorkerPath);
    const ValueRecord record(&item);
    EXPECT_FALSE(write(kWorkerPath, i32(1)).isError());
    EXPECT_EQ(record.count(), 0U);
}

TEST_F(WorkerTest, WriteWithoutNodeIsAnErrorAndCreatesNothing)
{
    const CMError error = write(CMPath(QStringLiteral("/test/nothing")), i32(1));
    EXPECT_EQ(error.code(), CMError::NoSuchNode);
    EXPECT_EQ(error.Message(), "/test/nothing: no such node");
    EXPECT_FALSE(CMRoot()->getValue(CMPath(QStringLiteral("/test/nothing"))).isValid());
}

TEST_F(WorkerTest, NodeOnlyNeedsToExistWhenTheWriteIsDone)
{
    const CMPath path(QStringLiteral("/test/late"));
    const CMVoidReply reply;
    CMRoot()->setValue(path, i32(1), reply);
    CMValueNode::create(&m_nodes, path);
    runEvents();
    EXPECT_FALSE(reply.error().isError());
    EXPECT_EQ(valueAt(path).i32(), 1);
}

TEST_F(WorkerTest, ReadOnlyRefusesOutsidersNotTheOwner)
{
    m_node->setValue(i32(1));
    m_node->setReadOnly(true);
    EXPECT_TRUE(m_node->isReadOnly());
    const CMError error = write(kWorkerPath, i32(2));
    EXPECT_EQ(error.code(), CMError::ReadOnly);
    EXPECT_EQ(error.Message(), "/test/worker: read-only");
    EXPECT_EQ(m_node->value().i32(), 1);
    m_node->setValue(i32(3));
    EXPECT_EQ(valueAt(kWorkerPath).i32(), 3);
    m_node->setReadOnly(false);
    EXPECT_FALSE(write(kWorkerPath, i32(4)).isError());
}

TEST_F(WorkerTest, WrongTypeIsAnErrorAndLeavesTheNode)
{
    m_node->setValue(i32(1));
    CMValueItem item(nullptr, kWorkerPath);
    const ValueRecord record(&item);
    const CMError error = write(kWorkerPath, text("2"));
    EXPECT_EQ(error.code(), CMError::WrongType);
    EXPECT_EQ(error.Message(), "/test/worker: takes i32, not string");
    EXPECT_EQ(write(kWorkerPath, VornValue()).code(), CMError::WrongType);
    EXPECT_EQ(write(kWorkerPath, VornValue().setI64(2)).code(), CMError::WrongType);
    EXPECT_EQ(write(kWorkerPath, VornValue().setI32(2).setI64(2)).code(), CMError::WrongType);
    EXPECT_EQ(write(kWorkerPath, VornHash{{"i32_", "2"}}).code(), CMError::WrongType);
    EXPECT_EQ(write(kWorkerPath, VornHash{{"i32_", 4294967296LL}}).code(), CMError::WrongType);
    EXPECT_EQ(m_node->value().toJsonString(), R"({"i32_":1})");
    EXPECT_EQ(record.count(), 0U);
}

TEST_F(WorkerTest, TheOwnersCheckRefusesOutsidersNotTheOwner)
{
    m_node->setValue(i32(5));
    m_node->setCheck([](const VornValue& value) {
        return value.i32() > 9 ? QStringLiteral("at most 9, not %1").arg(value.i32()) : QString();
    });
    const CMError error = write(kWorkerPath, i32(10));
    EXPECT_EQ(error.code(), CMError::Refused);
    EXPECT_EQ(error.Message(), "/test/worker: at most 9, not 10");
    EXPECT_EQ(valueAt(kWorkerPath).i32(), 5);
    EXPECT_FALSE(write(kWorkerPath, i32(9)).isError());
    EXPECT_EQ(valueAt(kWorkerPath).i32(), 9);
    m_node->setValue(i32(10));
    EXPECT_EQ(valueAt(kWorkerPath).i32(), 10);
}

TEST_F(WorkerTest, TheOwnersCheckSeesValuesOfTheRightTypeOnly)
{
    m_node->setValue(i32(5));
    int checked = 0;
    m_node->setCheck([&](const VornValue&) {
        ++checked;
        return QString();
    });
    EXPECT_EQ(write(kWorkerPath, text("5")).code(), CMError::WrongType);
    EXPECT_EQ(checked, 0);
    EXPECT_FALSE(write(kWorkerPath, i32(6)).isError());
    EXPECT_EQ(checked, 1);
}

TEST_F(WorkerTest, HashNodesTakeAnyHash)
{
    m_node->setValue(VornHash{{"name", "x"}});
    EXPECT_FALSE(write(kWorkerPath, VornHash{{"list", QVariantList{1, 2}}}).isError());
    EXPECT_FALSE(write(kWorkerPath, VornValue()).isError());
    EXPECT_FALSE(write(kWorkerPath, i32(5)).isError());
    EXPECT_FALSE(write(kWorkerPath, VornHash{{"name", "y"}}).isError());
    EXPECT_EQ(valueAt(kWorkerPath).toJsonString(), R"({"name":"y"})");
}

TEST_F(WorkerTest, FirstWriteGivesAnEmptyNodeItsType)
{
    EXPECT_FALSE(write(kWorkerPath, text("x")).isError());
    EXPECT_EQ(write(kWorkerPath, i32(1)).code(), CMError::WrongType);
}

TEST_F(WorkerTest, ActivateNodeTakesNoValue)
{
    const CMPath action = kWorkerPath.appendSubpath(QStringLiteral("action"));
    CMActivateNode::create(&m_nodes, action, nullptr, nullptr, Qt::DirectConnection);
    const CMError error = write(action, i32(1));
    EXPECT_EQ(error.code(), CMError::WrongType);
    EXPECT_EQ(error.Message(), "/test/worker/action: holds no value");
}

TEST_F(WorkerTest, InvokeWithoutNodeIsAnError)
{
    const CMVoidReply reply;
    CMRoot()->invoke(CMPath(QStringLiteral("/test/nothing")), {}, reply);
    runEvents();
    EXPECT_EQ(reply.error().code(), CMError::NoSuchNode);
    EXPECT_EQ(reply.error().Message(), "/test/nothing: no such node");
}

TEST_F(WorkerTest, ValueNodeCannotBeInvoked)
{
    const CMVoidReply reply;
    CMRoot()->invoke(kWorkerPath, {}, reply);
    runEvents();
    EXPECT_EQ(reply.error().code(), CMError::NotInvocable);
    EXPECT_EQ(reply.error().Message(), "/test/worker: cannot be invoked");
}

TEST_F(WorkerTest, ErrorHandlerMayBeAttachedAfterTheCall)
{
    QObject context;
    const CMVoidReply reply;
    QStringList messages;
    const auto note = [&messages](const CMError& error) { messages.append(error.Message()); };
    CMRoot()->setValue(CMPath(QStringLiteral("/test/nothing")), i32(1), reply);
    reply.onError(&context, note);
    EXPECT_TRUE(messages.isEmpty());
    runEvents();
    reply.onError(&context, note);
    EXPECT_EQ(messages, (QStringList{"/test/nothing: no such node", "/test/nothing: no such node"}));
}

TEST_F(WorkerTest, CompletionsNeverStarveOtherEvents)
{
    m_node->setValue(i32(0));
    QObject context;
    bool stop = false;
    std::function<void()> again = [&] {
        if (!stop) {
            const CMVoidReply reply;
            reply.onResult(&context, [&again](const QVariant&) { again(); });
            CMRoot()->setValue(kWorkerPath, i32(m_node->value().i32() + 1), reply);
        }
    };
    again();
    QMetaObject::invokeMethod(
        &context, [&stop] { stop = true; }, Qt::QueuedConnection);
    while (!stop) {
        QCoreApplication::processEvents();
    }
    runEvents();
    EXPECT_GE(m_node->value().i32(), 1);
}

TEST_F(WorkerTest, SubtreeOwnerCreatesNodesOnTheFirstWrite)
{
    const CMPath base(QStringLiteral("/test/subtree"));
    int asked = 0;
    m_nodes.ownSubtree(base, [&](const CMPath& path) {
        ++asked;
        CMValueNode::create(&m_nodes, path);
    });
    const CMPath path = base.appendSubpath(QStringLiteral("a/b"));
    EXPECT_FALSE(CMRoot()->getValue(path).isValid());
    EXPECT_FALSE(write(path, i32(1)).isError());
    EXPECT_FALSE(write(path, i32(2)).isError());
    EXPECT_EQ(write(path, text("x")).code(), CMError::WrongType);
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(valueAt(path).i32(), 2);
}

TEST_F(WorkerTest, SubtreeIsWhatIsBelowItsPath)
{
    m_nodes.ownSubtree(CMPath(QStringLiteral("/test/subtree")),
                       [&](const CMPath& path) { CMValueNode::create(&m_nodes, path); });
    EXPECT_EQ(write(CMPath(QStringLiteral("/test/subtree")), i32(1)).code(), CMError::NoSuchNode);
    EXPECT_EQ(write(CMPath(QStringLiteral("/test/subtreeX/a")), i32(1)).code(), CMError::NoSuchNode);
    EXPECT_EQ(write(CMPath(QStringLiteral("/test")), i32(1)).code(), CMError::NoSuchNode);
    EXPECT_EQ(write(CMPath(), i32(1)).code(), CMError::NoSuchNode);
}

TEST_F(WorkerTest, SubtreeOwnerMayLeaveAPath)
{
    m_nodes.ownSubtree(CMPath(QStringLiteral("/test/subtree")), [](const CMPath&) {});
    EXPECT_EQ(write(CMPath(QStringLiteral("/test/subtree/a")), i32(1)).code(), CMError::NoSuchNode);
}

TEST_F(WorkerTest, NearestSubtreeDecides)
{
    QStringList asked;
    m_nodes.ownSubtree(CMPath(QStringLiteral("/test/subtree")),
                       [&](const CMPath&) { asked.append("outer"); });
    m_nodes.ownSubtree(CMPath(QStringLiteral("/test/subtree/a")),
                       [&](const CMPath&) { asked.append("inner"); });
    write(CMPath(QStringLiteral("/test/subtree/a/x")), i32(1));
    write(CMPath(QStringLiteral("/test/subtree/b/x")), i32(1));
    EXPECT_EQ(asked, (QStringList{"inner", "outer"}));
}

TEST_F(WorkerTest, SubtreeGoesWithItsOwner)
{
    auto nodes = std::make_unique<CMNodes>();
    int asked = 0;
    nodes->ownSubtree(CMPath(QStringLiteral("/test/subtree")), [&asked](const CMPath&) { ++asked; });
    nodes.reset();
    EXPECT_EQ(write(CMPath(QStringLiteral("/test/subtree/a")), i32(1)).code(), CMError::NoSuchNode);
    EXPECT_EQ(asked, 0);
}

TEST_F(WorkerTest, SubtreeOwnerMayGoWhileItIsAsked)
{
    auto nodes = std::make_unique<CMNodes>();
    QString asked;
    nodes->ownSubtree(CMPath(QStringLiteral("/test/subtree")), [&nodes, &asked](const CMPath& path) {
        nodes.reset();
        asked = path.toString();
    });
    EXPECT_EQ(write(CMPath(QStringLiteral("/test/subtree/a")), i32(1)).code(), CMError::NoSuchNode);
    EXPECT_EQ(asked, "/test/subtree/a");
}

TEST_F(WorkerTest, NodesWorkerKeepsItsNameAndConfiguration)
{
    const QVariantHash config{{"key", 5}};
    const CMNodesWorker worker(config, QStringLiteral("Worker"));
    EXPECT_EQ(worker.objectName(), "Worker");
    EXPECT_EQ(worker.config(), config);
    ASSERT_NE(worker.nodes(), nullptr);
}

TEST_F(WorkerTest, NodesWorkerReachesTheWholeTree)
{
    m_node->setValue(i32(1));
    CMNodesWorker worker({}, QStringLiteral("Worker"));
    EXPECT_EQ(worker.getValue(kWorkerPath), CMRoot()->getValue(kWorkerPath));
    const CMVoidReply set;
    worker.setValue(kWorkerPath, i32(2), set);
    const CMVoidReply invoked;
    worker.invoke(kWorkerPath, {}, invoked);
    EXPECT_FALSE(set.isFinished());
    runEvents();
    EXPECT_EQ(m_node->value().i32(), 2);
    EXPECT_EQ(invoked.error().code(), CMError::NotInvocable);
}

TEST_F(WorkerTest, NodesGoWithTheirWorker)
{
    const CMPath path(QStringLiteral("/test/worker/own"));
    auto worker = std::make_unique<CMNodesWorker>(QVariantHash(), QStringLiteral("Worker"));
    CMValueNode::create(worker->nodes(), path)->setValue(i32(5));
    CMValueItem item(nullptr, path);
    const ValueRecord record(&item);
    worker.reset();
    ASSERT_EQ(record.count(), 1U);
    EXPECT_TRUE(record.value(0).isEmpty());
    EXPECT_EQ(record.previous(0).i32(), 5);
    EXPECT_FALSE(CMRoot()->getValue(path).isValid());
}

TEST_F(WorkerTest, HalfDestroyedWorkerHearsNothingOfItsNodes)
{
    class Worker : public CMNodesWorker
    {
    public:
        explicit Worker(int* calls) : CMNodesWorker({}, QStringLiteral("Worker")), m_calls(calls)
        {
            const CMPath path(QStringLiteral("/test/worker/own"));
            auto* const item = new CMValueItem(this, path);
            connect(item, &CMValueItem::changed, this, &Worker::count);
            CMValueNode::create(nodes(), path)->setValue(i32(5));
        }

    private:
        void count() { ++*m_calls; }
        int* m_calls;
    };
    int calls = 0;
    delete new Worker(&calls);
    EXPECT_EQ(calls, 1);
}

TEST_F(WorkerTest, WriteToANodeThatGoesInItsHandlerStillCompletes)
{
    m_node->setValue(i32(1));
    CMValueItem item(nullptr, kWorkerPath);
    QObject::connect(&item, &CMValueItem::changed, [this](const VornValue& value) {
        if (!value.isEmpty()) {
            delete m_node;
        }
    });
    EXPECT_FALSE(write(kWorkerPath, i32(2)).isError());
    EXPECT_FALSE(CMRoot()->getValue(kWorkerPath).isValid());
}
