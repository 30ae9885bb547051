#include "modules/hostlink/proxy/BluetoothItemProxy.h"

#include "support/ProxyFixture.h"

namespace
{
VornValue bluetooth(bool connected, bool discoverable, bool pairable)
{
    return VornValue().setBluetoothState(
        VornBluetoothState().setConnected(connected).setDiscoverable(discoverable).setPairable(pairable));
}

class BluetoothItemProxyTest : public ProxyFixture
{
protected:
    BluetoothItemProxyTest() { listenTo(m_proxy); }

    static HostLinkValueMessage set(State state, std::uint8_t byte)
    {
        HostLinkValueMessage request(MSG_SetState);
        request.addValueUint8(state, byte);
        return request;
    }

    /// Lets all invocations arrive.
    void settle()
    {
        const CMVoidReply last;
        CMRoot()->invoke(VornBluetoothDialCallPath(), {{"last", true}}, last);
        ASSERT_TRUE(waitFor([&] { return last.isFinished(); }));
        m_dialled.taken.pop_back();
    }

    CMValueNode* m_state = createNode(VornBluetoothStatePath(), bluetooth(false, false, false));
    Requests m_dialled{&m_nodes, VornBluetoothDialCallPath()};
    Requests m_requested{&m_nodes, VornBluetoothRequestDiscoverablePath()};
    Requests m_revoked{&m_nodes, VornBluetoothRevokeDiscoverablePath()};
    BluetoothItemProxy m_proxy{nullptr};
};

constexpr const char* kRequest = R"({"name":"hostLink","useDefaultTimeout":true})";
} // namespace

TEST_F(BluetoothItemProxyTest, OwnsThreeStates)
{
    EXPECT_EQ(m_proxy.states(),
              (QList<State>{STA_BluetoothDiscoverable, STA_BluetoothConnection, STA_BluetoothOutgoingCall}));
}

TEST_F(BluetoothItemProxyTest, ReadsDiscoverableAndConnection)
{
    EXPECT_EQ(read(m_proxy, {35, 36}),
              "MSG_GetStateResponse STA_BluetoothDiscoverable=u8:0 STA_BluetoothConnection=u8:0");
    m_state->setValue(bluetooth(true, true, true));
    EXPECT_EQ(read(m_proxy, {36, 35}),
              "MSG_GetStateResponse STA_BluetoothConnection=u8:1 STA_BluetoothDiscoverable=u8:1");
}

TEST_F(BluetoothItemProxyTest, DiscoverableWithoutPairableIsOffAndTheOtherWayRound)
{
    m_state->setValue(bluetooth(false, true, false));
    EXPECT_EQ(read(m_proxy, {35}), "MSG_GetStateResponse STA_BluetoothDiscoverable=u8:0");
    m_state->setValue(bluetooth(false, false, true));
    EXPECT_EQ(read(m_proxy, {35}), "MSG_GetStateResponse STA_BluetoothDiscoverable=u8:0");
}

TEST_F(BluetoothItemProxyTest, OtherStatesAndTheOutgoingCallHaveNoValue)
{
    EXPECT_EQ(read(m_proxy, {40, 37, 34}), "MSG_GetStateResponse");
}

TEST_F(BluetoothItemProxyTest, OneRequestsAndZeroRevokesDiscoverability)
{
    EXPECT_EQ(write(m_proxy, set(STA_BluetoothDiscoverable, 1)),
              "MSG_SetStateResponse STA_BluetoothDiscoverable=u8:1");
    settle();
    EXPECT_EQ(m_requested.taken, Texts{kRequest});
    EXPECT_EQ(m_revoked.taken, Texts());
    EXPECT_EQ(write(m_proxy, set(STA_BluetoothDiscoverable, 0)),
              "MSG_SetStateResponse STA_BluetoothDiscoverable=u8:1");
    settle();
    EXPECT_EQ(m_requested.taken.size(), 1U);
    EXPECT_EQ(m_revoked.taken, Texts{kRequest});
    EXPECT_EQ(m_log.infos(), (Texts{"Set: BLT_DiscoverablePairable", "Set: BLT_Off"}));
}

TEST_F(BluetoothItemProxyTest, AnyOtherDiscoverableByteIsTakenAndAsksForNothing)
{
    EXPECT_EQ(write(m_proxy, set(STA_BluetoothDiscoverable, 2)),
              "MSG_SetStateResponse STA_BluetoothDiscoverable=u8:1");
    settle();
    EXPECT_EQ(m_requested.taken, Texts());
    EXPECT_EQ(m_revoked.taken, Texts());
    EXPECT_EQ(m_log.errors(), Texts{"Unknown conversion from '2' to buetooth discoverable state string."});
    EXPECT_EQ(m_log.infos(), Texts{"Set: "});
}

TEST_F(BluetoothItemProxyTest, DialsTheNumber)
{
    HostLinkValueMessage request(MSG_SetState);
    request.addValueString(STA_BluetoothOutgoingCall, "+49 555 \xC3\xA4");
    EXPECT_EQ(write(m_proxy, request), "MSG_SetStateResponse STA_BluetoothOutgoingCall=u8:1");
    settle();
    EXPECT_EQ(m_dialled.taken, Texts{"{\"string_\":\"+49 555 \xC3\xA4\"}"});
    EXPECT_EQ(m_log.infos(), Texts{"BluetoothOutgoingCall: +49 555 \xC3\xA4"});
}

TEST_F(BluetoothItemProxyTest, WhatIsOfTheWrongTypeIsRefusedAndAsksForNothing)
{
    HostLinkValueMessage request(MSG_SetState);
    request.addValueUint8(STA_BluetoothOutgoingCall, 5);
    request.addValueNil(STA_BluetoothOutgoingCall);
    request.addValueString(STA_BluetoothDiscoverable, "1");
    request.addValueUint16(STA_BluetoothDiscoverable, 1);
    EXPECT_EQ(write(m_proxy, request),
              "MSG_SetStateResponse STA_BluetoothOutgoingCall=u8:0 STA_BluetoothOutgoingCall=u8:0 "
              "STA_BluetoothDiscoverable=u8:0 STA_BluetoothDiscoverable=u8:0");
    settle();
    EXPECT_EQ(m_dialled.taken, Texts());
    EXPECT_EQ(m_requested.taken, Texts());
    EXPECT_EQ(m_revoked.taken, Texts());
    EXPECT_EQ(m_log.infos(), Texts());
}

TEST_F(BluetoothItemProxyTest, ConnectionAndOtherStatesCannotBeWritten)
{
    EXPECT_EQ(write(m_proxy, set(STA_BluetoothConnection, 1)),
              "MSG_SetStateResponse STA_BluetoothConnection=u8:0");
    EXPECT_EQ(write(m_proxy, set(State(0x7777), 1)), "MSG_SetStateResponse 0x7777=u8:0");
}

TEST_F(BluetoothItemProxyTest, TellsWhatHasChanged)
{
    m_state->setValue(bluetooth(true, true, true));
    EXPECT_EQ(told(), (States{{STA_BluetoothDiscoverable, STA_BluetoothConnection}}));
    m_state->setValue(bluetooth(false, true, true));
    EXPECT_EQ(told(), States{{STA_BluetoothConnection}});
    m_state->setValue(bluetooth(false, true, false));
    EXPECT_EQ(told(), States{{STA_BluetoothDiscoverable}});
}

TEST_F(BluetoothItemProxyTest, ChangeThatIsNoneToTheHostIsToldWithoutStates)
{
    m_state->setValue(bluetooth(false, true, false));
    EXPECT_EQ(told(), States{{}});
}

TEST_F(BluetoothItemProxyTest, NamesNumbersAndReportsUnknownOnes)
{
    EXPECT_EQ(bluetoothConnectionStateToString(BLT_Disconnected), "BLT_Disconnected");
    EXPECT_EQ(bluetoothConnectionStateToString(BLT_Connected), "BLT_Connected");
    EXPECT_EQ(bluetoothDiscoverableStateToString(BLT_Off), "BLT_Off");
    EXPECT_EQ(bluetoothDiscoverableStateToString(BLT_DiscoverablePairable), "BLT_DiscoverablePairable");
    EXPECT_EQ(m_log.errors(), Texts());
    EXPECT_EQ(bluetoothConnectionStateToString(BluetoothConnectionState(2)), "");
    EXPECT_EQ(m_log.errors(), Texts{"Unknown conversion from '2' to bluetooth connection state string."});
}
