#include <gtest/gtest.h>

#include <cmath>

#include "platform/sdk/VornRoles.h"

namespace
{
VornHash field(const QVariant& value)
{
    return {{"a", value}};
}
} // namespace

TEST(Hash, JsonHasSortedKeysToAnyDepth)
{
    const VornHash hash{{"b", 1}, {"a", QVariantHash{{"z", true}, {"y", QVariant()}}}, {"C", QVariantList{}}};
    EXPECT_EQ(hash.toJsonString(), R"({"C":[],"a":{"y":null,"z":true},"b":1})");
    EXPECT_EQ(VornHash().toJsonString(), "{}");
}

TEST(Hash, SameByContentNotByOrderOfInsertion)
{
    VornHash a;
    VornHash b;
    for (int i = 0; i < 100; ++i) {
        a.insert(QString::number(i), i);
        b.insert(QString::number(99 - i), 99 - i);
    }
    EXPECT_TRUE(a.sameAs(b));
    b.insert("50", 51);
    EXPECT_FALSE(a.sameAs(b));
}

TEST(Hash, MoreOrOtherFieldsDiffer)
{
    EXPECT_FALSE(VornHash().sameAs(field(1)));
    EXPECT_FALSE(field(1).sameAs(VornHash()));
    EXPECT_FALSE(field(1).sameAs(VornHash{{"b", 1}}));
    EXPECT_FALSE(field(1).sameAs(VornHash{{"a", 1}, {"b", 1}}));
    EXPECT_FALSE(field(QVariant()).sameAs(VornHash()));
}

TEST(Hash, NumbersAreTheSameInAnyWidth)
{
    EXPECT_TRUE(field(1).sameAs(field(1LL)));
    EXPECT_TRUE(field(1).sameAs(field(1.0)));
    EXPECT_TRUE(field(1U).sameAs(field(1ULL)));
    EXPECT_TRUE(field(0.5).sameAs(field(0.5F)));
    EXPECT_FALSE(field(1).sameAs(field(2)));
    EXPECT_FALSE(field(1).sameAs(field(1.5)));
}

TEST(Hash, BigNumbersAreComparedExactly)
{
    EXPECT_FALSE(field(9223372036854775807LL).sameAs(field(9223372036854775806LL)));
    EXPECT_FALSE(field(18446744073709551615ULL).sameAs(field(18446744073709551614ULL)));
    EXPECT_TRUE(field(18446744073709551615ULL).sameAs(field(18446744073709551615ULL)));
    EXPECT_FALSE(field(-1).sameAs(field(18446744073709551615ULL)));
}

TEST(Hash, NotANumberIsTheSameAsItself)
{
    EXPECT_TRUE(field(std::nan("")).sameAs(field(std::nan(""))));
    EXPECT_FALSE(field(std::nan("")).sameAs(field(1.5)));
}

TEST(Hash, JsonTypesDiffer)
{
    EXPECT_FALSE(field(1).sameAs(field("1")));
    EXPECT_FALSE(field(1).sameAs(field(true)));
    EXPECT_FALSE(field(0).sameAs(field(QVariant())));
    EXPECT_FALSE(field("").sameAs(field(QVariant())));
    EXPECT_FALSE(field(QVariantList()).sameAs(field(QVariantHash())));
    EXPECT_TRUE(field(QVariant()).sameAs(field(QVariant::fromValue(nullptr))));
}

TEST(Hash, NestedContentCounts)
{
    EXPECT_TRUE(field(QVariantList{1, QVariantHash{{"x", 2}}})
                    .sameAs(field(QVariantList{1LL, QVariantMap{{"x", 2.0}}})));
    EXPECT_FALSE(field(QVariantList{1, 2}).sameAs(field(QVariantList{2, 1})));
    EXPECT_FALSE(field(QVariantList{1}).sameAs(field(QVariantList{1, 1})));
    EXPECT_FALSE(field(QVariantHash{{"x", "2"}}).sameAs(field(QVariantHash{{"x", 2}})));
    EXPECT_TRUE(field(QStringList{"a"}).sameAs(field(QVariantList{"a"})));
}

TEST(Hash, RecordInAVariantIsAHash)
{
    const VornValue value = VornValue().setI32(5);
    EXPECT_EQ(field(QVariant::fromValue(value)).toJsonString(), R"({"a":{"i32_":5}})");
    EXPECT_TRUE(field(QVariant::fromValue(value)).sameAs(field(static_cast<const QVariantHash&>(value))));
}
