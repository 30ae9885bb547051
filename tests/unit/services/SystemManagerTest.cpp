#include "services/SystemManager.h"

#include <gtest/gtest.h>

#include "platform/sdk/Paths.h"
#include "support/WaitFor.h"

TEST(SystemManager, AnswersARequestForAFactoryReset)
{
    const SystemManager manager;
    const CMReply<QVariant> reply;
    CMRoot()->invoke(VornSystemManagerFactoryResetPath(), VornHash(), reply);
    EXPECT_FALSE(reply.isFinished());
    ASSERT_TRUE(waitFor([&] { return reply.isFinished(); }));
    EXPECT_FALSE(reply.error().isError());
    EXPECT_FALSE(reply.value().isValid());
}
