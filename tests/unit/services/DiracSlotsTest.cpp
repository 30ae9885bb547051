#include "services/DiracSlots.h"

#include <gtest/gtest.h>

#include "platform/sdk/Paths.h"
#include "platform/sdk/VornJson.h"

namespace
{
class DiracSlotsTest : public testing::Test
{
protected:
    static std::string at(const CMPath& path)
    {
        return VornHash(CMRoot()->getValue(path).toHash()).toJsonString().toStdString();
    }
    static std::string filter() { return at(VornDiracActiveFilterPath()); }

    static std::string choose(const QString& settings)
    {
        VornJson::Error error;
        const CMReply<QVariant> reply;
        CMRoot()->setValue(VornDiracSlotsSettingsPath(), VornHash(VornJson::parse(settings, &error).toHash()),
                           reply);
        EXPECT_TRUE(reply.wait());
        return reply.error().Message().toStdString();
    }

    DiracSlots m_slots;
};
} // namespace

TEST_F(DiracSlotsTest, NoneIsActiveAtFirst)
{
    EXPECT_EQ(at(VornDiracSlotsSettingsPath()), R"({"slotsList":{"activeSlot":0}})");
    EXPECT_EQ(filter(), R"({"i32_":0})");
}

TEST_F(DiracSlotsTest, ChoosingASlotActivatesItsFilter)
{
    EXPECT_EQ(choose(R"({"slotsList":{"activeSlot":2,"names":["Sofa"]}})"), "");
    EXPECT_EQ(filter(), R"({"i32_":2})");
    EXPECT_EQ(choose(R"({"slotsList":{"activeSlot":0}})"), "");
    EXPECT_EQ(filter(), R"({"i32_":0})");
}

TEST_F(DiracSlotsTest, WhatIsNoSlotIsRefused)
{
    choose(R"({"slotsList":{"activeSlot":1}})");
    for (const char* settings : {"{}", R"({"slotsList":{}})", R"({"slotsList":{"activeSlot":-1}})",
                                 R"({"slotsList":{"activeSlot":"2"}})", R"({"slotsList":5})"}) {
        EXPECT_EQ(
            choose(settings),
            std::string(R"(/settings/dirac/slots: takes {"slotsList":{"activeSlot":N}}, N from 0, not )")
                + settings);
    }
    EXPECT_EQ(filter(), R"({"i32_":1})");
}
