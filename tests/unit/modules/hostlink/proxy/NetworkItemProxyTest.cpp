#include "modules/hostlink/proxy/NetworkItemProxy.h"

#include "support/ProxyFixture.h"

namespace
{
constexpr int kDown = 0;
constexpr int kUp = 1;
constexpr int kConnecting = 2;
constexpr int kOther = 7;

/// A report of the network: the state as a whole; the interfaces are down where nothing else is said.
class Report
{
public:
    explicit Report(int state) { m_info.setState(VornNetworkState::Enum(state)); }

    Report& wired(int state)
    {
        m_info.setWired(m_info.wired().setState(VornNetworkState::Enum(state)));
        return *this;
    }
    Report& cable()
    {
        m_info.setWired(m_info.wired().setCableConnected(true));
        return *this;
    }
    Report& wireless(int state)
    {
        m_info.setWireless(VornNetworkWirelessInterface().setState(VornNetworkState::Enum(state)));
        return *this;
    }
    Report& softAp(int state)
    {
        m_info.setSoftAp(VornNetworkSoftApInterface().setState(VornNetworkState::Enum(state)));
        return *this;
    }

    VornValue value() const { return VornValue().setNetworkInfo(m_info); }

private:
    VornNetworkInfo m_info;
};

class NetworkItemProxyTest : public ProxyFixture
{
protected:
    NetworkItemProxyTest() { listenTo(m_proxy); }

    void report(const Report& next) { m_info->setValue(next.value()); }

    /// The bytes that the host reads for the two states.
    std::string now() { return read(m_proxy, {30, 31}); }

    static std::string bytes(int state, int type)
    {
        return "MSG_GetStateResponse STA_NetworkState=u8:" + std::to_string(state)
               + " STA_NetworkConnectionType=u8:" + std::to_string(type);
    }

    CMValueNode* m_info = createNode(VornNetworkInfoPath(), Report(kDown).value());
    NetworkItemProxy m_proxy{nullptr};
};

/// Reports that bring a proxy that was connected to a state.
std::vector<Report> wayTo(NetworkState state)
{
    const Report connected = Report(kUp).wired(kUp).cable();
    switch (state) {
    case NETW_Connected: return {connected};
    case NETW_Connecting: return {connected, Report(kConnecting)};
    case NETW_NotConnected: return {connected, Report(kDown)};
    case NETW_Error: return {connected, Report(kDown).softAp(kUp)};
    }
    return {};
}
} // namespace

TEST_F(NetworkItemProxyTest, OwnsBothStates)
{
    EXPECT_EQ(m_proxy.states(), (QList<State>{STA_NetworkState, STA_NetworkConnectionType}));
}

TEST_F(NetworkItemProxyTest, BeforeAnyChangeItIsNotConnected)
{
    EXPECT_EQ(now(), bytes(0, 0));
    EXPECT_EQ(m_proxy.getNetworkState(), NETW_NotConnected);
}

TEST_F(NetworkItemProxyTest, BeforeTheFirstConnectionEverythingElseIsConnecting)
{
    for (const int state : {kConnecting, kOther, kDown}) {
        for (const Report& next : {Report(state), Report(state).cable(), Report(state).softAp(kUp),
                                   Report(state).cable().softAp(kUp)}) {
            report(next);
            EXPECT_EQ(m_proxy.getNetworkState(), NETW_Connecting)
                << next.value().toJsonString().toStdString();
        }
    }
}

TEST_F(NetworkItemProxyTest, FirstReportWithoutACableTellsTheStateAlone)
{
    report(Report(kDown).wired(kConnecting));
    EXPECT_EQ(m_proxy.getNetworkState(), NETW_Connecting);
    EXPECT_EQ(told(), States{{STA_NetworkState}});
}

TEST_F(NetworkItemProxyTest, OnceConnectedEachReportLeadsToOneState)
{
    const NetworkState all[] = {NETW_NotConnected, NETW_Connected, NETW_Connecting, NETW_Error};
    for (const NetworkState before : all) {
        const std::pair<Report, NetworkState> reports[] = {
            {Report(kUp), NETW_Connected},
            {Report(kConnecting), NETW_Connecting},
            {Report(kConnecting).softAp(kUp), NETW_Connecting},
            {Report(kConnecting).cable(), NETW_Connected},
            {Report(kDown), NETW_NotConnected},
            {Report(kDown).softAp(kConnecting), NETW_NotConnected},
            {Report(kDown).softAp(kUp), NETW_Error},
            {Report(kDown).cable(), NETW_Connecting},
            {Report(kDown).cable().softAp(kUp), NETW_Connecting},
            {Report(kOther), before},
            {Report(kOther).cable().softAp(kUp), before},
        };
        for (const auto& [next, after] : reports) {
            for (const Report& step : wayTo(before)) {
                report(step);
            }
            ASSERT_EQ(m_proxy.getNetworkState(), before);
            const NetworkType typeBefore =
                NetworkItemProxy::connectionTypeToEnum(m_info->value().networkInfo());
            told();
            report(next);
            EXPECT_EQ(m_proxy.getNetworkState(), after)
                << before << " " << next.value().toJsonString().toStdString();
            QList<State> expected;
            if (after != before) {
                expected.append(STA_NetworkState);
            }
            if (NetworkItemProxy::connectionTypeToEnum(next.value().networkInfo()) != typeBefore) {
                expected.append(STA_NetworkConnectionType);
            }
            EXPECT_EQ(told(), expected.isEmpty() ? States() : States{expected});
        }
    }
}

TEST_F(NetworkItemProxyTest, ConnectionTypeIsTheFirstConnectedInterface)
{
    const std::pair<Report, NetworkType> reports[] = {
        {Report(kUp).wired(kUp).wireless(kUp).softAp(kUp), CONT_Ethernet},
        {Report(kUp).wired(kConnecting).wireless(kUp).softAp(kUp), CONT_WiFi},
        {Report(kUp).wireless(kConnecting).softAp(kUp), CONT_SoftAP},
        {Report(kUp).wired(kOther).cable().wireless(kConnecting), CONT_Unknown},
    };
    for (const auto& [next, type] : reports) {
        report(next);
        EXPECT_EQ(now(), bytes(NETW_Connected, type));
    }
}

TEST_F(NetworkItemProxyTest, ChangeOfTheLinkKindAloneTellsTheTypeAlone)
{
    report(Report(kUp).wireless(kUp));
    EXPECT_EQ(told(), (States{{STA_NetworkState, STA_NetworkConnectionType}}));
    report(Report(kUp).wired(kUp));
    EXPECT_EQ(told(), States{{STA_NetworkConnectionType}});
}

TEST_F(NetworkItemProxyTest, ReportThatChangesNothingTellsNothing)
{
    report(Report(kUp).wired(kUp));
    told();
    report(Report(kUp).wired(kUp).cable());
    EXPECT_EQ(told(), States());
}

TEST_F(NetworkItemProxyTest, OtherStatesHaveNoValue)
{
    EXPECT_EQ(read(m_proxy, {29, 32, 0x7777}), "MSG_GetStateResponse");
}

TEST_F(NetworkItemProxyTest, CannotBeWritten)
{
    HostLinkValueMessage request(MSG_SetState);
    request.addValueUint8(STA_NetworkState, 1);
    EXPECT_EQ(write(m_proxy, request), "MSG_SetStateResponse STA_NetworkState=u8:0");
}

TEST_F(NetworkItemProxyTest, NamesNumbersAndReportsUnknownOnes)
{
    EXPECT_EQ(networkStateEnumToString(NETW_NotConnected), "NETW_NotConnected");
    EXPECT_EQ(networkStateEnumToString(NETW_Connected), "NETW_Connected");
    EXPECT_EQ(networkStateEnumToString(NETW_Connecting), "NETW_Connecting");
    EXPECT_EQ(networkStateEnumToString(NETW_Error), "NETW_Error");
    EXPECT_EQ(connectionTypeEnumToString(CONT_Unknown), "CONT_Unknown");
    EXPECT_EQ(connectionTypeEnumToString(CONT_Ethernet), "CONT_Ethernet");
    EXPECT_EQ(connectionTypeEnumToString(CONT_WiFi), "CONT_WiFi");
    EXPECT_EQ(connectionTypeEnumToString(CONT_SoftAP), "CONT_SoftAP");
    EXPECT_EQ(m_log.errors(), Texts());
    EXPECT_EQ(networkStateEnumToString(NetworkState(4)), "");
    EXPECT_EQ(connectionTypeEnumToString(NetworkType(-1)), "");
    EXPECT_EQ(m_log.errors(), (Texts{"Unknown conversion from '4' to network state string.",
                                     "Unknown conversion from '-1' to connection type string."}));
}

TEST_F(NetworkItemProxyTest, TracesWhatItWasToldAndWhatCameOfIt)
{
    m_log.clear();
    report(Report(kUp).wired(kUp).cable());
    const Texts lines = m_log.traces();
    const std::string slot =
        "void NetworkItemProxy::on_networkInfoItem_changed(const VornValue&, const VornValue&)";
    const std::string type =
        "static NetworkType NetworkItemProxy::connectionTypeToEnum(const VornNetworkInfo&)";
    ASSERT_EQ(lines.size(), 7U);
    EXPECT_EQ(lines[0], "Enter " + slot + ": " + m_info->value().toJsonString().toStdString());
    EXPECT_EQ(lines[1], "network state = 1, cable = 1");
    EXPECT_EQ(lines[2], "Enter " + type + ": state: 1");
    EXPECT_EQ(lines[3], "Leave " + type + ": ConnectionType: CONT_Ethernet");
    EXPECT_EQ(lines[4], "Enter " + type + ": state: 0");
    EXPECT_EQ(lines[5], "Leave " + type + ": ConnectionType: CONT_Unknown");
    EXPECT_EQ(lines[6], "Leave " + slot + ": networkState : NETW_Connected");
}
