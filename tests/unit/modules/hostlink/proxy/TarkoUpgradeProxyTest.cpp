#include "modules/hostlink/proxy/TarkoUpgradeProxy.h"

#include "support/ProxyFixture.h"

namespace
{
/// The proxy with its state; the restarts themselves are looked at where their files and commands are.
class UpgradeProxy : public TarkoUpgradeProxy
{
public:
    using TarkoUpgradeProxy::TarkoUpgradeProxy;
    QList<State> states() const override { return {STA_HostUpgradeStatus}; }
};

class TarkoUpgradeProxyTest : public ProxyFixture
{
protected:
    std::string set(State state, std::uint8_t byte)
    {
        HostLinkValueMessage request(MSG_SetState);
        request.addValueUint8(state, byte);
        return write(m_proxy, request);
    }

    UpgradeProxy m_proxy{nullptr};
};
} // namespace

TEST_F(TarkoUpgradeProxyTest, CannotBeRead)
{
    EXPECT_EQ(read(m_proxy, {STA_HostUpgradeStatus, 0x7777}),
              "MSG_GetStateResponse STA_HostUpgradeStatus=nil 0x7777=nil");
    EXPECT_EQ(m_log.errors(), (Texts{"[TarkoUpgradeProxy] Unknown state: 62219",
                                     "[TarkoUpgradeProxy] Unknown state: 30583"}));
}

TEST_F(TarkoUpgradeProxyTest, OtherStateIsAnsweredWithNil)
{
    EXPECT_EQ(set(State(0x7777), 8), "MSG_SetStateResponse 0x7777=nil");
    EXPECT_EQ(m_log.errors(), Texts{"[TarkoUpgradeProxy] Unknown state: 30583"});
    EXPECT_EQ(m_log.debugs(), Texts{"TarkoUpgradeProxy state: 0x7777 setValue: 0x8"});
}

TEST_F(TarkoUpgradeProxyTest, UnknownStatusIsLoggedAlone)
{
    EXPECT_EQ(set(STA_HostUpgradeStatus, 3), "MSG_SetStateResponse");
    EXPECT_EQ(set(STA_HostUpgradeStatus, 0x1F), "MSG_SetStateResponse");
    EXPECT_EQ(m_log.errors(), (Texts{"Invalid or unhandled value received: 0x3",
                                     "Invalid or unhandled value received: 0x1f"}));
    EXPECT_EQ(m_log.debugs(),
              (Texts{"TarkoUpgradeProxy state: 0xf30b setValue: 0x3", "TarkoDeviceUpgradeStatus received",
                     "TarkoUpgradeProxy state: 0xf30b setValue: 0x1f", "TarkoDeviceUpgradeStatus received"}));
}

TEST_F(TarkoUpgradeProxyTest, WrongEncodingIsLoggedAlone)
{
    HostLinkValueMessage request(MSG_SetState);
    request.addValueUint32(STA_HostUpgradeStatus, 8);
    EXPECT_EQ(write(m_proxy, request), "MSG_SetStateResponse");
    EXPECT_EQ(m_log.errors(), Texts{"TarkoDeviceUpgradeStatus received invalid value encoding!"});
}

TEST_F(TarkoUpgradeProxyTest, BothRestartsAreAnnouncedAndHaveNoAnswer)
{
    EXPECT_EQ(set(STA_HostUpgradeStatus, 0), "MSG_SetStateResponse");
    EXPECT_EQ(set(STA_HostUpgradeStatus, 8), "MSG_SetStateResponse");
    EXPECT_EQ(m_log.errors(), Texts());
    EXPECT_EQ(m_log.debugs()[2], "TarkoDeviceUpgradeStatus::ReadyToReceiveData received, restarting!");
    EXPECT_EQ(m_log.debugs()[5], "TarkoDeviceUpgradeStatus::StartOmbrelUsbUpgrade received, restarting!");
}
