#include <gtest/gtest.h>

#include <QVariantHash>
#include <cmath>
#include <limits>

#include "platform/sdk/CMPath.h"
#include "platform/sdk/VornJson.h"
#include "support/DeepValue.h"

namespace
{
QVariant parsed(const QString& text)
{
    VornJson::Error error;
    const QVariant value = VornJson::parse(text, &error);
    EXPECT_TRUE(error.isEmpty()) << text.toStdString() << ": " << error.toString().toStdString();
    return value;
}

VornJson::Error failed(const QString& text)
{
    VornJson::Error error;
    const QVariant value = VornJson::parse(text, &error);
    EXPECT_FALSE(value.isValid()) << text.toStdString();
    EXPECT_FALSE(error.isEmpty()) << text.toStdString();
    EXPECT_NE(error.code(), 0) << text.toStdString();
    return error;
}

std::pair<int, int> place(const VornJson::Error& error)
{
    return {error.line(), error.column()};
}
} // namespace

TEST(Json, ParsesAnyValue)
{
    EXPECT_EQ(parsed("true"), QVariant(true));
    EXPECT_EQ(parsed(" false\n"), QVariant(false));
    EXPECT_EQ(parsed("5"), QVariant(5LL));
    EXPECT_EQ(parsed("-0.5"), QVariant(-0.5));
    EXPECT_EQ(parsed("\t\"text\" "), QVariant("text"));
    EXPECT_EQ(parsed("[1,\"a\"]"), QVariant(QVariantList{1LL, "a"}));
    EXPECT_EQ(parsed("[]"), QVariant(QVariantList()));
    EXPECT_EQ(parsed("{}"), QVariant(QVariantHash()));
}

TEST(Json, NullIsAValue)
{
    EXPECT_TRUE(parsed("null").isValid());
    EXPECT_TRUE(parsed("null").isNull());
    EXPECT_EQ(VornJson::print(parsed("null")), "null");
}

TEST(Json, ObjectsAreHashesToAnyDepth)
{
    const QVariant value = parsed(R"([{"a": {"b": [{}]}}])");
    const QVariant outer = value.toList().value(0);
    EXPECT_EQ(outer.type(), QVariant::Hash);
    const QVariant inner = outer.toHash().value("a");
    EXPECT_EQ(inner.type(), QVariant::Hash);
    EXPECT_EQ(inner.toHash().value("b").toList().value(0).type(), QVariant::Hash);
}

TEST(Json, KeepsBothEndsOf64Bits)
{
    for (const QString text : {"9223372036854775807", "-9223372036854775808", "9007199254740993", "0"}) {
        const QVariant bare = parsed(text);
        EXPECT_EQ(bare.type(), QVariant::LongLong);
        EXPECT_EQ(VornJson::print(bare), text);
        const QString nested = "{\"a\":[" + text + "]}";
        EXPECT_EQ(VornJson::print(parsed(nested)), nested);
    }
    EXPECT_EQ(parsed("9223372036854775807").toLongLong(), std::numeric_limits<qint64>::max());
    EXPECT_EQ(parsed("-9223372036854775808").toLongLong(), std::numeric_limits<qint64>::min());
}

TEST(Json, IntegerBeyond64BitsIsADouble)
{
    EXPECT_EQ(parsed("9223372036854775808").type(), QVariant::Double);
    EXPECT_EQ(parsed("9223372036854775808").toDouble(), 9223372036854775808.0);
}

TEST(Json, PrintsNumbersShortAndExact)
{
    EXPECT_EQ(VornJson::print(0.1), "0.1");
    EXPECT_EQ(VornJson::print(5.0), "5");
    EXPECT_EQ(VornJson::print(-1.5e-7), "-1.5e-07");
    EXPECT_EQ(VornJson::print(1e300), "1e+300");
    EXPECT_EQ(VornJson::print(18446744073709551615ULL), "18446744073709551615");
    EXPECT_EQ(VornJson::print(QVariant::fromValue(18446744073709551615UL)), "18446744073709551615");
    EXPECT_EQ(VornJson::print(QVariant::fromValue<signed char>(-5)), "-5");
}

TEST(Json, PrintsNoNumberAsNull)
{
    EXPECT_EQ(VornJson::print(std::nan("")), "null");
    EXPECT_EQ(VornJson::print(std::numeric_limits<double>::infinity()), "null");
    EXPECT_EQ(VornJson::print(-std::numeric_limits<double>::infinity()), "null");
    EXPECT_EQ(VornJson::print(QVariant()), "null");
}

TEST(Json, PrintsSortedKeys)
{
    EXPECT_EQ(VornJson::print(parsed(R"({"b": 1, "a": {"d": 1, "c": 2}, "B": 3})")),
              R"({"B":3,"a":{"c":2,"d":1},"b":1})");
}

TEST(Json, PrintsListsAndTexts)
{
    EXPECT_EQ(VornJson::print(QVariantList{1, "a", QVariantList{}, true}), R"([1,"a",[],true])");
    EXPECT_EQ(VornJson::print(QStringList{"a", "b"}), R"(["a","b"])");
    EXPECT_EQ(VornJson::print(QByteArray("bytes")), R"("bytes")");
    EXPECT_EQ(VornJson::print(QVariant::fromValue(CMPath(QStringLiteral("/a")))), R"("/a")");
    EXPECT_EQ(VornJson::print(QVariant::fromValue<void*>(nullptr)), "null");
}

TEST(Json, EscapesWhatTextMayNotHold)
{
    EXPECT_EQ(VornJson::print(QString("\"\\/\b\f\n\r\t")), R"("\"\\/\u0008\u000c\n\r\t")");
    EXPECT_EQ(VornJson::print(QString(QChar(0))), R"("\u0000")");
    EXPECT_EQ(VornJson::print(QString::fromUtf8("äß€😀")), QString::fromUtf8("\"äß€😀\""));
}

TEST(Json, EscapesHalfACharacter)
{
    const QString half(QChar(0xD83D));
    EXPECT_EQ(VornJson::print(half), R"("\ud83d")");
    EXPECT_EQ(VornJson::print(QString(QChar(0xDE00)) + half + 'x'), R"("\ude00\ud83dx")");
    EXPECT_EQ(parsed(VornJson::print(half)), QVariant(half));
}

TEST(Json, TextSurvivesPrintingAndParsing)
{
    QString all;
    for (ushort code = 0; code < 0xD800; ++code) {
        all += QChar(code);
    }
    all += QString::fromUtf8("😀");
    EXPECT_EQ(parsed(VornJson::print(all)).toString(), all);
}

TEST(Json, NothingIsNoValue)
{
    EXPECT_EQ(place(failed("")), std::make_pair(1, 1));
    EXPECT_EQ(place(failed(" \n  ")), std::make_pair(2, 3));
    failed(QString());
}

TEST(Json, TwoValuesAreNoValue)
{
    EXPECT_EQ(place(failed("1,2")), std::make_pair(1, 2));
    EXPECT_EQ(place(failed("1 2")), std::make_pair(1, 3));
    EXPECT_EQ(place(failed("\"a\",\"b\"")), std::make_pair(1, 4));
    EXPECT_EQ(place(failed("{} {}")), std::make_pair(1, 4));
    EXPECT_EQ(place(failed("[],[]")), std::make_pair(1, 3));
    failed("null null");
    failed("1,");
    failed("\"a\":1");
}

TEST(Json, BracketsCannotBeClosedFromInside)
{
    EXPECT_EQ(place(failed("],[")), std::make_pair(1, 1));
    EXPECT_EQ(place(failed("1],[2")), std::make_pair(1, 2));
    EXPECT_EQ(place(failed("1]")), std::make_pair(1, 2));
    EXPECT_EQ(place(failed("\"a\"],[\"b\"")), std::make_pair(1, 4));
    failed("]");
    failed("}");
    failed(",");
    failed(":");
    failed("[1]]");
    EXPECT_EQ(parsed("\"],[\""), QVariant("],["));
    EXPECT_EQ(parsed(R"("\"],[\\")"), QVariant(R"("],[\)"));
}

TEST(Json, BrokenValuesAreNamed)
{
    EXPECT_EQ(failed("tru").toString(), "line 1 column 2: illegal value");
    EXPECT_EQ(failed("\"abc").toString(), "line 1 column 5: unterminated string");
    EXPECT_EQ(failed("[1,2").toString(), "line 1 column 5: invalid termination by number");
    failed("\"abc\\");
    failed("\"abc\\\"");
    failed("-");
    failed("01");
    failed("+1");
    failed("1e");
    failed("1e400");
    failed("nan");
    failed("'a'");
    failed("{a:1}");
    failed("{\"a\" 1}");
    failed("[1,]");
    failed("[1 2]");
    failed(QString("1") + QChar(0));
    failed(QString(QChar(0)));
}

TEST(Json, PlaceOfAnErrorIsInLinesAndCharacters)
{
    EXPECT_EQ(place(failed("{\"a\":\n  [1,\n   }")), std::make_pair(3, 5));
    const VornJson::Error ascii = failed("[\"aaaa\",?]");
    const VornJson::Error wide = failed(QString::fromUtf8("[\"ä€😀x\",?]"));
    EXPECT_EQ(place(ascii), place(wide));
    EXPECT_EQ(place(failed("\n\ntrue x")), std::make_pair(3, 6));
}

TEST(Json, PlaceOfAnErrorInAScalarCountsFromTheText)
{
    EXPECT_EQ(failed("tru").column(), 2);
    EXPECT_EQ(failed("   tru").column(), 5);
    EXPECT_EQ(place(failed("\n  tru")), std::make_pair(2, 4));
}

/// Else the first value of each would be lost for good, as nothing that leaks.
TEST(Json, AKeyThatStandsTwiceInAnObjectIsAnError)
{
    EXPECT_EQ(failed(R"({"a":{"b":1}, "a":{}})").toString(),
              "line 1 column 15: this object has the key already");
    EXPECT_EQ(failed("[{}, {\n \"x\" : [1],\n \"y\":2, \"x\":3}]").code(), VornJson::Error::kRepeatedKey);
    EXPECT_EQ(place(failed(R"({"a":1,"\u0061":2})")), std::make_pair(1, 8)) << "however it is written";
    failed(R"({"\u0061":1,"a":2})");
    failed(R"({"":1,"":2})");
    parsed(R"({"a":{"a":{"b":"a"}},"b":["a",{"a":1},{"a":2}],"A":"a"})");
    parsed(R"({"a\"":1,"a":2,"\"a":3})");
    parsed(R"(["a","a",":a"])");
}

TEST(Json, AZeroByteIsAnErrorUnlessItIsEscaped)
{
    // The parser underneath would take these keys for the same, and leak a value.
    const VornJson::Error error = failed(QString("{\"a%1b\":{},\n\"a%1c\":{}}").arg(QChar(0)));
    EXPECT_EQ(error.code(), VornJson::Error::kZeroByte);
    EXPECT_EQ(error.toString(), "line 1 column 4: a zero byte");
    failed(QString("\"%1\"").arg(QChar(0)));
    EXPECT_EQ(parsed(R"("\u0000")"), QString(QChar(0)));
    EXPECT_EQ(parsed(R"({"a\u0000b":{},"a\u0000c":{}})").toHash().size(), 2);
    failed(R"({"a\u0000b":{},"a\u0000b":{}})");
}

TEST(Json, DeepNestingIsAnErrorNotACrash)
{
    const int depth = 100000;
    failed(QString(depth, '[') + QString(depth, ']'));
    failed(QString(1025, '[') + QString(1025, ']'));
    parsed(QString(1024, '[') + QString(1024, ']'));
}

TEST(Json, AValueHasFewerLevelsThanAnyOtherText)
{
    VornJson::Error error;
    EXPECT_EQ(VornJson::parseValue(deepJson(), &error), parsed(deepJson()));
    EXPECT_TRUE(error.isEmpty());
    parsed(deepJson(1));
    EXPECT_FALSE(VornJson::parseValue(deepJson(1), &error).isValid());
    EXPECT_EQ(error.code(), VornJson::Error::kTooDeep);
    EXPECT_EQ(error.toString(), "line 1 column 5001: more levels than a value may have");
}

TEST(Json, NoErrorPrintsAsNothing)
{
    VornJson::Error error(1, 2, 3, "stale");
    VornJson::parse("1", &error);
    EXPECT_TRUE(error.isEmpty());
    EXPECT_EQ(error.code(), 0);
    EXPECT_EQ(error.toString(), QString());
}

TEST(Json, ErrorNeedNotBeAskedFor)
{
    EXPECT_FALSE(VornJson::parse("{", nullptr).isValid());
    EXPECT_EQ(VornJson::parse("1", nullptr), QVariant(1LL));
}
