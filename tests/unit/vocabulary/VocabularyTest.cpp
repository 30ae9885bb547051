#include <gtest/gtest.h>

#include <set>

#include "vocabulary/Conversions.h"
#include "vocabulary/MessageIds.h"
#include "vocabulary/Nodes.h"
#include "vocabulary/Proxies.h"
#include "vocabulary/States.h"
#include "vocabulary/WireType.h"

TEST(States, AreFoundByTheirIds)
{
    for (const StateRow& row : kStates) {
        EXPECT_EQ(findState(row.id), &row) << row.name;
    }
}

TEST(States, OtherIdsHaveNoRow)
{
    std::size_t named = 0;
    for (int id = 0; id <= 0xFFFF; ++id) {
        named += findState(State(id)) == nullptr ? 0 : 1;
    }
    EXPECT_EQ(named, kStates.size());
    EXPECT_EQ(findState(State(0)), nullptr);
    EXPECT_EQ(findState(State(0x7777)), nullptr);
    EXPECT_EQ(findState(State(0xFFFF)), nullptr);
}

TEST(States, HaveNamesOfTheirOwnWithThePrefix)
{
    std::set<std::string_view> names;
    for (const StateRow& row : kStates) {
        EXPECT_EQ(row.name.substr(0, 4), "STA_") << row.name;
        EXPECT_FALSE(row.description.empty()) << row.name;
        EXPECT_TRUE(names.insert(row.name).second) << row.name;
    }
}

TEST(States, KeepTheIdsThatHostsAreBuiltWith)
{
    EXPECT_EQ(STA_SystemVersion, 1);
    EXPECT_EQ(STA_Volume, 9);
    EXPECT_EQ(STA_TarkoSampleRate, 777);
    EXPECT_EQ(STA_BtPairedDevice, 40976);
    EXPECT_EQ(STA_HostMicMute, 61443);
    EXPECT_EQ(STA_HostResubscribe, 61444);
    EXPECT_EQ(STA_TarkoFactoryReset, 62209);
    EXPECT_EQ(STA_VolumeMode, 62230);
}

TEST(Nodes, NearTwinsAreDifferentNodes)
{
    EXPECT_NE(nodeRow(Node::VornDiracActiveFilterPath).path,
              nodeRow(Node::VornTarkoDiracActiveFilterPath).path);
    EXPECT_NE(nodeRow(Node::VornHostLinkHeadphonesConnectedPath).path,
              nodeRow(Node::VornKestalPrimeHeadphonesStatusPath).path);
    EXPECT_NE(nodeRow(Node::VornPlayerMicMutePath).path, nodeRow(Node::VornHostlinkMicMutePath).path);
}

TEST(Nodes, StandAtTheirOwnPlaces)
{
    std::set<std::string_view> accessors;
    for (const NodeRow& row : kNodes) {
        EXPECT_EQ(&nodeRow(row.node), &row) << row.accessor;
        EXPECT_TRUE(accessors.insert(row.accessor).second) << row.accessor;
        EXPECT_NE(row.path.back(), '/') << row.path;
        EXPECT_EQ(row.path.find("//"), std::string_view::npos) << row.path;
    }
}

TEST(Nodes, OnlyThoseOfThePlayLogicExtendThePlayerInstance)
{
    for (const NodeRow& row : kNodes) {
        EXPECT_EQ(isBelowPlayerInstance(row.node), row.accessor.substr(0, 13) == "VornPlayLogic")
            << row.accessor;
    }
}

TEST(Proxies, BindSomeStatesToOneNode)
{
    const auto nodeOf = [](State state) { return findProxy(state)->node; };
    EXPECT_EQ(nodeOf(STA_HostUpgradeStatus), nodeOf(STA_HostUpgradeStatusU32));
    EXPECT_EQ(nodeOf(STA_MaxAmpVolume), nodeOf(STA_McuMaxAmpVolume));
    EXPECT_EQ(nodeOf(STA_DeviceName), nodeOf(STA_BtDeviceName));
    EXPECT_NE(findState(STA_HostUpgradeStatus)->read, findState(STA_HostUpgradeStatusU32)->read);
}

TEST(Proxies, ConvertCodesAsPlainNumbers)
{
    const auto kindOf = [](State state) { return findProxy(state)->convert; };
    EXPECT_EQ(kindOf(STA_MqaState), CMValueItemProxyConvert::Uint8VornI32);
    EXPECT_EQ(kindOf(STA_Region), CMValueItemProxyConvert::Uint32VornI32);
    EXPECT_EQ(kindOf(STA_IrSystemCode), CMValueItemProxyConvert::Uint8VornI32);
    EXPECT_EQ(kindOf(STA_HaloBrightness), CMValueItemProxyConvert::Uint8VornI32);
    EXPECT_EQ(kindOf(STA_InputAutoSwitch), CMValueItemProxyConvert::Uint8VornI32);
    EXPECT_EQ(kindOf(STA_DacFilter), CMValueItemProxyConvert::Uint8VornI32);
}

TEST(Proxies, TakeTheActiveFilterFromTheAppliance)
{
    EXPECT_EQ(findProxy(STA_DiracActiveFilter)->node, Node::VornTarkoDiracActiveFilterPath);
    EXPECT_EQ(findProxy(STA_HeadphonesStatus)->node, Node::VornKestalPrimeHeadphonesStatusPath);
}

TEST(Proxies, HandCommandsOverThatTheHostCannotWrite)
{
    for (const State state : {STA_BtCommand, STA_BtConnectionCommand}) {
        EXPECT_EQ(findProxy(state)->proxy, ProxyClass::HostCommandProxy);
        EXPECT_EQ(findState(state)->write, WireType::None);
        EXPECT_NE(conversionRow(*findProxy(state)->convert).write, WireType::None);
    }
}

TEST(Proxies, DoNotOwnWhatTheHostOwnsOrNobodyServes)
{
    for (const State state : {STA_HostMicMute, STA_HostFirmwareVersion, STA_HostSystemInfo,
                              STA_HostResubscribe, State(0x7777), STA_AvsState}) {
        EXPECT_EQ(findProxy(state), nullptr) << unsigned(state);
    }
}

TEST(Conversions, KeepTheirNumbers)
{
    EXPECT_EQ(static_cast<int>(CMValueItemProxyConvert::Uint8VornBool), 0);
    EXPECT_EQ(static_cast<int>(CMValueItemProxyConvert::HostModel), 6);
    EXPECT_EQ(static_cast<int>(CMValueItemProxyConvert::Uint8InputState), 18);
    EXPECT_EQ(kConversions.size(), 19U);
}

TEST(Messages, AreFoundByTheirIds)
{
    for (const MessageRow& row : kMessages) {
        EXPECT_EQ(findMessage(row.id), &row) << row.name;
        EXPECT_EQ(row.name.substr(0, 4), "MSG_");
    }
    EXPECT_EQ(findMessage(MessageId(0)), nullptr);
    EXPECT_EQ(findMessage(MessageId(0x8004)), nullptr) << "a change is not answered";
    EXPECT_EQ(findMessage(MessageId(0x8008)), nullptr) << "the tunnel's reply has an id out of line";
    EXPECT_EQ(MSG_TcpTunnelReply, 0x8009);
}

TEST(WireTypes, AreTheMessagePackFormats)
{
    EXPECT_EQ(wireTypeEncoding(WireType::Nil), 0xC0);
    EXPECT_EQ(wireTypeEncoding(WireType::Bin), 0xC5);
    EXPECT_EQ(wireTypeEncoding(WireType::U8), 0xCC);
    EXPECT_EQ(wireTypeEncoding(WireType::U16), 0xCD);
    EXPECT_EQ(wireTypeEncoding(WireType::U32), 0xCE);
    EXPECT_EQ(wireTypeEncoding(WireType::I8), 0xD0);
    EXPECT_EQ(wireTypeEncoding(WireType::I32), 0xD2);
    EXPECT_EQ(wireTypeEncoding(WireType::I64), 0xD3);
    EXPECT_EQ(wireTypeEncoding(WireType::Str), 0xDA);
}

TEST(WireTypes, AreFoundByTheirFormats)
{
    int known = 0;
    for (int encoding = 0; encoding <= 0xFF; ++encoding) {
        const WireType type = wireTypeOfEncoding(static_cast<std::uint8_t>(encoding));
        if (type != WireType::None) {
            ++known;
            EXPECT_EQ(wireTypeEncoding(type), encoding);
        }
    }
    EXPECT_EQ(known, 9);
}
