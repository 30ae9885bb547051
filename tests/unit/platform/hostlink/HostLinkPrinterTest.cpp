#include "platform/hostlink/HostLinkPrinter.h"

#include <gtest/gtest.h>

#include "platform/hostlink/HostLinkUInt16Message.h"
#include "platform/hostlink/HostLinkValueMessage.h"

namespace
{

std::string printText(std::string_view text)
{
    HostLinkValueMessage message(MSG_StateChanged);
    message.addValueString(STA_TrackTitle, text);
    return HostLinkPrinter::printMessage(message.serialize());
}

} // namespace

TEST(HostLinkPrinter, NamesStates)
{
    EXPECT_EQ(HostLinkPrinter::printHostLinkState(STA_Volume), "STA_Volume");
    EXPECT_EQ(HostLinkPrinter::printHostLinkState(State(0x7A0B)), "0x7A0B");
    EXPECT_EQ(HostLinkPrinter::printHostLinkState(State(0)), "0x0000");
}

TEST(HostLinkPrinter, NamesMessages)
{
    EXPECT_EQ(HostLinkPrinter::printMessageId(MSG_TcpTunnelReply), "MSG_TcpTunnelReply");
    EXPECT_EQ(HostLinkPrinter::printMessageId(MessageId(0x8004)), "0x8004");
}

TEST(HostLinkPrinter, PrintsEveryTypeOfValueOnOneLine)
{
    HostLinkValueMessage message(MSG_SetState);
    message.addValueNil(STA_Mute);
    message.addValueUint8(STA_Volume, 65);
    message.addValueUint16(0x7777, 65535);
    message.addValueUint32(STA_IpAddress, 4294967295U);
    message.addValueInt8(STA_Bass, -3);
    message.addValueInt32(STA_DiracActiveFilter, -1);
    message.addValueInt64(STA_PlayTime, -9000000000);
    message.addValueString(STA_DeviceName, "Living room");
    message.addValueBin16(STA_TrackIcon, {0x00, 0xAB});
    EXPECT_EQ(HostLinkPrinter::printMessage(message.serialize()),
              "MSG_SetState STA_Mute=nil STA_Volume=u8:65 0x7777=u16:65535 STA_IpAddress=u32:4294967295 "
              "STA_Bass=i8:-3 STA_DiracActiveFilter=i32:-1 STA_PlayTime=i64:-9000000000 "
              "STA_DeviceName=str:\"Living room\" STA_TrackIcon=bin:00ab");
}

TEST(HostLinkPrinter, NamesStatesInListsOfNumbers)
{
    HostLinkUInt16Message message(MSG_SubscribeResponse);
    message.addValue(STA_HostMicMute);
    message.addValue(0x7777);
    EXPECT_EQ(HostLinkPrinter::printMessage(message.serialize()),
              "MSG_SubscribeResponse STA_HostMicMute 0x7777");
}

TEST(HostLinkPrinter, NamesStatesInEveryMessageOfTheStateProtocol)
{
    for (const MessageId id : {MSG_SetState, MSG_StateChanged, MSG_SetStateResponse, MSG_GetStateResponse}) {
        HostLinkValueMessage message(id);
        message.addValueNil(STA_Volume);
        EXPECT_EQ(HostLinkPrinter::printMessage(message.serialize()),
                  HostLinkPrinter::printMessageId(id) + " STA_Volume=nil");
    }
    for (const MessageId id :
         {MSG_GetState, MSG_Subscribe, MSG_Unsubscribe, MSG_SubscribeResponse, MSG_UnsubscribeResponse}) {
        HostLinkUInt16Message message(id);
        message.addValue(STA_Volume);
        EXPECT_EQ(HostLinkPrinter::printMessage(message.serialize()),
                  HostLinkPrinter::printMessageId(id) + " STA_Volume");
    }
}

TEST(HostLinkPrinter, PrintsEmptyMessagesByName)
{
    EXPECT_EQ(HostLinkPrinter::printMessage({0x00, 0x02}), "MSG_GetState");
    EXPECT_EQ(HostLinkPrinter::printMessage({0x80, 0x01}), "MSG_SetStateResponse");
}

TEST(HostLinkPrinter, NamesTheRefusedMessageOfAnErrorResponse)
{
    EXPECT_EQ(HostLinkPrinter::printMessage({0x80, 0x00, 0x00, 0x02, 0xC0}),
              "MSG_ErrorResponse MSG_GetState=nil");
    EXPECT_EQ(HostLinkPrinter::printMessage({0x80, 0x00, 0x00, 0x42, 0xC0}), "MSG_ErrorResponse 0x0042=nil");
}

TEST(HostLinkPrinter, TakesNoTagOfOtherMessagesForAState)
{
    EXPECT_EQ(HostLinkPrinter::printMessage({0x00, 0x07, 0x00, 0x09, 0xCC, 0x05}), "MSG_DataTransfer 9=u8:5");
    EXPECT_EQ(HostLinkPrinter::printMessage({0x80, 0x09, 0x00, 0x01, 0xCC, 0x05}),
              "MSG_TcpTunnelReply 1=u8:5");
}

TEST(HostLinkPrinter, CountsWhatFollowsTheLastWholeValue)
{
    EXPECT_EQ(HostLinkPrinter::printMessage({0x00, 0x01, 0x00, 0x09, 0xCC, 0x05, 0x00, 0x0C, 0xA0}),
              "MSG_SetState STA_Volume=u8:5 + 3 unread bytes");
    EXPECT_EQ(HostLinkPrinter::printMessage({0x00, 0x02, 0x00, 0x09, 0xCC}),
              "MSG_GetState STA_Volume + 1 unread bytes");
}

TEST(HostLinkPrinter, PrintsTheBodyOfUnknownMessagesAsHex)
{
    EXPECT_EQ(HostLinkPrinter::printMessage({0x00, 0x42}), "0x0042");
    EXPECT_EQ(HostLinkPrinter::printMessage({0x00, 0x42, 0x0A, 0xFF}), "0x0042 body:0aff");
}

TEST(HostLinkPrinter, PrintsWhatIsNoMessage)
{
    EXPECT_EQ(HostLinkPrinter::printMessage({}), "no message, 0 bytes");
    EXPECT_EQ(HostLinkPrinter::printMessage({0x80}), "no message, 1 bytes");
}

TEST(HostLinkPrinter, KeepsTextOnItsLineAndAwayFromTheTerminal)
{
    const std::string start = "MSG_StateChanged STA_TrackTitle=str:";
    EXPECT_EQ(printText(""), start + "\"\"");
    EXPECT_EQ(printText("a\tb\r\n"), start + R"("a\x09b\x0d\x0a")");
    EXPECT_EQ(printText(std::string_view("\x1b[2J\x7f\0", 6)), start + R"("\x1b[2J\x7f\x00")");
    EXPECT_EQ(printText(R"(say "hi" \o/)"), start + R"("say \"hi\" \\o/")");
    EXPECT_EQ(printText("\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x8E\xB5"),
              start + "\"\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x8E\xB5\"");
    EXPECT_EQ(printText("\xC2\x9B"
                        "1m"),
              start + R"("\xc2\x9b1m")")
        << "a control character of two bytes";
}

TEST(HostLinkPrinter, PrintsBytesThatAreNotUtf8AsHex)
{
    const std::string start = "MSG_StateChanged STA_TrackTitle=str:";
    EXPECT_EQ(printText("a\xFFz"), start + R"("a\xffz")");
    EXPECT_EQ(printText("\xC3"), start + R"("\xc3")") << "cut off";
    EXPECT_EQ(printText("\xC0\xAF"), start + R"("\xc0\xaf")") << "overlong";
    EXPECT_EQ(printText("\xED\xA0\x80"), start + R"("\xed\xa0\x80")") << "a surrogate";
}
