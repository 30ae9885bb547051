#include "modules/hostlink/proxy/SystemUpProxy.h"

#include <gtest/gtest.h>

#include "platform/hostlink/HostLinkPrinter.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "support/LogCapture.h"

namespace
{

TEST(SystemUpStateProxyTest, OwnsTheSystemUpStateAlone)
{
    EXPECT_EQ(SystemUpStateProxy(nullptr).states(), QList<State>{STA_SystemUp});
}

TEST(SystemUpStateProxyTest, AnswersOneUnderWhateverStateIsAsked)
{
    SystemUpStateProxy proxy(nullptr);
    HostLinkValueMessage reply(MSG_GetStateResponse);
    proxy.getValue(STA_SystemUp, &reply);
    proxy.getValue(State(0x7777), &reply);
    EXPECT_EQ(HostLinkPrinter::printMessage(reply.serialize()),
              "MSG_GetStateResponse STA_SystemUp=u8:1 0x7777=u8:1");
}

TEST(SystemUpStateProxyTest, RefusesToBeWritten)
{
    SystemUpStateProxy proxy(nullptr);
    HostLinkValueMessage request(MSG_SetState);
    request.addValueUint8(STA_SystemUp, 0);
    HostLinkValueMessage reply(MSG_SetStateResponse);
    proxy.setValue(STA_SystemUp, request, 0, &reply);
    EXPECT_EQ(HostLinkPrinter::printMessage(reply.serialize()), "MSG_SetStateResponse STA_SystemUp=u8:0");
}

TEST(SystemUpStateProxyTest, HasNoSignalsAndSlotsOfItsOwn)
{
    EXPECT_EQ(SystemUpStateProxy::staticMetaObject.methodCount(), ValueProxy::staticMetaObject.methodCount());
}

TEST(SystemUpStateProxyTest, TracesTheStateThatIsAsked)
{
    SystemUpStateProxy proxy(nullptr);
    HostLinkValueMessage reply(MSG_GetStateResponse);
    const LogCapture log;
    proxy.getValue(STA_SystemUp, &reply);
    const std::vector<std::string> expected{
        "Enter virtual void SystemUpStateProxy::getValue(State, HostLinkValueMessage*): 32system state: ",
        "Leave virtual void SystemUpStateProxy::getValue(State, HostLinkValueMessage*)",
    };
    EXPECT_EQ(log.traces(), expected);
}

} // namespace
