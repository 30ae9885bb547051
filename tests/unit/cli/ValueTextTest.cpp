#include "cli/ValueText.h"

#include <CLI/CLI.hpp>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <limits>

#include "platform/hostlink/HexText.h"
#include "vocabulary/States.h"

namespace
{

/// The bytes that an assignment becomes, without the message's id.
std::string assigned(const std::string& text)
{
    HostLinkValueMessage message(MSG_SetState);
    appendAssignment(text, &message);
    return hexText(message.serialize()).substr(4);
}

template <typename Function>
std::string refusal(Function function)
{
    try {
        function();
    } catch (const CLI::ValidationError& error) {
        return error.what();
    }
    return "accepted";
}

std::string stateRefusal(const std::string& text)
{
    return refusal([&] { parseState(text); });
}

std::string assignmentRefusal(const std::string& text)
{
    HostLinkValueMessage message(MSG_SetState);
    const std::string reason = refusal([&] { appendAssignment(text, &message); });
    EXPECT_EQ(message.size() == 0, reason != "accepted") << "a refused assignment appends nothing";
    return reason;
}

bool refuses(const std::string& assignment)
{
    return assignmentRefusal(assignment) != "accepted";
}

HostLinkValueMessage withText(std::string_view text)
{
    HostLinkValueMessage message(MSG_GetStateResponse);
    message.addValueString(STA_TrackTitle, text);
    return message;
}

} // namespace

TEST(ParseState, TakesNamesWithAndWithoutPrefix)
{
    for (const StateRow& row : kStates) {
        EXPECT_EQ(parseState(std::string(row.name)), row.id);
        EXPECT_EQ(parseState(std::string(row.name.substr(4))), row.id);
    }
}

TEST(ParseState, TakesNumbersOfAnyState)
{
    EXPECT_EQ(parseState("9"), 9);
    EXPECT_EQ(parseState("0"), 0);
    EXPECT_EQ(parseState("65535"), 65535);
    EXPECT_EQ(parseState("0x7777"), 0x7777);
    EXPECT_EQ(parseState("0xF00a"), 0xF00A);
    EXPECT_EQ(parseState("0X9"), 9);
}

TEST(ParseState, RefusesNumbersThatAreNoState)
{
    EXPECT_EQ(stateRefusal("65536"), "'65536' is no state, a number from 0 to 65535");
    for (const char* text : {"0x10000", "0x", "12x", "99999999999999999999", "1 ", "0x-1", "0x0x1", "1.5"}) {
        EXPECT_NE(stateRefusal(text), "accepted") << text;
    }
}

TEST(ParseState, SuggestsTheNearestNames)
{
    EXPECT_EQ(stateRefusal("STA_Volum"), "there is no state 'STA_Volum'; did you mean STA_Volume?");
    EXPECT_EQ(stateRefusal("volume"), "there is no state 'volume'; did you mean STA_Volume, STA_ArcVolume?");
    EXPECT_EQ(
        stateRefusal("DiracStimuliGain"),
        "there is no state 'DiracStimuliGain'; did you mean STA_DiracStimuliGain0, STA_DiracStimuliGain1, "
        "STA_DiracStimuliGain2?");
}

TEST(ParseState, SuggestsNothingWhenNoNameIsNear)
{
    EXPECT_EQ(stateRefusal("xyzzy-plugh-quux"), "there is no state 'xyzzy-plugh-quux'");
    for (const char* text : {"", "STA_", " Volume", "Volume ", "-1", "STA_STA_Volume"}) {
        EXPECT_NE(stateRefusal(text), "accepted") << "'" << text << "'";
    }
}

TEST(Assignment, TakesAPlainValueAsTheTypeThatTheHostWrites)
{
    EXPECT_EQ(assigned("STA_Volume=65"), "0009cc41");
    EXPECT_EQ(assigned("PlayTime=-2"), "000ad3fffffffffffffffe");
    EXPECT_EQ(assigned("IpAddress=0xC0A80001"), "0301cec0a80001");
    EXPECT_EQ(assigned("DiracActiveFilter=-1"), "f308d2ffffffff");
    EXPECT_EQ(assigned("DeviceName=Den"), "0311da000344656e");
    EXPECT_EQ(assigned("9=0"), "0009cc00");
}

TEST(Assignment, ReturnsItsState)
{
    HostLinkValueMessage message(MSG_SetState);
    EXPECT_EQ(appendAssignment("0x7777=u8:5", &message), 0x7777);
    EXPECT_EQ(appendAssignment("Mute=1", &message), STA_Mute);
    EXPECT_EQ(message.size(), 2);
}

TEST(Assignment, TakesTheTypeInFront)
{
    EXPECT_EQ(assigned("0x7777=u8:255"), "7777ccff");
    EXPECT_EQ(assigned("0x7777=u16:65535"), "7777cdffff");
    EXPECT_EQ(assigned("0x7777=u32:4294967295"), "7777ceffffffff");
    EXPECT_EQ(assigned("0x7777=i8:-128"), "7777d080");
    EXPECT_EQ(assigned("0x7777=i32:-2147483648"), "7777d280000000");
    EXPECT_EQ(assigned("0x7777=i64:-9223372036854775808"), "7777d38000000000000000");
    EXPECT_EQ(assigned("0x7777=i64:9223372036854775807"), "7777d37fffffffffffffff");
    EXPECT_EQ(assigned("0x7777=str:hi"), "7777da00026869");
    EXPECT_EQ(assigned("0x7777=str:"), "7777da0000");
    EXPECT_EQ(assigned("0x7777=bin:0A0b"), "7777c500020a0b");
    EXPECT_EQ(assigned("0x7777=bin:"), "7777c50000");
    EXPECT_EQ(assigned("0x7777=nil"), "7777c0");
    EXPECT_EQ(assigned("Volume=u16:5"), "0009cd0005") << "another type than the state's";
    EXPECT_EQ(assigned("Volume=i8:-0x80"), "0009d080");
}

TEST(Assignment, OnlyATypesNameBeforeAColonIsAType)
{
    EXPECT_EQ(assigned("DeviceName=u9:5"), "0311da0004" + hexText({'u', '9', ':', '5'}));
    EXPECT_EQ(assigned("DeviceName=U8:5"), "0311da0004" + hexText({'U', '8', ':', '5'}));
    EXPECT_EQ(assigned("DeviceName= u8:5"), "0311da0005" + hexText({' ', 'u', '8', ':', '5'}));
    EXPECT_EQ(assigned("DeviceName=a:b"), "0311da0003" + hexText({'a', ':', 'b'}));
    EXPECT_EQ(assigned("DeviceName=:"), "0311da00013a");
    EXPECT_EQ(assigned("DeviceName=nil:"), "0311da0004" + hexText({'n', 'i', 'l', ':'}));
    EXPECT_EQ(assigned("DeviceName=none:"), "0311da0005" + hexText({'n', 'o', 'n', 'e', ':'}));
    EXPECT_EQ(assigned("DeviceName=u8:5"), "0311cc05");
}

TEST(Assignment, TextThatLooksLikeATypeNeedsItsPrefix)
{
    EXPECT_EQ(assigned("DeviceName=str:u8:5"), "0311da0004" + hexText({'u', '8', ':', '5'}));
    EXPECT_EQ(assigned("DeviceName=str:nil"), "0311da0003" + hexText({'n', 'i', 'l'}));
    EXPECT_EQ(assigned("DeviceName=str:str:"), "0311da0004" + hexText({'s', 't', 'r', ':'}));
}

TEST(Assignment, KeepsEqualsSignsAndBlanksOfText)
{
    EXPECT_EQ(assigned("DeviceName=a=b"), "0311da0003613d62");
    EXPECT_EQ(assigned("DeviceName= a "), "0311da0003206120");
    EXPECT_EQ(assigned("DeviceName="), "0311da0000");
}

TEST(Assignment, RefusesNumbersThatDoNotFit)
{
    EXPECT_EQ(assignmentRefusal("Volume=256"), "STA_Volume: '256' is no u8, a number from 0 to 255");
    EXPECT_EQ(assignmentRefusal("0x7777=i8:128"), "0x7777: '128' is no i8, a number from -128 to 127");
    for (const char* text : {"Volume=-1",
                             "Volume=",
                             "Volume=loud",
                             "Volume=5x",
                             "Volume=5.0",
                             "Volume=+5",
                             "Volume= 5",
                             "Volume=--5",
                             "Volume=0x",
                             "0x7777=u16:65536",
                             "0x7777=u32:4294967296",
                             "0x7777=u32:-1",
                             "0x7777=i8:-129",
                             "0x7777=i32:2147483648",
                             "0x7777=i32:-2147483649",
                             "0x7777=i32:0xFFFFFFFF",
                             "0x7777=i64:9223372036854775808",
                             "0x7777=i64:-9223372036854775809",
                             "0x7777=i64:18446744073709551616",
                             "0x7777=u8:"}) {
        EXPECT_TRUE(refuses(text)) << text;
    }
}

TEST(Assignment, RefusesBytesThatAreNotHex)
{
    EXPECT_EQ(assignmentRefusal("0x7777=bin:0"), "0x7777: '0' is no bin, pairs of hexadecimal digits");
    EXPECT_TRUE(refuses("0x7777=bin:0g"));
    EXPECT_TRUE(refuses("0x7777=bin:0x01"));
    EXPECT_TRUE(refuses("0x7777=bin:01 02"));
}

TEST(Assignment, RefusesPlainValuesWithoutAKnownType)
{
    EXPECT_EQ(assignmentRefusal("0x7777=5"),
              "0x7777 has no type that a host writes; put one in front of the value, as in u8:5");
    EXPECT_EQ(assignmentRefusal("PlayState=1"),
              "STA_PlayState has no type that a host writes; put one in front of the value, as in u8:5");
}

TEST(Assignment, RefusesWhatIsNoAssignment)
{
    EXPECT_EQ(assignmentRefusal("Volume"), "'Volume' is no assignment, STATE=VALUE");
    EXPECT_EQ(assignmentRefusal("Volum=5"), "there is no state 'Volum'; did you mean STA_Volume?");
    EXPECT_TRUE(refuses(""));
    EXPECT_TRUE(refuses("=5"));
}

TEST(Assignment, TakesTextAndBytesUpToTheLongestOfTheWire)
{
    EXPECT_EQ(assigned("DeviceName=" + std::string(65535, 'x')).size(), 10 + 2 * 65535U);
    EXPECT_EQ(assignmentRefusal("DeviceName=" + std::string(65536, 'x')),
              "STA_DeviceName: a value of 65536 bytes is longer than 65535");
    EXPECT_EQ(assigned("0x7777=bin:" + std::string(2 * 65535, 'a')).size(), 10 + 2 * 65535U);
    EXPECT_EQ(assignmentRefusal("0x7777=bin:" + std::string(2 * 65536, 'a')),
              "0x7777: a value of 65536 bytes is longer than 65535");
}

TEST(ValueLine, PrintsEveryType)
{
    HostLinkValueMessage message(MSG_GetStateResponse);
    message.addValueNil(STA_AvsState);
    message.addValueUint8(STA_Volume, 255);
    message.addValueUint16(0x7777, 65535);
    message.addValueUint32(STA_IpAddress, 4294967295U);
    message.addValueInt8(STA_Bass, -128);
    message.addValueInt32(STA_DiracActiveFilter, -5);
    message.addValueInt64(STA_PlayTime, std::numeric_limits<std::int64_t>::min());
    message.addValueString(STA_TrackTitle, "Blue in Green");
    message.addValueBin16(0x000A, {0x00, 0xAB});
    const char* lines[] = {"STA_AvsState\tnil\t",
                           "STA_Volume\tu8\t255",
                           "0x7777\tu16\t65535",
                           "STA_IpAddress\tu32\t4294967295",
                           "STA_Bass\ti8\t-128",
                           "STA_DiracActiveFilter\ti32\t-5",
                           "STA_PlayTime\ti64\t-9223372036854775808",
                           "STA_TrackTitle\tstr\tBlue in Green",
                           "STA_PlayTime\tbin\t00ab"};
    for (int i = 0; i < message.size(); ++i) {
        EXPECT_EQ(valueLine(message, i), lines[i]);
    }
}

TEST(ValueLine, KeepsTextInItsField)
{
    EXPECT_EQ(valueLine(withText("a\tb\nc\rd\\e"), 0), "STA_TrackTitle\tstr\ta\\tb\\nc\\rd\\\\e");
    EXPECT_EQ(valueLine(withText("caf\xC3\xA9 \"x\""), 0), "STA_TrackTitle\tstr\tcaf\xC3\xA9 \"x\"");
    EXPECT_EQ(valueLine(withText(""), 0), "STA_TrackTitle\tstr\t");
}

TEST(NoneLine, HasAnEmptyValue)
{
    EXPECT_EQ(noneLine(STA_Volume), "STA_Volume\tnone\t");
    EXPECT_EQ(noneLine(State(0x7777)), "0x7777\tnone\t");
}

TEST(ValueJson, PrintsEveryType)
{
    HostLinkValueMessage message(MSG_GetStateResponse);
    message.addValueNil(STA_AvsState);
    message.addValueUint8(STA_Volume, 65);
    message.addValueUint16(0x7777, 65535);
    message.addValueUint32(STA_IpAddress, 4294967295U);
    message.addValueInt8(STA_Bass, -128);
    message.addValueInt32(STA_DiracActiveFilter, -5);
    message.addValueInt64(STA_PlayTime, 9007199254740993);
    message.addValueString(STA_TrackTitle, "a \"b\"");
    message.addValueBin16(0x7778, {0x00, 0xAB});
    message.addValueBin16(0x7778, {});
    const char* lines[] = {R"({"name":"STA_AvsState","state":37,"type":"nil","value":null})",
                           R"({"name":"STA_Volume","state":9,"type":"u8","value":65})",
                           R"({"name":"0x7777","state":30583,"type":"u16","value":65535})",
                           R"({"name":"STA_IpAddress","state":769,"type":"u32","value":4294967295})",
                           R"({"name":"STA_Bass","state":26,"type":"i8","value":-128})",
                           R"({"name":"STA_DiracActiveFilter","state":62216,"type":"i32","value":-5})",
                           R"({"name":"STA_PlayTime","state":10,"type":"i64","value":9007199254740993})",
                           R"({"name":"STA_TrackTitle","state":12,"type":"str","value":"a \"b\""})",
                           R"({"name":"0x7778","state":30584,"type":"bin","value":"00ab"})",
                           R"({"name":"0x7778","state":30584,"type":"bin","value":""})"};
    for (int i = 0; i < message.size(); ++i) {
        EXPECT_EQ(valueJson(message, i), lines[i]);
    }
}

TEST(ValueJson, IsOneLineOfUtf8WhateverTheText)
{
    EXPECT_EQ(valueJson(withText("a\nb\xFF"), 0),
              R"({"name":"STA_TrackTitle","state":12,"type":"str","value":"a\nb\ufffd"})");
    EXPECT_EQ(valueJson(withText(""), 0), R"({"name":"STA_TrackTitle","state":12,"type":"str","value":""})");
}

TEST(NoneJson, HasANullValue)
{
    EXPECT_EQ(noneJson(STA_Volume), R"({"name":"STA_Volume","state":9,"type":"none","value":null})");
}

RC_GTEST_PROP(ValueText, NumbersAreReadAsTheyArePrinted,
              (std::int64_t i64, std::int32_t i32, std::uint16_t u16))
{
    HostLinkValueMessage message(MSG_SetState);
    message.addValueInt64(0x7777, i64);
    message.addValueInt32(0x7777, i32);
    message.addValueUint16(0x7777, u16);
    HostLinkValueMessage read(MSG_SetState);
    for (int i = 0; i < message.size(); ++i) {
        std::string line = valueLine(message, i);
        line[line.find('\t')] = '=';
        line[line.find('\t')] = ':';
        appendAssignment(line, &read);
    }
    RC_ASSERT(read.serialize() == message.serialize());
}

RC_GTEST_PROP(ValueText, FieldsAndLinesOfAnyTextStayWhole, (const std::string& text))
{
    const std::string line = valueLine(withText(text), 0);
    RC_ASSERT(std::count(line.begin(), line.end(), '\t') == 2);
    RC_ASSERT(line.find_first_of("\r\n") == std::string::npos);
}
