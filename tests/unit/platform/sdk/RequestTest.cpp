#include <gtest/gtest.h>

#include "platform/sdk/CMSetDataRequest.h"

namespace
{
const CMError kRequestRefused(CMError::Refused, QStringLiteral("no"));
} // namespace

TEST(Request, WithoutDataIsNull)
{
    const CMSetDataRequest request;
    EXPECT_TRUE(request.isNull());
    EXPECT_FALSE(request.data().isValid());
    request.complete(1);
    request.fail(kRequestRefused);
}

TEST(Request, CarriesItsData)
{
    const CMSetDataRequest request(QVariantHash{{"a", 1}}, {});
    EXPECT_FALSE(request.isNull());
    EXPECT_EQ(request.data().toHash(), (QVariantHash{{"a", 1}}));
}

TEST(Request, CompletesItsReply)
{
    const CMReply<QVariant> reply;
    const CMSetDataRequest request({}, reply);
    const CMSetDataRequest copy = request;
    copy.complete(5);
    EXPECT_EQ(reply.value(), QVariant(5));
}

TEST(Request, FailsItsReply)
{
    const CMReply<QVariant> reply;
    CMSetDataRequest({}, reply).fail(kRequestRefused);
    EXPECT_EQ(reply.error().Message(), "no");
}

TEST(Request, UnansweredCompletesEmptyWithItsLastHandle)
{
    const CMReply<QVariant> reply;
    CMSetDataRequest request({}, reply);
    CMSetDataRequest copy = request;
    request = {};
    EXPECT_FALSE(reply.isFinished());
    copy = {};
    EXPECT_TRUE(reply.isFinished());
    EXPECT_FALSE(reply.value().isValid());
    EXPECT_FALSE(reply.error().isError());
}

TEST(Request, AnswerStaysWhenTheHandleGoes)
{
    const CMReply<QVariant> reply;
    CMSetDataRequest({}, reply).complete(5);
    EXPECT_EQ(reply.value(), QVariant(5));
}
