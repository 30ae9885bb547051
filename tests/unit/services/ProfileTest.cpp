#include "services/Profile.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>
#include <set>
#include <string>

#include "platform/sdk/Paths.h"
#include "vocabulary/Proxies.h"

namespace
{
std::string errorOfProfile(const QString& text)
{
    QString error;
    EXPECT_FALSE(Profile::parse(text, &error).has_value());
    return error.toStdString();
}

bool isMadeByTheWorker(Node node)
{
    return node == Node::VornHostLinkKestalPrimeBtConnectionStatePath
           || node == Node::VornHostLinkKestalPrimeBtFirmwareVersion;
}

VornValue::Type nodeType(CMValueItemProxyConvert convert)
{
    switch (convert) {
    case CMValueItemProxyConvert::Uint8VornBool: return VornValue::Type::Bool;
    case CMValueItemProxyConvert::Int64VornI64: return VornValue::Type::I64;
    case CMValueItemProxyConvert::Bin16VornString: return VornValue::Type::String;
    case CMValueItemProxyConvert::Bin16VornValueJson: return VornValue::Type::Hash;
    case CMValueItemProxyConvert::Uint8InputState: return VornValue::Type::InputState;
    default: return VornValue::Type::I32;
    }
}
} // namespace

TEST(StandardProfile, HasAValueOfTheRightTypeForEveryConvertedState)
{
    const Profile profile = Profile::standard();
    for (const ProxyRow& row : kProxies) {
        if (row.proxy != ProxyClass::ValueItemProxy || isMadeByTheWorker(*row.node)) {
            continue;
        }
        const CMPath path(*row.node);
        ASSERT_TRUE(profile.values().contains(path)) << path.toString().toStdString();
        EXPECT_EQ(profile.values()[path].type(), nodeType(*row.convert)) << path.toString().toStdString();
        EXPECT_FALSE(profile.values()[path].isEmpty()) << path.toString().toStdString();
    }
}

TEST(StandardProfile, KeepsWhatAUserSets)
{
    const QVector<CMPath> settings = Profile::standard().settings();
    for (const CMPath& path :
         {VornDeviceNamePath(), VornUIDisplayBrightnessPath(), VornPlayerVolumePath(), VornPlayerMutePath(),
          VornKestalPrimeMaxAmpVolumePath(), VornKestalPrimeRegionPath(), VornKestalPrimeHaloBrightnessPath(),
          VornKestalPrimeIrSystemCodePath(), VornDiracSlotsSettingsPath(),
          VornTarkoDiracActiveFilterPath()}) {
        EXPECT_TRUE(settings.contains(path)) << path.toString().toStdString();
    }
}

TEST(StandardProfile, DoesNotKeepWhatIsMeasuredOrComesFromElsewhere)
{
    const QVector<CMPath> settings = Profile::standard().settings();
    for (const CMPath& path :
         {VornSystemVersionPath(), VornPlayLogicPlayTimePath(), VornBluetoothIncomingCallLineIdPath(),
          VornKestalPrimeBtTrackMetaDataPath(), VornKestalPrimeIpAddressPath(),
          VornKestalPrimeSomUpgradeStatusPath(), VornKestalPrimeHostUpgradeStatusPath(),
          VornKestalPrimeSetSerialNumberPath(), VornKestalPrimeFactroryResetRequiredPath(),
          VornPowerManagerTargetPath(), VornHostLinkTcpTunnelingConfPath(), VornDiracActiveFilterPath(),
          VornHostlinkMicMutePath(), VornHostLinkHostFirmwareVersion(),
          VornHostLinkKestalPrimeHostSystemInfoPath()}) {
        EXPECT_FALSE(settings.contains(path)) << path.toString().toStdString();
    }
}

TEST(StandardProfile, HasANodeForEverySettingButThoseOfServices)
{
    const Profile profile = Profile::standard();
    const QSet<CMPath> ofServices{VornPlayerVolumePath(), VornPlayerEqualizerConfigurationPath()};
    for (const CMPath& path : profile.settings()) {
        EXPECT_NE(profile.values().contains(path), ofServices.contains(path))
            << path.toString().toStdString();
    }
}

TEST(StandardProfile, LeavesThePowerTargetToItsManager)
{
    EXPECT_FALSE(Profile::standard().values().contains(VornPowerManagerTargetPath()));
}

TEST(StandardProfile, LeavesTheHostsNodesToTheWorker)
{
    const Profile profile = Profile::standard();
    for (const CMPath& path :
         {VornHostlinkMicMutePath(), VornHostLinkHostFirmwareVersion(),
          VornHostLinkKestalPrimeHostSystemInfoPath(), VornHostLinkKestalPrimeBtCommandPath(),
          VornHostLinkKestalPrimeBtConnectionCommandPath(), VornHostLinkHeadphonesConnectedPath(),
          VornHostLinkAudioBalancePath(), VornHostLinkKestalPrimeBtConnectionStatePath(),
          VornHostLinkKestalPrimeBtFirmwareVersion(), VornHostLinkSendSoftwareUpgradeAvailablePath(),
          VornHostLinkSendSoftwareUpgradeInProgressPath(),
          VornHostLinkSendDiracStimuliOutputChannelIndexPath(), VornHostLinkDataTransferPath(),
          VornHostLinkDataTransferStatusPath(), VornHostLinkSetPalettePath(), VornHostLinkSetPatternPath()}) {
        EXPECT_FALSE(profile.values().contains(path)) << path.toString().toStdString();
    }
}

TEST(Profile, TakesPathsAndAccessors)
{
    QString error;
    const auto profile = Profile::parse(
        R"({"VornPlayerMutePath": {"bool_": true}, "/my/node": {"string_": "text"}, "/h": {"a": [1]}})",
        &error);
    ASSERT_TRUE(profile.has_value()) << error.toStdString();
    EXPECT_EQ(profile->values().size(), 3);
    EXPECT_TRUE(profile->values()[VornPlayerMutePath()].bool_());
    EXPECT_EQ(profile->values()[CMPath("/my/node")].string_(), "text");
}

TEST(Profile, KeepsIntegersOf64BitsExact)
{
    QString error;
    const auto profile = Profile::parse(R"({"/n": {"i64_": 9007199254740993}})", &error);
    ASSERT_TRUE(profile.has_value());
    EXPECT_EQ(profile->values()[CMPath("/n")].i64_(), 9007199254740993);
}

TEST(Profile, MayBeEmpty)
{
    QString error;
    EXPECT_TRUE(Profile::parse("{}", &error).has_value());
}

TEST(Profile, NamesItsSettings)
{
    QString error;
    const auto profile =
        Profile::parse(R"({"/n": {"i32_": 1}, "settings": ["/n", "VornPlayerMutePath", "/later"]})", &error);
    ASSERT_TRUE(profile.has_value()) << error.toStdString();
    EXPECT_EQ(profile->settings(), QVector<CMPath>({CMPath("/n"), VornPlayerMutePath(), CMPath("/later")}));
    EXPECT_EQ(profile->values().size(), 1);
}

TEST(Profile, WithoutSettingsHasThoseOfTheStandardOne)
{
    QString error;
    EXPECT_EQ(Profile::parse("{}", &error)->settings(), Profile::standard().settings());
    EXPECT_FALSE(Profile::standard().settings().isEmpty());
    EXPECT_TRUE(Profile::parse(R"({"settings": []})", &error)->settings().isEmpty());
}

TEST(Profile, RefusesSettingsThatAreNoListOfNodes)
{
    EXPECT_EQ(errorOfProfile(R"({"settings": {"/n": true}})"),
              R"("settings" is a list of nodes, not {"/n":true})");
    EXPECT_EQ(errorOfProfile(R"({"settings": ["/n", 5]})"), "settings: 5 is no name of a node");
    EXPECT_EQ(errorOfProfile(R"({"settings": ["VornPlayerMutPath"]})"),
              "settings: VornPlayerMutPath is neither a path nor the name of one");
    EXPECT_EQ(errorOfProfile(R"({"settings": ["/player/mute", "VornPlayerMutePath"]})"),
              "settings: /player/mute is named twice");
}

TEST(Profile, SaysWhereItsSyntaxIsWrong)
{
    EXPECT_NE(errorOfProfile("{\n  \"/a\": {\"i32_\": }\n}").find("line 2 column "), std::string::npos);
    EXPECT_NE(errorOfProfile("").find("line 1 column 1"), std::string::npos);
}

TEST(Profile, RefusesWhatIsNoObject)
{
    EXPECT_EQ(errorOfProfile("[]"), "a profile is a JSON object of nodes and their values");
    EXPECT_EQ(errorOfProfile("5"), "a profile is a JSON object of nodes and their values");
}

TEST(Profile, NamesTheKeyThatIsNoNode)
{
    EXPECT_EQ(errorOfProfile(R"({"VornPlayerMutPath": {"bool_": true}})"),
              "VornPlayerMutPath is neither a path nor the name of one");
}

TEST(Profile, RefusesANodeNamedTwice)
{
    EXPECT_EQ(errorOfProfile(R"({"VornPlayerMutePath": {"bool_": true}, "/player/mute": {"bool_": false}})"),
              "/player/mute has two entries, by its path and by its accessor");
}

TEST(Profile, RefusesAValueThatIsNotInItsJsonForm)
{
    EXPECT_EQ(errorOfProfile(R"({"/n": 5})"), R"(/n: a value is an object such as {"i32_": 30}, not 5)");
    EXPECT_EQ(errorOfProfile(R"({"/n": null})"),
              R"(/n: a value is an object such as {"i32_": 30}, not null)");
    EXPECT_EQ(errorOfProfile(R"({"/n": {"i32_": "5"}})"), R"(/n: i32_ cannot hold "5")");
    EXPECT_EQ(errorOfProfile(R"({"/n": {"i32_": 2147483648}})"), "/n: i32_ cannot hold 2147483648");
    EXPECT_EQ(errorOfProfile(R"({"/n": {"bool_": 1}})"), "/n: bool_ cannot hold 1");
    EXPECT_EQ(errorOfProfile(R"({"/n": {"string_": null}})"), "/n: string_ cannot hold null");
    EXPECT_EQ(errorOfProfile(R"({"/n": {"inputState": "x"}})"), R"(/n: inputState cannot hold "x")");
}

TEST(Profile, NamesTheFileThatIsWrongOrMissing)
{
    const QTemporaryDir directory;
    QFile file(directory.filePath("bad.json"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("{");
    file.close();
    QFile latin(directory.filePath("latin.json"));
    ASSERT_TRUE(latin.open(QIODevice::WriteOnly));
    latin.write("{\"/n\": {\"string_\": \"K\xfc"
                "che\"}}");
    latin.close();

    QString error;
    EXPECT_FALSE(Profile::load(latin.fileName(), &error).has_value());
    EXPECT_EQ(error, latin.fileName() + " is not UTF-8");
    EXPECT_FALSE(Profile::load(file.fileName(), &error).has_value());
    EXPECT_TRUE(error.startsWith(file.fileName() + ": line 1 ")) << error.toStdString();
    EXPECT_FALSE(Profile::load(directory.filePath("none.json"), &error).has_value());
    EXPECT_TRUE(error.startsWith(directory.filePath("none.json") + ": ")) << error.toStdString();
    EXPECT_FALSE(Profile::load(directory.path(), &error).has_value());
}

TEST(Profile, RefusesAFileThatIsEndlessOrTooLong)
{
    QString error;
    EXPECT_FALSE(Profile::load("/dev/zero", &error).has_value());
    EXPECT_EQ(error, "/dev/zero has more than 16777216 bytes");

    const QTemporaryDir directory;
    QFile file(directory.filePath("long.json"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("{}");
    ASSERT_TRUE(file.resize(16777216));
    file.close();
    EXPECT_FALSE(Profile::load(file.fileName(), &error).has_value());
    EXPECT_TRUE(error.startsWith(file.fileName() + ": line 1 "))
        << "long enough, but no JSON: " << error.toStdString();
    ASSERT_TRUE(file.resize(16777217));
    EXPECT_FALSE(Profile::load(file.fileName(), &error).has_value());
    EXPECT_EQ(error, file.fileName() + " has more than 16777216 bytes");
}
