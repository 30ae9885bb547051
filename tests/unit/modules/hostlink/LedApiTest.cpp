#include "modules/hostlink/LedApi.h"

#include <QElapsedTimer>

#include "support/HandlerFixture.h"

namespace
{

using Texts = std::vector<std::string>;

class LedApiTest : public HandlerFixture
{
protected:
    LedApiTest() { m_handler = &m_led; }

    CMVoidReply setPalette(const QStringList& entries)
    {
        return invoke(VornHostLinkSetPalettePath(), VornValue().setStringList(entries));
    }

    CMVoidReply setPattern(const QString& pattern)
    {
        return invoke(VornHostLinkSetPatternPath(), VornValue().setString(pattern));
    }

    LedApi& m_led = *new LedApi(&m_worker, &m_transport); ///< the worker's
};

TEST_F(LedApiTest, FourEntriesGoInOneMessageAndTheRestInTheNext)
{
    QElapsedTimer time;
    time.start();
    const CMVoidReply reply = setPalette({"ff0000", "00ff00", "0000ff", "ffffff", "000000"});
    EXPECT_GE(time.elapsed(), 20) << "between the two messages";
    EXPECT_FALSE(reply.error().isError());
    EXPECT_EQ(receive(), "MSG_LedControl 0=bin:ff000000ff000000ffffffff");
    EXPECT_EQ(receive(), "MSG_LedControl 0=bin:000000");
    EXPECT_TRUE(nothingSent());
}

TEST_F(LedApiTest, TenEntriesGoInThreeMessages)
{
    setPalette({"00", "01", "02", "03", "04", "05", "06", "07", "08", "09"});
    EXPECT_EQ(receive(), "MSG_LedControl 0=bin:00010203");
    EXPECT_EQ(receive(), "MSG_LedControl 0=bin:04050607");
    EXPECT_EQ(receive(), "MSG_LedControl 0=bin:0809");
    EXPECT_TRUE(nothingSent());
}

TEST_F(LedApiTest, FourEntriesAreOneMessage)
{
    setPalette({"00", "01", "02", "03"});
    EXPECT_EQ(receive(), "MSG_LedControl 0=bin:00010203");
    EXPECT_TRUE(nothingSent());
}

TEST_F(LedApiTest, AnEmptyListSendsNothingAndSucceeds)
{
    EXPECT_FALSE(setPalette({}).error().isError());
    EXPECT_FALSE(invoke(VornHostLinkSetPalettePath(), VornValue().setString("ff0000")).error().isError());
    EXPECT_TRUE(nothingSent());
}

TEST_F(LedApiTest, EntriesAreOfAnyLength)
{
    setPalette({"", "0a0b0c0d0e0f", "1"});
    EXPECT_EQ(receive(), "MSG_LedControl 0=bin:0a0b0c0d0e0f01");
}

TEST_F(LedApiTest, WhatIsNoHexadecimalDigitIsSkipped)
{
    setPalette({"#FF-00 xyz80", QString::fromUtf8("\u00e9\uff11")});
    EXPECT_EQ(receive(), "MSG_LedControl 0=bin:ff0080");
}

TEST_F(LedApiTest, EachEntryIsTraced)
{
    m_log.clear();
    setPalette({"ff0000", "zz"});
    EXPECT_EQ(m_log.traces(), (Texts{"Setting palette entry: ff0000", "Setting palette entry: zz"}));
}

TEST_F(LedApiTest, APaletteSoonAfterTheLastOneWaitsBeforeItsFirstMessage)
{
    QElapsedTimer time;
    time.start();
    m_led.sendPaletteMessage(QByteArray(3, 1));
    m_led.sendPaletteMessage(QByteArray(3, 2));
    m_led.sendPaletteMessage(QByteArray(3, 3));
    EXPECT_GE(time.elapsed(), 40);
    EXPECT_EQ(receive(), "MSG_LedControl 0=bin:010101");
    EXPECT_EQ(receive(), "MSG_LedControl 0=bin:020202");
    EXPECT_EQ(receive(), "MSG_LedControl 0=bin:030303");
}

TEST_F(LedApiTest, APatternIsSentAtOnceUnderItsOwnTag)
{
    m_log.clear();
    EXPECT_FALSE(setPattern("0a0B").error().isError());
    EXPECT_EQ(receive(), "MSG_LedControl 1=bin:0a0b");
    EXPECT_EQ(m_log.traces(), Texts{"Setting pattern to: 0a0B"});
}

TEST_F(LedApiTest, AnEmptyPatternIsSentToo)
{
    setPattern("");
    EXPECT_EQ(receive(), "MSG_LedControl 1=bin:");
}

TEST_F(LedApiTest, ARequestWithoutDataDoesNothing)
{
    m_led.on_setLedPalette_activated(CMSetDataRequest());
    m_led.on_setLedPattern_activated(CMSetDataRequest());
    EXPECT_TRUE(nothingSent());
}

TEST_F(LedApiTest, APaletteThatCannotBeSentFailsAndItsRestIsNotTried)
{
    m_transport.stop();
    m_log.clear();
    const CMVoidReply reply = setPalette({"00", "01", "02", "03", "04"});
    EXPECT_EQ(reply.error().Name(), "Error");
    EXPECT_EQ(reply.error().Message(), "Unable to write SetPalette message");
    EXPECT_EQ(m_log.errors(), Texts{"Unable to write SetPalette message"});
    EXPECT_EQ(m_log.traces().size(), 4U) << "the fifth entry is not looked at";
}

TEST_F(LedApiTest, APatternThatCannotBeSentFails)
{
    m_transport.stop();
    m_log.clear();
    const CMVoidReply reply = setPattern("0a");
    EXPECT_EQ(reply.error().Name(), "Error");
    EXPECT_EQ(reply.error().Message(), "Unable to write SetPattern message");
    EXPECT_EQ(m_log.errors(), Texts{"Unable to write SetPattern message"});
}

TEST_F(LedApiTest, APatternLongerThanAMessageCarriesFails)
{
    EXPECT_TRUE(setPattern(QString(2 * 65536, '0')).error().isError());
    EXPECT_TRUE(nothingSent());
}

TEST_F(LedApiTest, NoMessageOfTheHostIsItsOwn)
{
    for (const int id : {1, 6, 9, 0x8009}) {
        EXPECT_FALSE(m_led.handleMessage(MessageId(id), {}));
    }
    m_led.shutdown();
    EXPECT_FALSE(setPattern("01").error().isError());
    EXPECT_EQ(receive(), "MSG_LedControl 1=bin:01");
}

} // namespace
