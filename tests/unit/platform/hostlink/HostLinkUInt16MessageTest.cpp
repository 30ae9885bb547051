#include "platform/hostlink/HostLinkUInt16Message.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <limits>
#include <vector>

namespace
{

std::vector<std::uint16_t> numbersOf(const HostLinkUInt16Message& message)
{
    std::vector<std::uint16_t> numbers;
    for (int i = 0; i < message.size(); ++i) {
        numbers.push_back(message.get(i));
    }
    return numbers;
}

} // namespace

TEST(HostLinkUInt16Message, IsBuiltBigEndianBehindItsId)
{
    HostLinkUInt16Message message(MSG_SubscribeResponse);
    message.addValue(0xF003);
    message.addValue(9);
    EXPECT_EQ(message.serialize(), (ByteArray{0x80, 0x03, 0xF0, 0x03, 0x00, 0x09}));
    EXPECT_EQ(message.id(), MSG_SubscribeResponse);
    EXPECT_EQ(message.size(), 2);
}

TEST(HostLinkUInt16Message, IsItsIdAloneWhenEmpty)
{
    const HostLinkUInt16Message message(MSG_GetState);
    EXPECT_EQ(message.serialize(), (ByteArray{0x00, 0x02}));
    EXPECT_EQ(message.size(), 0);
}

TEST(HostLinkUInt16Message, ReadsReceivedNumbers)
{
    const HostLinkUInt16Message message(ByteArray{0x00, 0x02, 0x77, 0x77, 0x00, 0x09, 0xFF, 0xFF});
    EXPECT_EQ(message.id(), MSG_GetState);
    EXPECT_EQ(numbersOf(message), (std::vector<std::uint16_t>{0x7777, 9, 0xFFFF}));
}

TEST(HostLinkUInt16Message, EndsAtTheLastWholeNumber)
{
    const HostLinkUInt16Message message(ByteArray{0x00, 0x02, 0x00, 0x09, 0x77});
    EXPECT_EQ(numbersOf(message), (std::vector<std::uint16_t>{9}));
    EXPECT_EQ(message.serialize(), (ByteArray{0x00, 0x02, 0x00, 0x09}));
}

TEST(HostLinkUInt16Message, IsEmptyWithIdZeroWithoutAnId)
{
    for (const ByteArray& bytes : {ByteArray{}, ByteArray{0x80}}) {
        const HostLinkUInt16Message message(bytes);
        EXPECT_EQ(message.id(), 0);
        EXPECT_EQ(message.size(), 0);
    }
}

TEST(HostLinkUInt16Message, SaysWhenThereIsNoSuchNumber)
{
    const HostLinkUInt16Message message(ByteArray{0x00, 0x02, 0x00, 0x09});
    bool ok = false;
    EXPECT_EQ(message.get(0, &ok), 9);
    EXPECT_TRUE(ok);
    for (const int index : {1, -1, 1000, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        ok = true;
        EXPECT_EQ(message.get(index, &ok), 0) << index;
        EXPECT_FALSE(ok) << index;
        EXPECT_EQ(message.get(index), 0) << index;
    }
}

TEST(HostLinkUInt16Message, CanGrowAfterItWasReceivedCutOff)
{
    HostLinkUInt16Message message(ByteArray{0x00, 0x02, 0x00, 0x09, 0x77});
    message.addValue(0x0102);
    EXPECT_EQ(message.serialize(), (ByteArray{0x00, 0x02, 0x00, 0x09, 0x01, 0x02}));
    EXPECT_EQ(numbersOf(message), (std::vector<std::uint16_t>{9, 0x0102}));
}

RC_GTEST_PROP(HostLinkUInt16Message, GivesBackWhatWasAdded, (const std::vector<std::uint16_t>& numbers))
{
    HostLinkUInt16Message built(MSG_Subscribe);
    for (const std::uint16_t number : numbers) {
        built.addValue(number);
    }
    RC_ASSERT(numbersOf(built) == numbers);
    RC_ASSERT(numbersOf(HostLinkUInt16Message(built.serialize())) == numbers);
}
