#include <gtest/gtest.h>

#include "platform/sdk/VornJson.h"
#include "platform/sdk/VornValue.h"

using Type = VornValue::Type;

namespace
{
VornValue scalarOf(Type type, const QVariant& scalar, bool expectedOk)
{
    bool ok = !expectedOk;
    const VornValue value = VornValue::fromScalar(type, scalar, &ok);
    EXPECT_EQ(ok, expectedOk) << VornJson::print(scalar).toStdString();
    return value;
}

VornValue parsedValue(const QString& json)
{
    return VornHash(VornJson::parse(json, nullptr).toHash());
}
} // namespace

TEST(Value, TypeIsThatOfItsOnlyField)
{
    EXPECT_EQ(VornValue().setBool(false).type(), Type::Bool);
    EXPECT_EQ(VornValue().setI32(0).type(), Type::I32);
    EXPECT_EQ(VornValue().setI64(0).type(), Type::I64);
    EXPECT_EQ(VornValue().setDouble_(0).type(), Type::Double);
    EXPECT_EQ(VornValue().setString({}).type(), Type::String);
    EXPECT_EQ(VornValue().setRegion(VornKestalPrimeRegion::Enum(9)).type(), Type::Region);
    EXPECT_EQ(VornValue().setHostModel(VornKestalPrimeHostSystemInfoModel::Enum(9)).type(), Type::HostModel);
}

TEST(Value, TypeSurvivesJson)
{
    EXPECT_EQ(parsedValue(R"({"i32_": 5})").type(), Type::I32);
    EXPECT_EQ(parsedValue(R"({"i64_": 5.0})").type(), Type::I64);
    EXPECT_EQ(parsedValue(R"({"double_": 5})").type(), Type::Double);
}

TEST(Value, AnythingElseIsAPlainHash)
{
    EXPECT_EQ(VornValue().type(), Type::Hash);
    EXPECT_EQ(VornValue().setI32(1).setI64(1).type(), Type::Hash);
    EXPECT_EQ(parsedValue(R"({"name": "x"})").type(), Type::Hash);
    EXPECT_EQ(parsedValue(R"({"i32_": "5"})").type(), Type::Hash);
    EXPECT_EQ(parsedValue(R"({"i32_": 2147483648})").type(), Type::Hash);
    EXPECT_EQ(parsedValue(R"({"bool_": 1})").type(), Type::Hash);
}

TEST(Value, TypesHaveNamesForMessages)
{
    EXPECT_EQ(VornValue::typeName(Type::I32), "i32");
    EXPECT_EQ(VornValue::typeName(Type::Bool), "bool");
    EXPECT_EQ(VornValue::typeName(Type::DacFilter), "dacFilter");
    EXPECT_EQ(VornValue::typeName(Type::Hash), "hash");
}

TEST(Value, ScalarIsTheBareForm)
{
    EXPECT_EQ(VornJson::print(VornValue().setI32(5).scalar()), "5");
    EXPECT_EQ(VornJson::print(VornValue().setBool(true).scalar()), "true");
    EXPECT_EQ(VornJson::print(VornValue().setString("5").scalar()), R"("5")");
    EXPECT_EQ(VornJson::print(VornValue().setI64(-9223372036854775807LL - 1).scalar()),
              "-9223372036854775808");
    EXPECT_EQ(VornJson::print(VornValue().setRegion(VornKestalPrimeRegion::Enum(2)).scalar()), "2");
}

TEST(Value, PlainHashIsItsOwnBareForm)
{
    EXPECT_EQ(VornJson::print(parsedValue(R"({"b":1,"a":2})").scalar()), R"({"a":2,"b":1})");
    EXPECT_EQ(VornJson::print(VornValue().scalar()), "{}");
}

TEST(Value, FromScalarFillsTheFieldOfTheType)
{
    EXPECT_EQ(scalarOf(Type::I32, 5LL, true).toJsonString(), R"({"i32_":5})");
    EXPECT_EQ(scalarOf(Type::I64, 5.0, true).toJsonString(), R"({"i64_":5})");
    EXPECT_EQ(scalarOf(Type::Double, 5LL, true).toJsonString(), R"({"double_":5})");
    EXPECT_EQ(scalarOf(Type::Bool, false, true).toJsonString(), R"({"bool_":false})");
    EXPECT_EQ(scalarOf(Type::String, "", true).toJsonString(), R"({"string_":""})");
    EXPECT_EQ(scalarOf(Type::VolumeMode, 1LL, true).toJsonString(), R"({"volumeMode":1})");
}

TEST(Value, FromScalarAndScalarAreInverse)
{
    const VornValue values[] = {
        VornValue().setBool(true),   VornValue().setI32(-1),        VornValue().setI64(1LL << 62),
        VornValue().setDouble_(1.5), VornValue().setString("text"), VornValue().setDacFilter({}),
    };
    for (const VornValue& value : values) {
        EXPECT_TRUE(scalarOf(value.type(), value.scalar(), true).sameAs(value));
    }
}

TEST(Value, FromScalarRefusesWhatDoesNotFit)
{
    EXPECT_TRUE(scalarOf(Type::I32, 2147483648LL, false).isEmpty());
    EXPECT_TRUE(scalarOf(Type::I32, -2147483649LL, false).isEmpty());
    EXPECT_TRUE(scalarOf(Type::I32, 0.5, false).isEmpty());
    EXPECT_TRUE(scalarOf(Type::Region, 2147483648LL, false).isEmpty());
    EXPECT_TRUE(scalarOf(Type::I64, 9223372036854775808.0, false).isEmpty());
}

TEST(Value, FromScalarRefusesAnotherType)
{
    EXPECT_TRUE(scalarOf(Type::I32, "5", false).isEmpty());
    EXPECT_TRUE(scalarOf(Type::I32, true, false).isEmpty());
    EXPECT_TRUE(scalarOf(Type::Bool, 1, false).isEmpty());
    EXPECT_TRUE(scalarOf(Type::String, 1, false).isEmpty());
    EXPECT_TRUE(scalarOf(Type::I32, QVariant(), false).isEmpty());
    EXPECT_TRUE(scalarOf(Type::I32, QVariantList{1}, false).isEmpty());
}

TEST(Value, FromScalarHasNoBareFormForAHash)
{
    EXPECT_TRUE(scalarOf(Type::Hash, 5, false).isEmpty());
    EXPECT_TRUE(scalarOf(Type::Hash, QVariant(), false).isEmpty());
}

TEST(Value, FromScalarTakesAWholeValueForAnyType)
{
    EXPECT_EQ(scalarOf(Type::I32, QVariantHash{{"i32_", 5}}, true).toJsonString(), R"({"i32_":5})");
    EXPECT_EQ(scalarOf(Type::I32, QVariantMap{{"string_", "x"}}, true).toJsonString(), R"({"string_":"x"})");
    EXPECT_EQ(scalarOf(Type::Hash, QVariantHash(), true).toJsonString(), "{}");
}

TEST(Value, FromScalarNeedsNoFlag)
{
    EXPECT_EQ(VornValue::fromScalar(Type::I32, 5, nullptr).i32(), 5);
    EXPECT_TRUE(VornValue::fromScalar(Type::I32, "5", nullptr).isEmpty());
}
