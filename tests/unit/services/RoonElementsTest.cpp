#include "services/RoonElements.h"

#include <gtest/gtest.h>

#include "platform/sdk/CMNode.h"
#include "platform/sdk/Paths.h"

namespace
{
class RoonElementsTest : public testing::Test
{
protected:
    /// What a write fails with; empty when it is done.
    static std::string write(const QString& id, const QVariant& held)
    {
        const CMReply<QVariant> reply;
        CMRoot()->setValue(VornRoonSignalPathCustomElement().appendSubpath(id), VornValue().setVariant(held),
                           reply);
        EXPECT_TRUE(reply.wait());
        return reply.error().Message().toStdString();
    }

    static QStringList elements() { return CMNodes::list(VornRoonSignalPathCustomElement().toString()); }

    RoonElements m_elements;
};
} // namespace

TEST_F(RoonElementsTest, AFirstWriteMakesAnElement)
{
    EXPECT_EQ(elements(), QStringList{"/roon/signalPath/customElement/locked"});
    EXPECT_EQ(write("volume", 5), "");
    EXPECT_EQ(write("volume", "loud"), "") << "of any type, any time";
    EXPECT_EQ(elements(), (QStringList{"/roon/signalPath/customElement/locked",
                                       "/roon/signalPath/customElement/volume"}));
    const VornValue value =
        VornHash(CMRoot()->getValue(VornRoonSignalPathCustomElement().appendSubpath("volume")).toHash());
    EXPECT_EQ(value.variant(), "loud");
}

TEST_F(RoonElementsTest, OneElementRefuses)
{
    EXPECT_NE(write("locked", 5), "");
}

TEST_F(RoonElementsTest, WhatIsNoNameOfAnElementMakesNone)
{
    for (const char* id : {"", "a/b", "/", "a/"}) {
        EXPECT_NE(write(id, 5), "") << id;
    }
    EXPECT_EQ(elements().size(), 1);
}

TEST_F(RoonElementsTest, ElementsAreBounded)
{
    for (int i = 0; i < 64; ++i) {
        EXPECT_EQ(write(QString("e%1").arg(i), i), "");
    }
    EXPECT_NE(write("e64", 64), "");
    EXPECT_EQ(write("e63", 5), "") << "those that are there stay in use";
    EXPECT_EQ(elements().size(), 65);
}
