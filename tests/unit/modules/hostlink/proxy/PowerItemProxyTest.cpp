#include "modules/hostlink/proxy/PowerItemProxy.h"

#include "support/ProxyFixture.h"

namespace
{
using Targets = VornPowerManagerTargets;

/// The code of each target, by its number.
constexpr int kCodes[] = {5, 10, 20, 40, 30, 50, 0};

/// The target that each code requests.
constexpr std::pair<int, int> kRequests[] = {{10, 1}, {20, 2}, {30, 4}, {40, 3}};

class PowerItemProxyTest : public ProxyFixture
{
protected:
    PowerItemProxyTest() { listenTo(m_proxy); }

    static VornValue targets(int target, int next)
    {
        VornPowerManagerTarget record;
        record.setTarget(Targets::Enum(target)).setNextTarget(Targets::Enum(next));
        return VornValue().setPowerTarget(record);
    }

    static std::string bytes(int state, int next)
    {
        return "MSG_GetStateResponse STA_PowerState=u8:" + std::to_string(state)
               + " STA_PowerNextState=u8:" + std::to_string(next);
    }

    std::string writeByte(State state, int byte)
    {
        HostLinkValueMessage request(MSG_SetState);
        request.addValueUint8(state, std::uint8_t(byte));
        return write(m_proxy, request);
    }

    static bool waitForRequest(const Requests& requests, std::size_t count)
    {
        return waitFor([&] { return requests.taken.size() >= count; });
    }

    CMValueNode* m_target = createNode(VornPowerManagerTargetPath(), targets(1, 2));
    Requests m_requests{&m_nodes, VornPowerManagerTargetRequestPath()};
    PowerItemProxy m_proxy{nullptr};
};
} // namespace

TEST_F(PowerItemProxyTest, OwnsBothStates)
{
    EXPECT_EQ(m_proxy.states(), (QList<State>{STA_PowerState, STA_PowerNextState}));
}

TEST_F(PowerItemProxyTest, EachTargetHasItsCode)
{
    for (int target = 0; target < int(std::size(kCodes)); ++target) {
        const int next = (target + 2) % int(std::size(kCodes));
        m_target->setValue(targets(target, next));
        EXPECT_EQ(read(m_proxy, {3, 54}), bytes(kCodes[target], kCodes[next]));
    }
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(PowerItemProxyTest, ATargetWithoutACodeIsZeroAndAnError)
{
    m_target->setValue(targets(7, -1));
    EXPECT_EQ(read(m_proxy, {3, 54}), bytes(0, 0));
    EXPECT_EQ(m_log.errors(), (Texts{"Unknown conversion from '7' to power state",
                                     "Unknown conversion from '-1' to power state"}));
}

TEST_F(PowerItemProxyTest, ANodeThatHoldsSomethingElseReadsAsTargetZero)
{
    for (const VornValue& value :
         {VornValue(), VornValue().setI32(3), VornValue(VornHash{{"powerTarget", "on"}}),
          VornValue(VornHash{{"powerTarget", QVariantHash{{"target", "1"}}}})}) {
        m_target->setValue(value);
        EXPECT_EQ(read(m_proxy, {3, 54}), bytes(5, 5)) << value.toJsonString().toStdString();
    }
}

TEST_F(PowerItemProxyTest, OnlyFourCodesCanBeRequested)
{
    std::size_t asked = 0;
    for (int code = 0; code < 256; ++code) {
        const auto* request = std::find_if(std::begin(kRequests), std::end(kRequests),
                                           [code](const auto& row) { return row.first == code; });
        m_log.clear();
        m_requests.taken.clear();
        if (request == std::end(kRequests)) {
            EXPECT_EQ(writeByte(STA_PowerState, code), "MSG_SetStateResponse STA_PowerState=u8:0");
            EXPECT_EQ(m_log.errors(),
                      Texts{"Unknown conversion from " + std::to_string(code) + " to power target"});
            EXPECT_TRUE(m_requests.taken.empty());
            continue;
        }
        EXPECT_EQ(writeByte(STA_PowerState, code), "MSG_SetStateResponse STA_PowerState=u8:1");
        ASSERT_TRUE(waitForRequest(m_requests, 1));
        EXPECT_EQ(m_requests.taken, Texts{"{\"target\":" + std::to_string(request->second) + "}"});
        EXPECT_EQ(m_log.debugs(), Texts{"powerState: " + std::to_string(code)});
        EXPECT_TRUE(m_log.errors().empty());
        ++asked;
    }
    EXPECT_EQ(asked, std::size(kRequests));
    EXPECT_TRUE(m_target->value().sameAs(targets(1, 2))) << "the power manager's to change";
}

TEST_F(PowerItemProxyTest, ACodeThatCannotBeReadIsTriedAsZero)
{
    HostLinkValueMessage request(MSG_SetState);
    request.addValueUint32(STA_PowerState, 10);
    EXPECT_EQ(write(m_proxy, request), "MSG_SetStateResponse STA_PowerState=u8:0");
    EXPECT_EQ(m_log.errors(), Texts{"Unknown conversion from 0 to power target"});
}

TEST_F(PowerItemProxyTest, TheNextStateCannotBeWritten)
{
    EXPECT_EQ(writeByte(STA_PowerNextState, 10), "MSG_SetStateResponse STA_PowerNextState=u8:0");
    EXPECT_EQ(writeByte(STA_PowerState, 20), "MSG_SetStateResponse STA_PowerState=u8:1");
    ASSERT_TRUE(waitForRequest(m_requests, 1));
    EXPECT_EQ(m_requests.taken, Texts{"{\"target\":2}"}) << "only the second one asked";
}

TEST_F(PowerItemProxyTest, ARequestWithoutAPowerManagerIsStillTaken)
{
    removeActivateNodes();
    EXPECT_EQ(writeByte(STA_PowerState, 10), "MSG_SetStateResponse STA_PowerState=u8:1");
}

TEST_F(PowerItemProxyTest, ARequestThatThePowerManagerRefusesIsStillTaken)
{
    removeActivateNodes();
    createRefusal(VornPowerManagerTargetRequestPath());
    EXPECT_EQ(writeByte(STA_PowerState, 10), "MSG_SetStateResponse STA_PowerState=u8:1");
}

TEST_F(PowerItemProxyTest, TellsWhatChanged)
{
    m_target->setValue(targets(1, 3));
    EXPECT_EQ(told(), States{{STA_PowerNextState}});
    m_target->setValue(targets(3, 3));
    EXPECT_EQ(told(), States{{STA_PowerState}});
    m_target->setValue(targets(1, 2));
    EXPECT_EQ(told(), (States{{STA_PowerState, STA_PowerNextState}}));
}

TEST_F(PowerItemProxyTest, AChangeOfNeitherIsNotTold)
{
    VornValue value = targets(1, 2);
    value.setPowerTarget(value.powerTarget().setReason(VornPowerManagerReasons::Number3));
    m_target->setValue(value);
    EXPECT_EQ(told(), States{});
}
