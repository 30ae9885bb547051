#include "modules/hostlink/proxy/DiracProxy.h"

#include "support/ProxyFixture.h"

namespace
{
class DiracProxyTest : public ProxyFixture
{
protected:
    DiracProxy m_proxy{nullptr};
};
} // namespace

TEST_F(DiracProxyTest, ClaimsBothStatesOfTheFilters)
{
    EXPECT_EQ(m_proxy.states(), (QList<State>{State(62215), State(62216)}));
}

TEST_F(DiracProxyTest, ReadsAreNil)
{
    EXPECT_EQ(read(m_proxy, {62215, 62216}),
              "MSG_GetStateResponse STA_DiracFilterSettings=nil STA_DiracActiveFilter=nil");
}

TEST_F(DiracProxyTest, AWriteIsNotAnswered)
{
    HostLinkValueMessage request(MSG_SetState);
    request.addValueString(62215, "{}");
    request.addValueInt32(62216, 1);
    EXPECT_EQ(write(m_proxy, request), "MSG_SetStateResponse");
    EXPECT_EQ(m_log.traces().front(), "Enter virtual void DiracProxy::setValue(State, const "
                                      "HostLinkValueMessage&, int, HostLinkValueMessage*)");
}
