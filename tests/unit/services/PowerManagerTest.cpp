#include "services/PowerManager.h"

#include <gtest/gtest.h>

#include "platform/sdk/CMItem.h"
#include "platform/sdk/Paths.h"

namespace
{
using Texts = std::vector<std::string>;

class PowerManagerTest : public testing::Test
{
protected:
    PowerManagerTest()
    {
        QObject::connect(&m_item, &CMValueItem::changed,
                         [this](const VornValue& value) { m_changes.push_back(textOf(value)); });
    }

    static std::string textOf(const VornValue& value) { return value.toJsonString().toStdString(); }
    std::string value() const { return textOf(m_item.value()); }

    static CMError request(const VornHash& target)
    {
        const CMReply<QVariant> reply;
        CMRoot()->invoke(VornPowerManagerTargetRequestPath(), target, reply);
        EXPECT_TRUE(reply.wait());
        return reply.error();
    }

    static CMError write(const VornValue& value)
    {
        const CMReply<QVariant> reply;
        CMRoot()->setValue(VornPowerManagerTargetPath(), value, reply);
        EXPECT_TRUE(reply.wait());
        return reply.error();
    }

    PowerManager m_manager;
    CMValueItem m_item{nullptr, VornPowerManagerTargetPath()};
    Texts m_changes;
};
} // namespace

TEST_F(PowerManagerTest, BeginsWithAModuleThatStaysUp)
{
    EXPECT_EQ(value(), R"({"powerTarget":{"nextTarget":1,"reason":0,"target":1}})");
}

TEST_F(PowerManagerTest, ARequestIsTheNextTargetFirstThenTheTarget)
{
    EXPECT_FALSE(request({{"target", 3}}).isError());
    EXPECT_EQ(m_changes, Texts({R"({"powerTarget":{"nextTarget":3,"reason":0,"target":1}})",
                                R"({"powerTarget":{"nextTarget":3,"reason":0,"target":3}})"}));
}

TEST_F(PowerManagerTest, EveryKnownTargetIsTaken)
{
    for (int target = 0; target <= 6; ++target) {
        EXPECT_FALSE(request({{"target", target}}).isError()) << target;
        EXPECT_EQ(m_item.value().powerTarget().target(), target);
        EXPECT_EQ(m_item.value().powerTarget().nextTarget(), target);
    }
}

TEST_F(PowerManagerTest, ARequestForThePresentTargetChangesNothing)
{
    EXPECT_FALSE(request({{"target", 1}}).isError());
    EXPECT_TRUE(m_changes.empty());
}

TEST_F(PowerManagerTest, TheReasonIsThatOfTheLastRequest)
{
    request({{"target", 2}, {"reason", 3}});
    EXPECT_EQ(value(), R"({"powerTarget":{"nextTarget":2,"reason":3,"target":2}})");
    request({{"target", 1}});
    EXPECT_EQ(value(), R"({"powerTarget":{"nextTarget":1,"reason":0,"target":1}})");
}

TEST_F(PowerManagerTest, ARequestWithoutAKnownTargetIsRefused)
{
    for (const VornHash& target :
         {VornHash(), VornHash{{"target", "3"}}, VornHash{{"target", 7}}, VornHash{{"target", -1}},
          VornHash{{"target", 2.5}}, VornHash{{"i32_", 3}}, VornHash{{"target", QVariant()}}}) {
        const CMError error = request(target);
        EXPECT_EQ(error.code(), CMError::Refused);
        EXPECT_EQ(error.Message(),
                  R"(/powerManager/targetRequest: takes {"target":N} with N from 0 to 6, not )"
                      + target.toJsonString());
    }
    EXPECT_TRUE(m_changes.empty());
}

TEST_F(PowerManagerTest, TheTargetItselfTakesAnyNumber)
{
    EXPECT_FALSE(write(VornHash{{"powerTarget", QVariantHash{{"target", 99}}}}).isError());
    EXPECT_EQ(value(), R"({"powerTarget":{"target":99}})");
    EXPECT_FALSE(request({{"target", 4}}).isError());
    EXPECT_EQ(value(), R"({"powerTarget":{"nextTarget":4,"reason":0,"target":4}})");
}

TEST_F(PowerManagerTest, TheTargetTakesNothingElse)
{
    for (const VornHash& other :
         {VornHash(), VornHash{{"i32_", 3}}, VornHash{{"target", 3}}, VornHash{{"powerTarget", 3}},
          VornHash{{"powerTarget", QVariantHash{{"nextTarget", 3}}}},
          VornHash{{"powerTarget", QVariantHash{{"target", "3"}}}}}) {
        EXPECT_EQ(write(other).code(), CMError::Refused) << other.toJsonString().toStdString();
    }
    EXPECT_TRUE(m_changes.empty());
}
