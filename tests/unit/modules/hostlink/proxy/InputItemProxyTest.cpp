#include "modules/hostlink/proxy/InputItemProxy.h"

#include "support/ProxyFixture.h"

namespace
{
constexpr auto kInputState = STA_InputState;

class InputItemProxyTest : public ProxyFixture
{
protected:
    InputItemProxyTest() { listenTo(m_proxy); }

    std::string writeByte(int number)
    {
        HostLinkValueMessage request(MSG_SetState);
        request.addValueUint8(kInputState, std::uint8_t(number));
        return write(m_proxy, request);
    }

    std::string now() { return read(m_proxy, {kInputState}); }
    static std::string byte(int number)
    {
        return "MSG_GetStateResponse STA_InputState=u8:" + std::to_string(number);
    }

    CMValueNode* m_node = createNode(VornHostLinkKestalPrimeInputStatePath(), VornValue().setI32(1));
    InputItemProxy m_proxy{kInputState, VornHostLinkKestalPrimeInputStatePath(), nullptr};
};
} // namespace

TEST_F(InputItemProxyTest, OwnsItsOneState)
{
    EXPECT_EQ(m_proxy.states(), QList<State>{kInputState});
}

TEST_F(InputItemProxyTest, ReadsTheLowByteOfTheNumber)
{
    EXPECT_EQ(now(), byte(1));
    m_node->setValue(VornValue().setI32(258));
    m_log.clear();
    EXPECT_EQ(now(), byte(2));
    EXPECT_EQ(m_log.traces().at(1), "Input Uint8VornI32: 258");
    m_node->setValue(VornValue().setI32(-1));
    EXPECT_EQ(now(), byte(255));
    m_node->setValue(VornValue().setString("3"));
    EXPECT_EQ(now(), byte(0));
    m_node->setValue(VornValue());
    EXPECT_EQ(now(), byte(0));
}

TEST_F(InputItemProxyTest, WritesTheByteAsANumber)
{
    EXPECT_EQ(writeByte(3), "MSG_SetStateResponse STA_InputState=u8:1");
    EXPECT_EQ(m_node->value().i32(), 1) << "never inside the call";
    EXPECT_TRUE(waitFor([this] { return m_node->value().sameAs(VornValue().setI32(3)); }));
}

TEST_F(InputItemProxyTest, AcceptedMeansAskedNotTaken)
{
    m_node->setReadOnly(true);
    EXPECT_EQ(writeByte(3), "MSG_SetStateResponse STA_InputState=u8:1");
    settle();
    EXPECT_EQ(m_node->value().i32(), 1);
    delete m_node;
    EXPECT_EQ(writeByte(3), "MSG_SetStateResponse STA_InputState=u8:1");
}

TEST_F(InputItemProxyTest, AnythingButAByteIsRefused)
{
    HostLinkValueMessage request(MSG_SetState);
    request.addValueString(kInputState, "3");
    request.addValueInt8(kInputState, 3);
    request.addValueNil(kInputState);
    request.addValueUint8(kInputState, 4);
    EXPECT_EQ(write(m_proxy, request), "MSG_SetStateResponse STA_InputState=u8:0 STA_InputState=u8:0 "
                                       "STA_InputState=u8:0 STA_InputState=u8:1");
    EXPECT_TRUE(waitFor([this] { return m_node->value().i32() != 1; }));
    EXPECT_EQ(m_node->value().i32(), 4);
    EXPECT_EQ(told(), States{{kInputState}}) << "the one that was taken";
}

TEST_F(InputItemProxyTest, EachChangeIsTold)
{
    m_node->setValue(VornValue().setI32(257)); // the same byte
    m_node->setValue(VornValue());
    m_log.clear();
    m_node->setValue(VornValue().setInputState(VornHostLinkdInputStateType::Locked));
    EXPECT_EQ(told(), (States{{kInputState}, {kInputState}, {kInputState}}));
    EXPECT_EQ(m_log.traces().front(),
              "Enter void InputItemProxy::on_cmValueItem_changed(const VornValue&): Value: Locked");
}
