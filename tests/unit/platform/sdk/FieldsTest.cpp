#include <gtest/gtest.h>

#include <QSet>
#include <cmath>
#include <limits>

#include "platform/sdk/VornDiracSlotsSettings.h"
#include "platform/sdk/VornPlayLogicData.h"
#include "platform/sdk/VornRoles.h"
#include "platform/sdk/VornServices.h"

namespace
{
VornValue with(const QString& key, const QVariant& field)
{
    VornValue value;
    value.insert(key, field);
    return value;
}
} // namespace

TEST(Fields, MissingReadsAsNothing)
{
    const VornValue value;
    EXPECT_FALSE(value.bool_());
    EXPECT_EQ(value.i32_(), 0);
    EXPECT_EQ(value.i64_(), 0);
    EXPECT_EQ(value.double_(), 0.0);
    EXPECT_EQ(value.string_(), QString());
    EXPECT_EQ(value.region(), 0);
}

TEST(Fields, SettersChainAndReadBack)
{
    const VornValue value =
        VornValue().setBool_(true).setI32_(-5).setI64_(1LL << 40).setDouble_(0.5).setString_("text");
    EXPECT_TRUE(value.bool_());
    EXPECT_EQ(value.i32_(), -5);
    EXPECT_EQ(value.i64_(), 1LL << 40);
    EXPECT_EQ(value.double_(), 0.5);
    EXPECT_EQ(value.string_(), "text");
    EXPECT_EQ(value.size(), 5);
}

TEST(Fields, AliasesUseTheSameFields)
{
    const VornValue value = VornValue().setBool(true).setI32(7).setI64(8).setString("s");
    EXPECT_TRUE(value.bool_());
    EXPECT_EQ(value.i32_(), 7);
    EXPECT_EQ(value.i32(), 7);
    EXPECT_EQ(value.i64(), 8);
    EXPECT_EQ(value.string(), "s");
}

TEST(Fields, AListOfTextsHoldsTextsOnly)
{
    EXPECT_EQ(VornValue().setStringList({"a", ""}).stringList(), (QStringList{"a", ""}));
    EXPECT_EQ(VornValue().setStringList({"a"}).stringList_(), QStringList{"a"});
    EXPECT_EQ(with(VornValue::StringList(), QVariantList{"a", 5}).stringList(), QStringList());
    EXPECT_EQ(with(VornValue::StringList(), "a").stringList(), QStringList());
    EXPECT_EQ(VornValue().stringList(), QStringList());
}

TEST(Fields, KeysAreTheGettersNames)
{
    EXPECT_EQ(VornValue::Bool(), "bool_");
    EXPECT_EQ(VornValue::I32(), "i32_");
    EXPECT_EQ(VornValue::I64(), "i64_");
    EXPECT_EQ(VornValue::Double(), "double_");
    EXPECT_EQ(VornValue::String(), "string_");
    EXPECT_EQ(VornValue::HostModel(), "hostModel");
}

TEST(Fields, EnumerationsHaveEachAFieldOfTheirOwn)
{
    VornValue value;
    value.setOutputType(VornKestalPrimeOutputType::Enum(1)).setMqaState(VornKestalPrimeMqaState::Enum(2));
    value.setVolumeMode(VornKestalPrimeVolumeMode::Enum(3));
    value.setSomUpgradeStatus(VornKestalPrimeSomUpgradeStatus::Enum(4));
    value.setHostUpgradeStatus(VornKestalPrimeHostUpgradeStatus::Enum(5));
    value.setRegion(VornKestalPrimeRegion::Enum(6));
    value.setHaloBrightness(VornKestalPrimeHaloBrightness::Enum(7));
    value.setIrSystemCode(VornKestalPrimeIrSystemCode::Enum(8));
    value.setInputAutoSwitch(VornKestalPrimeInputAutoSwitch::Enum(9));
    value.setDacFilter(VornKestalPrimeDacFilter::Enum(10));
    value.setInputState(VornHostLinkdInputStateType::Enum(11));
    value.setHostModel(VornKestalPrimeHostSystemInfoModel::Enum(65535));

    EXPECT_EQ(value.size(), 12);
    EXPECT_EQ(value.outputType(), 1);
    EXPECT_EQ(value.mqaState(), 2);
    EXPECT_EQ(value.volumeMode(), 3);
    EXPECT_EQ(value.somUpgradeStatus(), 4);
    EXPECT_EQ(value.hostUpgradeStatus(), 5);
    EXPECT_EQ(value.region(), 6);
    EXPECT_EQ(value.haloBrightness(), 7);
    EXPECT_EQ(value.irSystemCode(), 8);
    EXPECT_EQ(value.inputAutoSwitch(), 9);
    EXPECT_EQ(value.dacFilter(), 10);
    EXPECT_EQ(value.inputState(), 11);
    EXPECT_EQ(value.hostModel(), 65535);
}

TEST(Fields, TextIsNoNumberAndNumberIsNoText)
{
    EXPECT_EQ(with("i32_", "12").i32(), 0);
    EXPECT_EQ(with("i64_", "12").i64(), 0);
    EXPECT_EQ(with("double_", "1.5").double_(), 0.0);
    EXPECT_EQ(with("string_", 12).string(), QString());
    EXPECT_EQ(with("region", "1").region(), 0);
}

TEST(Fields, NumberIsNoBoolAndBoolIsNoNumber)
{
    EXPECT_FALSE(with("bool_", 1).bool_());
    EXPECT_FALSE(with("bool_", "true").bool_());
    EXPECT_EQ(with("i32_", true).i32(), 0);
    EXPECT_EQ(with("double_", true).double_(), 0.0);
}

TEST(Fields, NullAndContainersReadAsNothing)
{
    EXPECT_EQ(with("i32_", QVariant()).i32(), 0);
    EXPECT_EQ(with("i32_", QVariant::fromValue(nullptr)).i32(), 0);
    EXPECT_EQ(with("string_", QVariantList{"a"}).string(), QString());
    EXPECT_EQ(with("i64_", QVariantHash{{"i64_", 1}}).i64(), 0);
}

TEST(Fields, NumbersComeInAnyWidth)
{
    EXPECT_EQ(with("i32_", 5LL).i32(), 5);
    EXPECT_EQ(with("i32_", 5.0).i32(), 5);
    EXPECT_EQ(with("i32_", 5U).i32(), 5);
    EXPECT_EQ(with("i32_", QVariant::fromValue<signed char>(-5)).i32(), -5);
    EXPECT_EQ(with("i32_", QVariant::fromValue<uchar>(200)).i32(), 200);
    EXPECT_EQ(with("i32_", QVariant::fromValue<short>(-300)).i32(), -300);
    EXPECT_EQ(with("i64_", 5).i64(), 5);
    EXPECT_EQ(with("i64_", QVariant::fromValue(5UL)).i64(), 5);
    EXPECT_EQ(with("i64_", 5ULL).i64(), 5);
    EXPECT_EQ(with("double_", 5).double_(), 5.0);
    EXPECT_EQ(with("double_", 0.5F).double_(), 0.5);
}

TEST(Fields, FractionIsNoInteger)
{
    EXPECT_EQ(with("i32_", 5.5).i32(), 0);
    EXPECT_EQ(with("i64_", -0.25).i64(), 0);
    EXPECT_EQ(with("i64_", std::nan("")).i64(), 0);
    EXPECT_EQ(with("i64_", std::numeric_limits<double>::infinity()).i64(), 0);
}

TEST(Fields, NumberOutsideTheRangeIsNone)
{
    EXPECT_EQ(with("i32_", 2147483647LL).i32(), 2147483647);
    EXPECT_EQ(with("i32_", 2147483648LL).i32(), 0);
    EXPECT_EQ(with("i32_", -2147483648LL).i32(), std::numeric_limits<qint32>::min());
    EXPECT_EQ(with("i32_", -2147483649LL).i32(), 0);
    EXPECT_EQ(with("i32_", 1e300).i32(), 0);
    EXPECT_EQ(with("i64_", 9223372036854775808.0).i64(), 0);
    EXPECT_EQ(with("i64_", -9223372036854775808.0).i64(), std::numeric_limits<qint64>::min());
    EXPECT_EQ(with("i64_", 9223372036854775807ULL).i64(), std::numeric_limits<qint64>::max());
    EXPECT_EQ(with("i64_", 9223372036854775808ULL).i64(), 0);
    EXPECT_EQ(with("region", 4294967296LL).region(), 0);
}

TEST(Fields, RecordsNestAsPlainHashes)
{
    const VornRoles roles =
        VornRoles()
            .setTitle("Volume")
            .setValue(VornValue().setI32(20))
            .setEdit(VornEdit().setMin(VornValue().setI32(0)).setMax(VornValue().setI32(100)));
    EXPECT_EQ(roles.title(), "Volume");
    EXPECT_EQ(roles.value().i32(), 20);
    EXPECT_EQ(roles.edit().min().i32(), 0);
    EXPECT_EQ(roles.edit().max().i32(), 100);
    EXPECT_EQ(roles.toJsonString(),
              R"({"edit":{"max":{"i32_":100},"min":{"i32_":0}},"title":"Volume","value":{"i32_":20}})");
    EXPECT_EQ(roles.constFind("edit")->type(), QVariant::Hash);
}

TEST(Fields, RecordOfWrongTypeReadsAsEmpty)
{
    VornRoles roles;
    roles.insert(VornRoles::Edit(), "none");
    roles.insert(VornRoles::Value(), 5);
    EXPECT_TRUE(roles.edit().isEmpty());
    EXPECT_TRUE(roles.value().isEmpty());
    EXPECT_EQ(roles.edit().max().i32(), 0);
}

TEST(Fields, RecordsAreViewsOverAnyHash)
{
    const QVariantHash hash{{"slotsList", QVariantHash{{"activeSlot", 2}, {"other", "kept"}}}};
    VornDiracSlotsSettings settings(hash);
    EXPECT_EQ(settings.slotsList().activeSlot(), 2);
    settings.setSlotsList(settings.slotsList().setActiveSlot(3));
    EXPECT_EQ(settings.toJsonString(), R"({"slotsList":{"activeSlot":3,"other":"kept"}})");
}

TEST(Fields, AVolumeChangeEventIsARecordInAValue)
{
    const VornValue value = VornValue().setVolumeChangeEvent(
        VornPlayerVolumeChangeEvent().setType(VornPlayerVolumeChangeEventType::Number2));
    EXPECT_EQ(value.toJsonString(), R"({"volumeChangeEvent":{"type":2}})");
    EXPECT_EQ(value.volumeChangeEvent().type(), VornPlayerVolumeChangeEventType::Number2);
    EXPECT_EQ(VornValue().volumeChangeEvent().type(), VornPlayerVolumeChangeEventType::Unset);
    EXPECT_EQ(value.type(), VornValue::Type::Hash);
}

TEST(Fields, APowerTargetIsARecordInAValue)
{
    VornPowerManagerTarget target;
    target.setTarget(VornPowerManagerTargets::Restart).setNextTarget(VornPowerManagerTargets::Number1);
    target.setReason(VornPowerManagerReasons::Number3);
    const VornValue value = VornValue().setPowerTarget(target);
    EXPECT_EQ(value.toJsonString(), R"({"powerTarget":{"nextTarget":1,"reason":3,"target":3}})");
    EXPECT_EQ(value.powerTarget().target(), VornPowerManagerTargets::Restart);
    EXPECT_EQ(value.powerTarget().nextTarget(), VornPowerManagerTargets::Number1);
    EXPECT_EQ(value.powerTarget().reason(), VornPowerManagerReasons::Number3);
    EXPECT_EQ(VornValue().powerTarget().target(), VornPowerManagerTargets::Number0);
}

TEST(Fields, AListOfRecordsIsAListOfHashes)
{
    VornPlayerEqualizer low;
    low.setBand(60).setValue(-1.5);
    VornPlayerEqualizer high;
    high.setBand(12000.5);
    const VornValue value = VornValue().setEqBandList({low, high});
    EXPECT_EQ(value.toJsonString(), R"({"eqBandList":[{"band":60,"value":-1.5},{"band":12000.5}]})");
    const VornList<VornPlayerEqualizer> bands = value.eqBandList();
    ASSERT_EQ(bands.size(), 2);
    EXPECT_EQ(bands[0].value(), -1.5);
    EXPECT_EQ(bands[1].band(), 12000.5);
    EXPECT_EQ(bands[1].value(), 0.0);
}

TEST(Fields, AListWithAnythingElseReadsAsEmpty)
{
    EXPECT_TRUE(VornValue().eqBandList().isEmpty());
    EXPECT_TRUE(VornValue().setEqBandList({}).eqBandList().isEmpty());
    EXPECT_TRUE(with("eqBandList", QVariantHash{{"band", 1}}).eqBandList().isEmpty());
    EXPECT_TRUE(with("eqBandList", 5).eqBandList().isEmpty());
    EXPECT_TRUE(with("eqBandList", QVariantList{QVariantHash{{"band", 1}}, 5}).eqBandList().isEmpty());
}

TEST(Fields, AVariantIsKeptAsItIs)
{
    const QVariant values[] = {5, "text", true, QVariantList{1, "a"}, QVariantHash{{"a", 1}}, QVariant()};
    for (const QVariant& held : values) {
        const VornValue value = VornValue().setVariant(held);
        EXPECT_EQ(value.variant(), held);
        EXPECT_EQ(value.size(), 1);
    }
    EXPECT_EQ(VornValue().setVariant(1.5).toJsonString(), R"({"variant":1.5})");
}

TEST(Fields, RecordsOfMediaNestAndTolerateAnything)
{
    VornPlayLogicData data;
    EXPECT_EQ(data.trackRoles().mediaData().metaData().album(), "");
    EXPECT_EQ(data.status().duration(), 0);
    EXPECT_FALSE(data.controls().playMode().shuffle());
    data.insert("trackRoles", "no roles");
    data.insert("status", QVariantHash{{"duration", "long"}});
    data.insert("controls", QVariantList{1});
    EXPECT_EQ(data.trackRoles().title(), "");
    EXPECT_EQ(data.status().duration(), 0);
    EXPECT_FALSE(data.controls().next_());
    const VornMediaData media = VornMediaData().setResources({VornResource().setSampleFrequency(48000)});
    data.setTrackRoles(VornRoles().setMediaData(media));
    EXPECT_EQ(data.trackRoles().mediaData().resources().first().sampleFrequency(), 48000);
}

TEST(Services, HaveEachAnIdOfTheirOwn)
{
    QSet<QString> ids;
#define ID(name) ids.insert(VornService_##name##_Id());
    VORN_SERVICES(ID)
#undef ID
    EXPECT_EQ(ids.size(), 49);
    EXPECT_FALSE(ids.contains(""));
}
