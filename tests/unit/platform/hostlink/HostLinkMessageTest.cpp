#include "platform/hostlink/HostLinkMessage.h"

#include <gtest/gtest.h>

#include "vocabulary/MessageIds.h"

TEST(HostLinkMessage, ReadsTheIdBigEndian)
{
    EXPECT_EQ(HostLinkMessage::messageId({0x80, 0x02}), 0x8002);
    EXPECT_EQ(HostLinkMessage::messageId({0x00, 0xFF}), 0x00FF);
}

TEST(HostLinkMessage, DoesNotExamineTheBodyForTheId)
{
    EXPECT_EQ(HostLinkMessage::messageId({0x00, 0x42, 0xFF, 0xFF, 0xFF}), 0x0042);
}

TEST(HostLinkMessage, HasIdZeroWithFewerThanTwoBytes)
{
    EXPECT_EQ(HostLinkMessage::messageId({}), 0);
    EXPECT_EQ(HostLinkMessage::messageId({0x80}), 0);
}

TEST(HostLinkMessage, TellsResponsesByTheTopBit)
{
    EXPECT_TRUE(HostLinkMessage::isResponseMessageId(MSG_ErrorResponse));
    EXPECT_TRUE(HostLinkMessage::isResponseMessageId(MessageId(0x8042)));
    EXPECT_FALSE(HostLinkMessage::isResponseMessageId(MSG_LedControl));
    EXPECT_FALSE(HostLinkMessage::isResponseMessageId(MessageId(0x7FFF)));
}

TEST(HostLinkMessage, SharesTheLinkByClass)
{
    EXPECT_EQ(messageClass(MessageId(0x0007)), MessageClass::Bulk);
    EXPECT_EQ(messageClass(MessageId(0x0008)), MessageClass::Bulk);
    EXPECT_EQ(messageClass(MessageId(0x8007)), MessageClass::Bulk);
    EXPECT_EQ(messageClass(MessageId(0x8009)), MessageClass::Bulk);
    EXPECT_EQ(messageClass(MessageId(0x8008)), MessageClass::State);
    EXPECT_EQ(messageClass(MessageId(0x0009)), MessageClass::State);
    EXPECT_EQ(messageClass(MessageId(0x0000)), MessageClass::State);
}
