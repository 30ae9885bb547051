#include "platform/hostlink/HostLinkValueMessage.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/hostlink/HexText.h"
#include "platform/hostlink/HostLinkLog.h"
#include "vocabulary/WireType.h"

namespace
{

ByteArray bytesOf(const std::string& hex)
{
    std::string digits;
    for (const char c : hex) {
        if (c != ' ') {
            digits += c;
        }
    }
    return parseHex(digits).value();
}

HostLinkValueMessage received(const std::string& hex)
{
    return HostLinkValueMessage(bytesOf(hex));
}

/// What is read of one value, whatever its type.
struct Reading {
    std::uint16_t tag;
    std::uint8_t encoding;
    std::int64_t number;
    std::string text;
    ByteArray bytes;

    bool operator==(const Reading& other) const
    {
        return tag == other.tag && encoding == other.encoding && number == other.number && text == other.text
               && bytes == other.bytes;
    }
};

Reading readValue(const HostLinkValueMessage& message, int i)
{
    const std::int64_t number = std::int64_t{message.getInt8(i)} + message.getUint8(i) + message.getUint16(i)
                                + message.getInt32(i) + message.getUint32(i) + message.getInt64(i);
    return {message.getTag(i), message.getEnc(i), number, message.getString(i), message.getBin16(i)};
}

std::vector<Reading> readAll(const HostLinkValueMessage& message)
{
    std::vector<Reading> values;
    for (int i = 0; i < message.size(); ++i) {
        values.push_back(readValue(message, i));
    }
    return values;
}

/// The types whose readers accept value i.
std::vector<WireType> acceptedAs(const HostLinkValueMessage& message, int i)
{
    std::vector<WireType> types;
    const auto ask = [&](WireType type, auto reader) {
        bool ok = false;
        const auto value = (message.*reader)(i, &ok);
        if (ok) {
            types.push_back(type);
        } else {
            EXPECT_EQ(value, decltype(value)()) << "a refused value reads as 0 or empty";
        }
        EXPECT_EQ((message.*reader)(i, nullptr), value) << "the flag is optional";
    };
    ask(WireType::I8, &HostLinkValueMessage::getInt8);
    ask(WireType::U8, &HostLinkValueMessage::getUint8);
    ask(WireType::U16, &HostLinkValueMessage::getUint16);
    ask(WireType::I32, &HostLinkValueMessage::getInt32);
    ask(WireType::U32, &HostLinkValueMessage::getUint32);
    ask(WireType::I64, &HostLinkValueMessage::getInt64);
    ask(WireType::Str, &HostLinkValueMessage::getString);
    ask(WireType::Bin, &HostLinkValueMessage::getBin16);
    return types;
}

/// One value of each format, with its own tag each.
HostLinkValueMessage oneOfEach()
{
    HostLinkValueMessage message(MSG_SetState);
    message.addValueNil(1);
    message.addValueUint8(2, 200);
    message.addValueUint16(3, 50000);
    message.addValueUint32(4, 4000000000U);
    message.addValueInt8(5, -100);
    message.addValueInt32(6, -2000000000);
    message.addValueInt64(7, -3);
    message.addValueString(8, "abc");
    message.addValueBin16(9, {0xDE, 0xAD});
    return message;
}

const std::vector<std::uint8_t> kEncodings{0xC0, 0xCC, 0xCD, 0xCE, 0xD0, 0xD2, 0xD3, 0xDA, 0xC5};

/// Collects what the library logs while it lives.
class LogCapture
{
public:
    LogCapture()
    {
        HostLinkLog::setSink([this](HostLinkLog::Level level, const std::string& text) {
            m_levels.push_back(level);
            m_texts.push_back(text);
        });
    }
    ~LogCapture() { HostLinkLog::setSink({}); }

    const std::vector<HostLinkLog::Level>& levels() const { return m_levels; }
    const std::vector<std::string>& texts() const { return m_texts; }

private:
    std::vector<HostLinkLog::Level> m_levels;
    std::vector<std::string> m_texts;
};

} // namespace

TEST(HostLinkValueMessage, IsItsIdAloneWhenEmpty)
{
    const HostLinkValueMessage message(MSG_GetStateResponse);
    EXPECT_EQ(hexText(message.serialize()), "8002");
    EXPECT_EQ(message.id(), MSG_GetStateResponse);
    EXPECT_EQ(message.size(), 0);
}

TEST(HostLinkValueMessage, WritesNil)
{
    HostLinkValueMessage message(MSG_ErrorResponse);
    message.addValueNil(0x0042);
    EXPECT_EQ(message.serialize(), bytesOf("8000 0042 C0"));
}

TEST(HostLinkValueMessage, WritesUnsignedNumbersAtTheirLimits)
{
    HostLinkValueMessage message(MSG_StateChanged);
    message.addValueUint8(0xFFFF, 0);
    message.addValueUint8(9, 255);
    message.addValueUint16(9, 0);
    message.addValueUint16(9, 65535);
    message.addValueUint16(9, 0x0102);
    message.addValueUint32(9, 4294967295U);
    message.addValueUint32(9, 0x01020304);
    EXPECT_EQ(message.serialize(),
              bytesOf("0004 FFFF CC 00  0009 CC FF  0009 CD 0000  0009 CD FFFF  0009 CD 0102"
                      "0009 CE FFFFFFFF  0009 CE 01020304"));
}

TEST(HostLinkValueMessage, WritesSignedNumbersAtTheirLimits)
{
    HostLinkValueMessage message(MSG_StateChanged);
    message.addValueInt8(9, -128);
    message.addValueInt8(9, 127);
    message.addValueInt32(9, std::numeric_limits<std::int32_t>::min());
    message.addValueInt32(9, std::numeric_limits<std::int32_t>::max());
    message.addValueInt32(9, -2);
    message.addValueInt64(9, std::numeric_limits<std::int64_t>::min());
    message.addValueInt64(9, std::numeric_limits<std::int64_t>::max());
    message.addValueInt64(9, 0x0102030405060708);
    EXPECT_EQ(message.serialize(),
              bytesOf("0004 0009 D0 80  0009 D0 7F  0009 D2 80000000  0009 D2 7FFFFFFF  0009 D2 FFFFFFFE"
                      "0009 D3 8000000000000000  0009 D3 7FFFFFFFFFFFFFFF  0009 D3 0102030405060708"));
}

TEST(HostLinkValueMessage, WritesTextAndBytesWithTheirLength)
{
    HostLinkValueMessage message(MSG_SetState);
    EXPECT_TRUE(message.addValueString(12, "a\xC3\xA9"));
    EXPECT_TRUE(message.addValueString(12, ""));
    EXPECT_TRUE(message.addValueBin16(2, {0x00, 0xFF}));
    EXPECT_TRUE(message.addValueBin16(2, {}));
    EXPECT_EQ(message.serialize(),
              bytesOf("0001 000C DA 0003 61C3A9  000C DA 0000  0002 C5 0002 00FF  0002 C5 0000"));
}

TEST(HostLinkValueMessage, KeepsZeroBytesOfText)
{
    HostLinkValueMessage message(MSG_SetState);
    message.addValueString(12, std::string_view("a\0b", 3));
    EXPECT_EQ(message.serialize(), bytesOf("0001 000C DA 0003 610062"));
    EXPECT_EQ(message.getString(0), std::string("a\0b", 3));
}

TEST(HostLinkValueMessage, ReadsEveryFormatWithItsLimits)
{
    const HostLinkValueMessage message =
        received("8002 0001 CC FF  0002 CD FFFF  0003 CE FFFFFFFF  0004 D0 80  0005 D2 80000000"
                 "0006 D3 8000000000000000  0007 DA 0002 6869  0008 C5 0002 00FF  0009 C0");
    ASSERT_EQ(message.size(), 9);
    EXPECT_EQ(message.getUint8(0), 255);
    EXPECT_EQ(message.getUint16(1), 65535);
    EXPECT_EQ(message.getUint32(2), 4294967295U);
    EXPECT_EQ(message.getInt8(3), -128);
    EXPECT_EQ(message.getInt32(4), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(message.getInt64(5), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(message.getString(6), "hi");
    EXPECT_EQ(message.getBin16(7), (ByteArray{0x00, 0xFF}));
    EXPECT_EQ(message.getEnc(8), 0xC0);
    EXPECT_EQ(message.getTag(8), 9);
}

TEST(HostLinkValueMessage, ReadsBackWhatWasAdded)
{
    const HostLinkValueMessage message = oneOfEach();
    ASSERT_EQ(message.size(), 9);
    EXPECT_EQ(message.getUint8(1), 200);
    EXPECT_EQ(message.getUint16(2), 50000);
    EXPECT_EQ(message.getUint32(3), 4000000000U);
    EXPECT_EQ(message.getInt8(4), -100);
    EXPECT_EQ(message.getInt32(5), -2000000000);
    EXPECT_EQ(message.getInt64(6), -3);
    EXPECT_EQ(message.getString(7), "abc");
    EXPECT_EQ(message.getBin16(8), (ByteArray{0xDE, 0xAD}));
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(message.getTag(i), i + 1);
        EXPECT_EQ(message.getEnc(i), kEncodings[static_cast<std::size_t>(i)]);
    }
}

TEST(HostLinkValueMessage, ReadersAcceptTheirOwnFormatOnly)
{
    const HostLinkValueMessage message = oneOfEach();
    const WireType types[] = {WireType::Nil, WireType::U8,  WireType::U16, WireType::U32, WireType::I8,
                              WireType::I32, WireType::I64, WireType::Str, WireType::Bin};
    for (int i = 0; i < message.size(); ++i) {
        const WireType type = types[i];
        const std::vector<WireType> expected =
            type == WireType::Nil ? std::vector<WireType>{} : std::vector<WireType>{type};
        EXPECT_EQ(acceptedAs(message, i), expected) << "value " << i;
    }
}

TEST(HostLinkValueMessage, SaysWhenThereIsNoSuchValue)
{
    const HostLinkValueMessage message = received("0001 0009 CC 05");
    for (const int index : {1, -1, 1000, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        EXPECT_TRUE(acceptedAs(message, index).empty()) << index;
        bool ok = true;
        EXPECT_EQ(message.getTag(index, &ok), 0) << index;
        EXPECT_FALSE(ok) << index;
        ok = true;
        EXPECT_EQ(message.getEnc(index, &ok), 0) << index;
        EXPECT_FALSE(ok) << index;
    }
    bool tag = false;
    bool encoding = false;
    EXPECT_EQ(message.getTag(0, &tag), 9);
    EXPECT_EQ(message.getEnc(0, &encoding), 0xCC);
    EXPECT_TRUE(tag && encoding);
}

TEST(HostLinkValueMessage, IsEmptyWithIdZeroWithoutAnId)
{
    for (const ByteArray& bytes : {ByteArray{}, ByteArray{0x80}}) {
        const HostLinkValueMessage message(bytes);
        EXPECT_EQ(message.id(), 0);
        EXPECT_EQ(message.size(), 0);
    }
}

TEST(HostLinkValueMessage, CutAnywhereEndsAtTheLastWholeValue)
{
    const ByteArray whole = oneOfEach().serialize();
    const std::vector<Reading> values = readAll(oneOfEach());
    const std::vector<std::size_t> ends{2, 5, 9, 14, 21, 25, 32, 43, 51, 58};
    ASSERT_EQ(whole.size(), ends.back());
    for (std::size_t cut = 2; cut <= whole.size(); ++cut) {
        const auto count =
            static_cast<std::size_t>(std::upper_bound(ends.begin(), ends.end(), cut) - ends.begin() - 1);
        const HostLinkValueMessage message(ByteArray(whole.begin(), whole.begin() + static_cast<long>(cut)));
        EXPECT_EQ(message.id(), MSG_SetState);
        ASSERT_EQ(static_cast<std::size_t>(message.size()), count) << "cut at " << cut;
        EXPECT_TRUE(
            std::equal(values.begin(), values.begin() + static_cast<long>(count), readAll(message).begin()))
            << "cut at " << cut;
        EXPECT_EQ(message.serialize().size(), ends[count]) << "cut at " << cut;
    }
}

TEST(HostLinkValueMessage, EndsBeforeAValueOfAnotherFormat)
{
    for (int format = 0; format <= 0xFF; ++format) {
        const auto byte = static_cast<std::uint8_t>(format);
        ByteArray bytes = bytesOf("0004 0009 CC 05 000A");
        bytes.push_back(byte);
        bytes.insert(bytes.end(), 12, 0x00);
        const bool known = std::find(kEncodings.begin(), kEncodings.end(), byte) != kEncodings.end();
        const HostLinkValueMessage message(bytes);
        EXPECT_EQ(message.size() > 1, known) << "format " << format;
        EXPECT_EQ(message.getUint8(0), 5) << "format " << format;
    }
}

TEST(HostLinkValueMessage, EndsBeforeTextLongerThanTheMessage)
{
    EXPECT_EQ(received("0004 0009 CC 05 000C DA FFFF 616263").size(), 1);
    EXPECT_EQ(received("0004 0009 CC 05 000C C5 0004 616263").size(), 1);
    EXPECT_EQ(received("0004 0009 CC 05 000C C5 0003 616263").size(), 2);
}

TEST(HostLinkValueMessage, CanGrowAfterItWasReceivedCutOff)
{
    HostLinkValueMessage message = received("0004 0009 CC 05 000C DA FF");
    message.addValueUint8(7, 1);
    EXPECT_EQ(message.serialize(), bytesOf("0004 0009 CC 05 0007 CC 01"));
    EXPECT_EQ(message.getUint8(1), 1);
}

TEST(HostLinkValueMessage, TakesTextAndBytesUpToTheirLongest)
{
    const LogCapture log;
    HostLinkValueMessage message(MSG_SetState);
    const std::string text(65535, 'x');
    EXPECT_TRUE(message.addValueString(12, text));
    EXPECT_TRUE(message.addValueBin16(2, ByteArray(65535, 0xAB)));
    EXPECT_TRUE(log.texts().empty());

    const HostLinkValueMessage parsed(message.serialize());
    ASSERT_EQ(parsed.size(), 2);
    EXPECT_EQ(parsed.getString(0), text);
    EXPECT_EQ(parsed.getBin16(1), ByteArray(65535, 0xAB));
}

TEST(HostLinkValueMessage, SendsLongerTextAsNilAndSaysSo)
{
    const LogCapture log;
    HostLinkValueMessage message(MSG_SetState);
    EXPECT_FALSE(message.addValueString(12, std::string(65536, 'x')));
    EXPECT_FALSE(message.addValueBin16(2, ByteArray(65536)));
    EXPECT_EQ(message.serialize(), bytesOf("0001 000C C0 0002 C0"));
    EXPECT_EQ(log.texts(),
              (std::vector<std::string>{"MSG_SetState: value 12 of 65536 bytes is too long, sent as nil",
                                        "MSG_SetState: value 2 of 65536 bytes is too long, sent as nil"}));
    EXPECT_EQ(log.levels(), std::vector<HostLinkLog::Level>(2, HostLinkLog::Level::Warning));
}

TEST(HostLinkValueMessage, HoldsTenSmallValuesWithoutGrowingItsBytes)
{
    HostLinkValueMessage message(MSG_GetStateResponse);
    const std::uint8_t* bytes = message.serialize().data();
    for (std::uint16_t i = 0; i < 10; ++i) {
        message.addValueInt64(i, i);
    }
    EXPECT_EQ(message.serialize().data(), bytes);
}

TEST(HostLinkValueMessage, ParsesBytesWhereTheyAre)
{
    ByteArray bytes = oneOfEach().serialize();
    const std::uint8_t* place = bytes.data();
    const HostLinkValueMessage message(std::move(bytes));
    EXPECT_EQ(message.size(), 9);
    EXPECT_EQ(message.serialize().data(), place);
}

TEST(HostLinkValueMessage, CanBeCopiedAndMoved)
{
    HostLinkValueMessage message = oneOfEach();
    HostLinkValueMessage copy = message;
    copy.addValueNil(77);
    EXPECT_EQ(message.size(), 9);
    const HostLinkValueMessage moved = std::move(message);
    EXPECT_EQ(readAll(moved), readAll(oneOfEach()));
}

TEST(HostLinkValueMessage, RestartedIsAnotherEmptyMessage)
{
    HostLinkValueMessage message = oneOfEach();
    message.restart(MSG_SetState);
    EXPECT_EQ(message.id(), MSG_SetState);
    EXPECT_EQ(message.size(), 0);
    bool ok = true;
    EXPECT_EQ(message.getTag(0, &ok), 0);
    EXPECT_FALSE(ok);
    EXPECT_EQ(message.serialize(), bytesOf("0001"));
    message.addValueUint8(1, 5);
    message.addValueString(2, "a text that is longer than the one before");
    EXPECT_EQ(message.getUint8(0), 5);
    EXPECT_EQ(message.getString(1), "a text that is longer than the one before");
    EXPECT_EQ(readAll(HostLinkValueMessage(message.serialize())), readAll(message));
}

TEST(HostLinkValueMessage, RestartedAfterMoreValuesThanAFewHoldsNoneOfThem)
{
    HostLinkValueMessage message(MSG_StateChanged);
    for (int i = 0; i < 40; ++i) {
        message.addValueNil(std::uint16_t(i));
    }
    message.restart(MSG_StateChanged);
    for (int i = 0; i < 20; ++i) {
        message.addValueUint8(std::uint16_t(100 + i), std::uint8_t(i));
    }
    ASSERT_EQ(message.size(), 20);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(message.getTag(i), 100 + i);
        EXPECT_EQ(message.getUint8(i), i);
    }
}

RC_GTEST_PROP(HostLinkValueMessage, RestartedReadsAnotherMessageAsANewOneWould,
              (const ByteArray& before, const ByteArray& after))
{
    HostLinkValueMessage message(before);
    message.restart(after);
    const HostLinkValueMessage fresh(after);
    RC_ASSERT(message.id() == fresh.id());
    RC_ASSERT(readAll(message) == readAll(fresh));
    RC_ASSERT(message.serialize() == fresh.serialize());
}

TEST(HostLinkValueMessage, CanBeRestartedFromItsOwnBytes)
{
    HostLinkValueMessage message = oneOfEach();
    message.restart(message.serialize());
    EXPECT_EQ(readAll(message), readAll(oneOfEach()));
}

TEST(HostLinkValueMessage, RestartedKeepsItsMemory)
{
    HostLinkValueMessage message = oneOfEach();
    const ByteArray bytes = message.serialize();
    const std::uint8_t* place = message.serialize().data();
    message.restart(bytes);
    EXPECT_EQ(message.serialize().data(), place);
    message.restart(MSG_SetState);
    message.addValueUint8(1, 5);
    EXPECT_EQ(message.serialize().data(), place);
}

TEST(HostLinkValueMessage, RestartedGivesBackTheMemoryOfALongMessage)
{
    constexpr std::size_t kMostKept = 64 * 1024;
    HostLinkValueMessage message(MSG_DataTransfer);
    message.addValueBin16(1, ByteArray(60'000));
    message.addValueBin16(2, ByteArray(60'000));
    message.restart(MSG_DataTransfer);
    EXPECT_LE(message.serialize().capacity(), kMostKept);
    HostLinkValueMessage read(ByteArray(200'000));
    read.restart(bytesOf("0001 0001 CC 05"));
    EXPECT_LE(read.serialize().capacity(), kMostKept);
    EXPECT_EQ(read.getUint8(0), 5);
}

TEST(HostLinkValueMessage, HasRoomForAFewValuesBehindALongOne)
{
    HostLinkValueMessage message(MSG_DataTransfer);
    message.addValueBin16(1, ByteArray(32'768));
    const std::uint8_t* place = message.serialize().data();
    message.addValueUint32(2, 7);
    message.addValueNil(3);
    EXPECT_EQ(message.serialize().data(), place) << "the long value was copied";
}

TEST(HostLinkValueMessage, ShowsATextWhereItLies)
{
    const HostLinkValueMessage message = received("0001 0001 DA 0003 610062 0002 CC 05");
    bool ok = false;
    const std::string_view text = message.getStringView(0, &ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(text, std::string_view("a\0b", 3));
    EXPECT_EQ(text.data(), reinterpret_cast<const char*>(message.serialize().data()) + 7);
    for (const int i : {1, 2, -1}) {
        ok = true;
        const std::string_view none = message.getStringView(i, &ok);
        EXPECT_FALSE(ok) << i;
        EXPECT_TRUE(none.empty()) << i;
        EXPECT_NE(none.data(), nullptr) << i;
    }
}

RC_GTEST_PROP(HostLinkValueMessage, GivesBackWhatWasAdded,
              (std::uint16_t tag, std::int8_t i8, std::uint8_t u8, std::uint16_t u16, std::int32_t i32,
               std::uint32_t u32, std::int64_t i64, const std::string& text, const ByteArray& bin))
{
    HostLinkValueMessage built(MSG_StateChanged);
    built.addValueString(tag, text);
    built.addValueInt8(tag, i8);
    built.addValueBin16(tag, bin);
    built.addValueUint8(tag, u8);
    built.addValueInt64(tag, i64);
    built.addValueUint16(tag, u16);
    built.addValueUint32(tag, u32);
    built.addValueInt32(tag, i32);
    const HostLinkValueMessage parsed(built.serialize());
    RC_ASSERT(parsed.size() == 8);
    RC_ASSERT(parsed.getTag(7) == tag);
    RC_ASSERT(parsed.getString(0) == text);
    RC_ASSERT(parsed.getInt8(1) == i8);
    RC_ASSERT(parsed.getBin16(2) == bin);
    RC_ASSERT(parsed.getUint8(3) == u8);
    RC_ASSERT(parsed.getInt64(4) == i64);
    RC_ASSERT(parsed.getUint16(5) == u16);
    RC_ASSERT(parsed.getUint32(6) == u32);
    RC_ASSERT(parsed.getInt32(7) == i32);
}

RC_GTEST_PROP(HostLinkValueMessage, OfAnyBytesHoldsABeginningOfThem, ())
{
    // Known formats come often, so that there are values to read.
    const auto byte = rc::gen::oneOf(rc::gen::arbitrary<std::uint8_t>(), rc::gen::elementOf(kEncodings),
                                     rc::gen::just(std::uint8_t(0)));
    const ByteArray bytes = *rc::gen::suchThat(rc::gen::container<ByteArray>(byte),
                                               [](const ByteArray& b) { return b.size() >= 2; });
    const HostLinkValueMessage message(bytes);
    const ByteArray& kept = message.serialize();
    RC_ASSERT(kept.size() <= bytes.size());
    RC_ASSERT(std::equal(kept.begin(), kept.end(), bytes.begin()));
    RC_ASSERT(readAll(HostLinkValueMessage(kept)) == readAll(message));
}

TEST(HostLinkValueMessage, CopiesSingleValuesOfOthersWithTheirTags)
{
    const HostLinkValueMessage from(
        {0x00, 0x04, 0x00, 0x07, 0xCC, 0x01, 0x00, 0x08, 0xDA, 0x00, 0x01, 'a', 0x00, 0x09, 0xC0});
    HostLinkValueMessage to(MSG_GetStateResponse);
    for (const int i : {2, 1, 0, -1, 3}) {
        to.addValueOf(from, i);
    }
    EXPECT_EQ(to.serialize(), (ByteArray{0x80, 0x02, 0x00, 0x09, 0xC0, 0x00, 0x08, 0xDA, 0x00, 0x01, 'a',
                                         0x00, 0x07, 0xCC, 0x01}));
    EXPECT_EQ(to.size(), 3);
    EXPECT_EQ(to.getString(1), "a");
    to.addValueOf(to, 1);
    EXPECT_EQ(to.getTag(3), 8);
    EXPECT_EQ(to.getString(3), "a");
}

TEST(HostLinkValueMessage, HoldsManyValues)
{
    constexpr int kMany = 1000;
    HostLinkValueMessage message(MSG_StateChanged);
    for (int i = 0; i < kMany; ++i) {
        message.addValueInt32(std::uint16_t(i), -i);
    }
    const HostLinkValueMessage parsed(message.serialize());
    for (const HostLinkValueMessage& each : {message, parsed}) {
        ASSERT_EQ(each.size(), kMany);
        for (int i = 0; i < kMany; ++i) {
            ASSERT_EQ(each.getTag(i), i);
            ASSERT_EQ(each.getInt32(i), -i);
        }
    }
}

TEST(HostLinkValueMessage, TakesMoreValuesAfterItsBytesWereAskedFor)
{
    HostLinkValueMessage message(MSG_SetState);
    message.addValueUint8(1, 5);
    EXPECT_EQ(message.serialize(), bytesOf("0001 0001 CC 05"));
    message.addValueUint16(2, 0x0607);
    EXPECT_EQ(message.serialize(), bytesOf("0001 0001 CC 05 0002 CD 0607"));
    EXPECT_EQ(message.getUint8(0), 5);
    EXPECT_EQ(message.getUint16(1), 0x0607);
}

TEST(HostLinkValueMessage, CopiesItsOwnValueWhileItGrows)
{
    const std::string text(100, 'x');
    HostLinkValueMessage message(MSG_SetState);
    message.addValueString(1, text);
    for (int copies = 1; copies < 50; ++copies) {
        message.addValueOf(message, copies - 1);
        ASSERT_EQ(message.getTag(copies), 1);
        ASSERT_EQ(message.getString(copies), text);
    }
}
