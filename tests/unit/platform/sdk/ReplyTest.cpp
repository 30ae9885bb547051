#include <gtest/gtest.h>

#include <QTimer>
#include <memory>

#include "unit/platform/sdk/SdkTest.h"

namespace
{
const CMPath kReplyPath(QStringLiteral("/test/reply"));
const CMError kRefused(CMError::Refused, QStringLiteral("no"));
} // namespace

TEST(Reply, IsOpenUntilCompleted)
{
    const CMReply<QVariant> reply;
    EXPECT_FALSE(reply.isFinished());
    EXPECT_FALSE(reply.value().isValid());
    EXPECT_FALSE(reply.error().isError());
    reply.complete(5);
    EXPECT_TRUE(reply.isFinished());
    EXPECT_EQ(reply.value(), QVariant(5));
}

TEST(Reply, FailsWithItsError)
{
    const CMReply<QVariant> reply;
    reply.fail(kRefused);
    EXPECT_TRUE(reply.isFinished());
    EXPECT_TRUE(reply.error().isError());
    EXPECT_EQ(reply.error().code(), CMError::Refused);
    EXPECT_EQ(reply.error().Message(), "no");
    EXPECT_FALSE(reply.value().isValid());
}

TEST(Reply, AnErrorOfAnOwnerHasNameAndTitle)
{
    const CMError plain(TrString(QStringLiteral("no such file")));
    EXPECT_TRUE(plain.isError());
    EXPECT_EQ(plain.Message(), "no such file");
    EXPECT_EQ(plain.Name(), "Error");
    EXPECT_EQ(plain.Title(), "Error");
    const CMError named(TrString(QStringLiteral("no")), QStringLiteral("Busy"), QStringLiteral("Not now"));
    EXPECT_EQ(named.Name(), "Busy");
    EXPECT_EQ(named.Title(), "Not now");
    EXPECT_EQ(kRefused.Name(), CMError::defaultName());
    EXPECT_FALSE(CMError().isError());
}

TEST(Reply, FirstCompletionCounts)
{
    const CMReply<QVariant> completed;
    completed.complete(1);
    completed.complete(2);
    completed.fail(kRefused);
    EXPECT_EQ(completed.value(), QVariant(1));
    EXPECT_FALSE(completed.error().isError());

    const CMReply<QVariant> failed;
    failed.fail(kRefused);
    failed.complete(1);
    EXPECT_FALSE(failed.value().isValid());
    EXPECT_TRUE(failed.error().isError());
}

TEST(Reply, CopiesShareIt)
{
    const CMReply<QVariant> reply;
    const CMReply<QVariant> copy = reply;
    copy.complete(5);
    EXPECT_EQ(reply.value(), QVariant(5));
}

TEST(Reply, OwnsTheDataItIsGiven)
{
    const CMVoidReply reply(new CMReplyData<QVariant>);
    reply.complete(5);
    EXPECT_EQ(reply.value(), QVariant(5));
}

TEST(Reply, CallsOneKindOfHandlerOnce)
{
    QObject context;
    int results = 0;
    int errors = 0;
    const auto attach = [&](const CMReply<QVariant>& reply) {
        reply.onResult(&context, [&results](const QVariant&) { ++results; });
        reply.onError(&context, [&errors](const CMError&) { ++errors; });
    };
    const CMReply<QVariant> good;
    attach(good);
    good.complete(1);
    good.complete(2);
    EXPECT_EQ(results, 1);
    EXPECT_EQ(errors, 0);
    const CMReply<QVariant> bad;
    attach(bad);
    bad.fail(kRefused);
    bad.fail(kRefused);
    EXPECT_EQ(results, 1);
    EXPECT_EQ(errors, 1);
}

TEST(Reply, HandlerAttachedAfterCompletionRunsAtOnce)
{
    QObject context;
    const CMReply<QVariant> reply;
    reply.fail(kRefused);
    QString message;
    reply.onError(&context, [&message](const CMError& error) { message = error.Message(); });
    EXPECT_EQ(message, "no");
}

TEST(Reply, HandlersRunInTheOrderOfAttaching)
{
    QObject context;
    std::vector<int> order;
    const CMReply<QVariant> reply;
    for (int i = 0; i < 3; ++i) {
        reply.onResult(&context, [&order, i](const QVariant&) { order.push_back(i); });
    }
    reply.complete({});
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2}));
}

TEST(Reply, HandlerGoesWithItsContext)
{
    auto context = std::make_unique<QObject>();
    int calls = 0;
    const CMReply<QVariant> reply;
    reply.onResult(context.get(), [&calls](const QVariant&) { ++calls; });
    reply.onResult(
        context.get(), [&calls](const QVariant&) { ++calls; }, Qt::QueuedConnection);
    context.reset();
    reply.complete({});
    runEvents();
    EXPECT_EQ(calls, 0);
}

TEST(Reply, ContextMayGoBetweenCompletionAndQueuedHandler)
{
    auto context = std::make_unique<QObject>();
    int calls = 0;
    const CMReply<QVariant> reply;
    reply.onResult(
        context.get(), [&calls](const QVariant&) { ++calls; }, Qt::QueuedConnection);
    reply.complete({});
    context.reset();
    runEvents();
    EXPECT_EQ(calls, 0);
}

TEST(Reply, HandlerWithoutContextStays)
{
    int calls = 0;
    const CMReply<QVariant> reply;
    reply.onResult(nullptr, [&calls](const QVariant&) { ++calls; });
    reply.complete({});
    EXPECT_EQ(calls, 1);
}

TEST(Reply, QueuedHandlerRunsLaterThoughTheReplyIsGone)
{
    QObject context;
    QVariant seen;
    {
        const CMReply<QVariant> reply;
        reply.onResult(
            &context, [&seen](const QVariant& value) { seen = value; }, Qt::QueuedConnection);
        reply.complete(5);
        EXPECT_FALSE(seen.isValid());
    }
    runEvents();
    EXPECT_EQ(seen, QVariant(5));
}

TEST(Reply, QueuedHandlerAttachedAfterCompletionRunsLater)
{
    QObject context;
    int calls = 0;
    const CMReply<QVariant> reply;
    reply.fail(kRefused);
    reply.onError(
        &context, [&calls](const CMError&) { ++calls; }, Qt::QueuedConnection);
    EXPECT_EQ(calls, 0);
    runEvents();
    EXPECT_EQ(calls, 1);
}

TEST(Reply, HandlerMayDropTheLastHandle)
{
    QObject context;
    auto reply = std::make_unique<CMReply<QVariant>>();
    CMReplyData<QVariant>* data = new CMReplyData<QVariant>;
    reply = std::make_unique<CMReply<QVariant>>(data);
    QVariant seen;
    reply->onResult(&context, [&](const QVariant&) { reply.reset(); });
    reply->onResult(&context, [&](const QVariant& value) { seen = value; });
    data->complete(5);
    EXPECT_EQ(reply, nullptr);
    EXPECT_EQ(seen, QVariant(5));
}

TEST(Reply, HandlerMayAttachAnother)
{
    QObject context;
    int calls = 0;
    const CMReply<QVariant> reply;
    reply.onResult(
        &context, [&](const QVariant&) { reply.onResult(&context, [&calls](const QVariant&) { ++calls; }); });
    reply.complete({});
    EXPECT_EQ(calls, 1);
}

TEST(Reply, WaitRunsThePostedWrite)
{
    CMNodes nodes;
    CMValueNode::create(&nodes, kReplyPath)->setValue(i32(1));
    const CMVoidReply reply;
    CMRoot()->setValue(kReplyPath, i32(2), reply);
    EXPECT_FALSE(reply.isFinished());
    EXPECT_TRUE(reply.wait());
    EXPECT_TRUE(reply.isFinished());
    EXPECT_EQ(VornValue(CMRoot()->getValue(kReplyPath).toHash()).i32(), 2);
    runEvents();
}

TEST(Reply, WaitRunsNothingButTheTreesCompletions)
{
    CMNodes nodes;
    CMValueNode::create(&nodes, kReplyPath)->setValue(i32(1));
    QObject context;
    bool queuedRan = false;
    bool timerRan = false;
    QMetaObject::invokeMethod(
        &context, [&queuedRan] { queuedRan = true; }, Qt::QueuedConnection);
    QTimer::singleShot(0, &context, [&timerRan] { timerRan = true; });
    const CMVoidReply reply;
    CMRoot()->setValue(kReplyPath, i32(2), reply);
    EXPECT_TRUE(reply.wait());
    EXPECT_FALSE(queuedRan);
    EXPECT_FALSE(timerRan);
    QCoreApplication::processEvents();
    EXPECT_TRUE(queuedRan);
    EXPECT_TRUE(timerRan);
}

TEST(Reply, WaitKeepsTheOrderOfWrites)
{
    CMNodes nodes;
    CMValueNode* const node = CMValueNode::create(&nodes, kReplyPath);
    CMValueItem item(nullptr, kReplyPath);
    const ValueRecord record(&item);
    node->setValue(i32(0));
    CMVoidReply replies[3];
    for (int i = 0; i < 3; ++i) {
        CMRoot()->setValue(kReplyPath, i32(i + 1), replies[i]);
    }
    EXPECT_TRUE(replies[1].wait());
    EXPECT_TRUE(replies[0].isFinished());
    EXPECT_FALSE(replies[2].isFinished());
    runEvents();
    ASSERT_EQ(record.count(), 4U);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(record.value(i).i32(), i);
    }
}

TEST(Reply, WaitRunsAQueuedInvocationToItsAnswer)
{
    CMNodes nodes;
    QObject receiver;
    CMActivateNode::create(
        &nodes, kReplyPath, &receiver, [](const CMSetDataRequest& request) { request.complete(7); },
        Qt::QueuedConnection);
    const CMVoidReply reply;
    CMRoot()->invoke(kReplyPath, {}, reply);
    EXPECT_TRUE(reply.wait());
    EXPECT_EQ(reply.value(), QVariant(7));
    runEvents();
}

TEST(Reply, WaitGivesUpWhenNothingCanFinishIt)
{
    CMNodes nodes;
    QObject receiver;
    CMSetDataRequest kept;
    CMActivateNode::create(
        &nodes, kReplyPath, &receiver, [&kept](const CMSetDataRequest& request) { kept = request; },
        Qt::QueuedConnection);
    const CMVoidReply reply;
    EXPECT_FALSE(reply.wait());
    CMRoot()->invoke(kReplyPath, {}, reply);
    EXPECT_FALSE(reply.wait());
    kept.complete(1);
    EXPECT_TRUE(reply.wait());
    runEvents();
}

TEST(Reply, WaitMayBeNestedInACompletion)
{
    CMNodes nodes;
    CMValueNode::create(&nodes, kReplyPath)->setValue(i32(0));
    QObject context;
    const CMVoidReply outer;
    const CMVoidReply inner;
    bool waited = false;
    outer.onResult(&context, [&](const QVariant&) {
        CMRoot()->setValue(kReplyPath, i32(2), inner);
        waited = inner.wait();
    });
    CMRoot()->setValue(kReplyPath, i32(1), outer);
    EXPECT_TRUE(outer.wait());
    EXPECT_TRUE(waited);
    EXPECT_EQ(VornValue(CMRoot()->getValue(kReplyPath).toHash()).i32(), 2);
    runEvents();
}
