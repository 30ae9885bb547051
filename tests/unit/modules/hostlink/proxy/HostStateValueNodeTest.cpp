#include "modules/hostlink/proxy/HostStateValueNode.h"

#include <gtest/gtest.h>

#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMWorker.h"
#include "platform/sdk/MetaTypes.h"
#include "support/LogCapture.h"
#include "support/OneOfEachType.h"
#include "support/WaitFor.h"

namespace
{

using Kind = CMValueItemProxyConvert;

constexpr auto kHostState = State(0x7001);

class HostStateValueNodeTest : public ::testing::Test
{
protected:
    HostStateValueNodeTest() { registerSdkMetaTypes(); }

    /// The one node, made anew with a conversion.
    HostStateValueNode& node(Kind kind)
    {
        m_worker = std::make_unique<CMNodesWorker>(QVariantHash(), "HostStateValueNodeTest");
        return *new HostStateValueNode(m_worker.get(), m_path, kind);
    }

    std::string value() const
    {
        return VornHash(CMRoot()->getValue(m_path).toHash()).toJsonString().toStdString();
    }

    /// What the node holds after the host has pushed the message's value at `index`.
    std::string pushed(Kind kind, const HostLinkValueMessage& message, int index = 0)
    {
        node(kind).setValue(kHostState, HostLinkValueMessage(message.serialize()), index);
        return value();
    }

    CMPath m_path{QStringLiteral("/test/node")};
    std::unique_ptr<CMNodesWorker> m_worker;
    HostLinkValueMessage m_message{MSG_StateChanged};
    LogCapture m_log;
};

TEST_F(HostStateValueNodeTest, AnyByteButZeroIsTrue)
{
    m_message.addValueUint8(kHostState, 2);
    m_message.addValueUint8(kHostState, 0);
    EXPECT_EQ(pushed(Kind::Uint8VornBool, m_message, 0), R"({"bool_":true})");
    EXPECT_EQ(pushed(Kind::Uint8VornBool, m_message, 1), R"({"bool_":false})");
}

TEST_F(HostStateValueNodeTest, AByteIsANumberWithoutSign)
{
    m_message.addValueUint8(kHostState, 255);
    EXPECT_EQ(pushed(Kind::Uint8VornI32, m_message), R"({"i32_":255})");
}

TEST_F(HostStateValueNodeTest, SixtyFourBitsAreKept)
{
    m_message.addValueInt64(kHostState, -9007199254740993);
    EXPECT_EQ(pushed(Kind::Int64VornI64, m_message), R"({"i64_":-9007199254740993})");
}

TEST_F(HostStateValueNodeTest, ATextIsUtf8UpToItsFirstZeroByte)
{
    m_message.addValueString(kHostState, "Grün €");
    m_message.addValueString(kHostState, std::string_view("ab\0cd", 5));
    m_message.addValueString(kHostState, "");
    EXPECT_EQ(pushed(Kind::Bin16VornString, m_message, 0), "{\"string_\":\"Grün €\"}");
    EXPECT_EQ(pushed(Kind::Bin16VornString, m_message, 1), R"({"string_":"ab"})");
    EXPECT_EQ(pushed(Kind::Bin16VornString, m_message, 2), R"({"string_":""})");
}

TEST_F(HostStateValueNodeTest, TheHostModelIsTheFirstValueOfTheMessage)
{
    m_message.addValueUint16(kHostState, 2);
    m_message.addValueUint16(kHostState, 1);
    EXPECT_EQ(pushed(Kind::HostModel, m_message, 1), R"({"hostModel":2})");
}

TEST_F(HostStateValueNodeTest, AHostModelBehindAnotherTypeIsNotRead)
{
    m_message.addValueUint8(kHostState, 2);
    m_message.addValueUint16(kHostState, 1);
    EXPECT_EQ(pushed(Kind::HostModel, m_message, 1), "{}");
    EXPECT_EQ(m_log.textsFrom(log4cplus::WARN_LOG_LEVEL), std::vector<std::string>());
}

TEST_F(HostStateValueNodeTest, AValueOfAnotherTypeLeavesTheNode)
{
    m_message.addValueUint8(kHostState, 1);
    m_message.addValueUint16(kHostState, 0);
    m_message.addValueNil(kHostState);
    m_message.addValueString(kHostState, "0");
    HostStateValueNode& mute = node(Kind::Uint8VornBool);
    mute.setValue(kHostState, m_message, 0);
    for (int index = 1; index <= m_message.size(); ++index) {
        mute.setValue(kHostState, m_message, index);
        EXPECT_EQ(value(), R"({"bool_":true})") << index;
    }
}

TEST_F(HostStateValueNodeTest, EachConversionTakesItsOwnTypeAlone)
{
    addOneOfEachType(kHostState, "9", &m_message);
    const std::pair<Kind, int> ownIndices[] = {{Kind::Uint8VornBool, 1},
                                               {Kind::Uint8VornI32, 1},
                                               {Kind::Int64VornI64, 6},
                                               {Kind::Bin16VornString, 7}};
    for (const auto& [kind, own] : ownIndices) {
        HostStateValueNode& target = node(kind);
        target.setValue(kHostState, m_message, own);
        const std::string before = value();
        EXPECT_NE(before, "{}") << int(kind);
        for (int index = 0; index <= m_message.size(); ++index) {
            if (index != own) {
                target.setValue(kHostState, m_message, index);
                EXPECT_EQ(value(), before) << int(kind) << " at " << index;
            }
        }
    }
    EXPECT_EQ(m_log.textsFrom(log4cplus::WARN_LOG_LEVEL), std::vector<std::string>());
}

TEST_F(HostStateValueNodeTest, OtherConversionsTakeNothing)
{
    m_message.addValueUint8(kHostState, 1);
    m_message.addValueInt32(kHostState, 1);
    m_message.addValueUint32(kHostState, 1);
    m_message.addValueString(kHostState, "{}");
    for (int kind = 0; kind <= 19; ++kind) {
        if (kind == 0 || kind == 1 || kind == 3 || kind == 4 || kind == 6) {
            continue;
        }
        for (int index = 0; index < m_message.size(); ++index) {
            EXPECT_EQ(pushed(Kind(kind), m_message, index), "{}") << kind << " at " << index;
        }
    }
}

TEST_F(HostStateValueNodeTest, ModuleClientsCannotWriteIt)
{
    m_message.addValueString(kHostState, "1.2");
    EXPECT_EQ(pushed(Kind::Bin16VornString, m_message), R"({"string_":"1.2"})");
    const CMVoidReply reply;
    CMRoot()->setValue(m_path, VornValue().setString("mine"), reply);
    ASSERT_TRUE(waitFor([&] { return reply.isFinished(); }));
    EXPECT_TRUE(reply.error().isError());
    EXPECT_EQ(value(), R"({"string_":"1.2"})");
}

TEST_F(HostStateValueNodeTest, HasNoSignalsAndSlotsOfItsOwn)
{
    EXPECT_EQ(HostStateValueNode::staticMetaObject.methodCount(), QObject::staticMetaObject.methodCount());
}

TEST_F(HostStateValueNodeTest, GoesWithItsNodeWhenTheWorkerGoes)
{
    node(Kind::Uint8VornBool);
    EXPECT_EQ(CMNodes::list(), QStringList{m_path.toString()});
    m_worker.reset();
    EXPECT_TRUE(CMNodes::list().isEmpty());
}

TEST_F(HostStateValueNodeTest, TracesStateAndConversion)
{
    m_message.addValueUint8(kHostState, 1);
    HostStateValueNode& mute = node(Kind::Uint8VornI32);
    m_log.clear();
    mute.setValue(kHostState, m_message, 0);
    const std::vector<std::string> expected{
        "Enter void HostStateValueNode::setValue(State, const HostLinkValueMessage&, int): state 28673 "
        "convert: 1",
        "Leave void HostStateValueNode::setValue(State, const HostLinkValueMessage&, int)",
    };
    EXPECT_EQ(m_log.traces(), expected);
}

} // namespace
