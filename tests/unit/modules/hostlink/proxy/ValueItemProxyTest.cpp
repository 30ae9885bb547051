#include "modules/hostlink/proxy/ValueItemProxy.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <memory>

#include "platform/hostlink/HostLinkPrinter.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMWorker.h"
#include "platform/sdk/MetaTypes.h"
#include "platform/sdk/VornJson.h"
#include "support/DeepValue.h"
#include "support/LogCapture.h"
#include "support/OneOfEachType.h"
#include "support/WaitFor.h"

namespace
{

using Kind = CMValueItemProxyConvert;
using Texts = std::vector<std::string>;

constexpr auto kValueState = State(0x7001);
constexpr auto kUnknownKind = Kind(19);

constexpr std::array kWritable{Kind::Uint8VornBool,      Kind::Uint8VornI32,      Kind::Int32VornI32,
                               Kind::Int64VornI64,       Kind::Bin16VornString,   Kind::Uint32VornI32,
                               Kind::VolumeMode,         Kind::HostUpgradeStatus, Kind::Region,
                               Kind::Bin16VornValueJson, Kind::Uint8InputState};

constexpr std::array kReadOnly{Kind::OutputType,     Kind::MqaState,     Kind::SomUpgradeStatus,
                               Kind::HaloBrightness, Kind::IrSystemCode, Kind::InputAutoSwitch,
                               Kind::DacFilter};

bool readsFirstValue(Kind kind)
{
    return kind == Kind::VolumeMode || kind == Kind::HostUpgradeStatus || kind == Kind::Region;
}

/// One node and, for each kind, a proxy on it.
class ValueItemProxyTest : public ::testing::Test
{
protected:
    ValueItemProxyTest() { registerSdkMetaTypes(); }

    ValueItemProxy* proxy(Kind kind)
    {
        m_proxies.push_back(std::make_unique<ValueItemProxy>(kValueState, m_path, kind, nullptr));
        return m_proxies.back().get();
    }

    void setNode(const VornValue& value)
    {
        m_nodes = std::make_unique<CMNodes>();
        m_node = CMValueNode::create(m_nodes.get(), m_path);
        m_node->setValue(value);
    }

    std::string node() const { return m_node->value().toJsonString().toStdString(); }

    /// What the host reads through a proxy of this kind.
    std::string read(Kind kind)
    {
        HostLinkValueMessage reply(MSG_GetStateResponse);
        proxy(kind)->getValue(kValueState, &reply);
        return answer(reply);
    }

    std::string read(Kind kind, const VornValue& value)
    {
        setNode(value);
        return read(kind);
    }

    /// What the host is answered; the node has taken the value, or refused it, on return.
    std::string write(Kind kind, const HostLinkValueMessage& request, int index = 0)
    {
        const HostLinkValueMessage received(request.serialize());
        HostLinkValueMessage reply(MSG_SetStateResponse);
        proxy(kind)->setValue(kValueState, received, index, &reply);
        settle();
        return answer(reply);
    }

    /// Writes are asynchronous and in order: one that is known to finish comes behind all others.
    static void settle()
    {
        const CMVoidReply reply(new CMReplyData<QVariant>);
        CMRoot()->setValue(CMPath("/test/none"), VornValue(), reply);
        ASSERT_TRUE(waitFor([&] { return reply.isFinished(); }));
    }

    static HostLinkValueMessage request() { return HostLinkValueMessage(MSG_SetState); }

    template <typename Value>
    static HostLinkValueMessage request(void (HostLinkValueMessage::*add)(std::uint16_t, Value), Value value)
    {
        HostLinkValueMessage message(MSG_SetState);
        (message.*add)(kValueState, value);
        return message;
    }

    static HostLinkValueMessage byte(std::uint8_t value)
    {
        return request<std::uint8_t>(&HostLinkValueMessage::addValueUint8, value);
    }

    static HostLinkValueMessage text(std::string_view value)
    {
        HostLinkValueMessage message(MSG_SetState);
        message.addValueString(kValueState, value);
        return message;
    }

    /// The one value of a reply, without the state in front that all of them carry.
    static std::string answer(const HostLinkValueMessage& reply)
    {
        EXPECT_EQ(reply.size(), 1);
        EXPECT_EQ(reply.getTag(0), kValueState);
        const std::string line = HostLinkPrinter::printMessage(reply.serialize());
        return line.substr(line.find('=') + 1);
    }

    CMPath m_path{QStringLiteral("/test/node")};
    std::unique_ptr<CMNodes> m_nodes;
    CMValueNode* m_node = nullptr;
    std::vector<std::unique_ptr<ValueItemProxy>> m_proxies;
    LogCapture m_log;
};

TEST_F(ValueItemProxyTest, Uint8VornBoolIsOneOrZero)
{
    EXPECT_EQ(read(Kind::Uint8VornBool, VornValue().setBool(true)), "u8:1");
    EXPECT_EQ(read(Kind::Uint8VornBool, VornValue().setBool(false)), "u8:0");
}

TEST_F(ValueItemProxyTest, Uint8VornBoolTakesAnyByteButZeroAsTrue)
{
    setNode(VornValue().setBool(false));
    EXPECT_EQ(write(Kind::Uint8VornBool, byte(7)), "u8:1");
    EXPECT_EQ(node(), R"({"bool_":true})");
    EXPECT_EQ(write(Kind::Uint8VornBool, byte(0)), "u8:1");
    EXPECT_EQ(node(), R"({"bool_":false})");
}

TEST_F(ValueItemProxyTest, Uint8VornI32NarrowsToAByte)
{
    EXPECT_EQ(read(Kind::Uint8VornI32, VornValue().setI32(300)), "u8:44");
    EXPECT_EQ(read(Kind::Uint8VornI32, VornValue().setI32(-1)), "u8:255");
}

TEST_F(ValueItemProxyTest, Uint8VornI32TakesAByteAsUnsigned)
{
    setNode(VornValue().setI32(300));
    EXPECT_EQ(write(Kind::Uint8VornI32, byte(255)), "u8:1");
    EXPECT_EQ(node(), R"({"i32_":255})");
}

TEST_F(ValueItemProxyTest, Int32VornI32KeepsAll32Bits)
{
    constexpr std::int32_t kLowest = std::numeric_limits<std::int32_t>::min();
    EXPECT_EQ(read(Kind::Int32VornI32, VornValue().setI32(kLowest)), "i32:-2147483648");
    EXPECT_EQ(write(Kind::Int32VornI32, request<std::int32_t>(&HostLinkValueMessage::addValueInt32, -5)),
              "u8:1");
    EXPECT_EQ(node(), R"({"i32_":-5})");
}

TEST_F(ValueItemProxyTest, Int64VornI64KeepsAll64Bits)
{
    constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();
    EXPECT_EQ(read(Kind::Int64VornI64, VornValue().setI64(kLowest)), "i64:-9223372036854775808");
    EXPECT_EQ(write(Kind::Int64VornI64,
                    request<std::int64_t>(&HostLinkValueMessage::addValueInt64, 9007199254740993)),
              "u8:1");
    EXPECT_EQ(node(), R"({"i64_":9007199254740993})");
}

TEST_F(ValueItemProxyTest, Bin16VornStringIsUtf8BothWays)
{
    EXPECT_EQ(read(Kind::Bin16VornString, VornValue().setString(QString::fromUtf8("Grün €"))),
              "str:\"Grün €\"");
    EXPECT_EQ(read(Kind::Bin16VornString, VornValue().setString("")), "str:\"\"");
    EXPECT_EQ(write(Kind::Bin16VornString, text("Blå")), "u8:1");
    EXPECT_EQ(m_node->value().string(), QString::fromUtf8("Blå"));
    EXPECT_EQ(write(Kind::Bin16VornString, text("")), "u8:1");
    EXPECT_EQ(node(), R"({"string_":""})");
}

TEST_F(ValueItemProxyTest, ATextReachesTheHostUpToItsFirstZeroByte)
{
    const QString cut = QString::fromLatin1("ab\0cd", 5);
    EXPECT_EQ(read(Kind::Bin16VornString, VornValue().setString(cut)), "str:\"ab\"");
    EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL, "Bin16VornString: ab"), 1U);
}

TEST_F(ValueItemProxyTest, ATextOfTheHostReachesTheNodeUpToItsFirstZeroByte)
{
    setNode(VornValue().setString("x"));
    EXPECT_EQ(write(Kind::Bin16VornString, text(std::string_view("ab\0cd", 5))), "u8:1");
    EXPECT_EQ(m_node->value().string(), QString("ab"));
}

TEST_F(ValueItemProxyTest, ATextTooLongForTheLinkIsNil)
{
    EXPECT_EQ(read(Kind::Bin16VornString, VornValue().setString(QString(65536, 'a'))), "nil");
}

TEST_F(ValueItemProxyTest, Uint32VornI32ReinterpretsAll32Bits)
{
    EXPECT_EQ(read(Kind::Uint32VornI32, VornValue().setI32(-1)), "u32:4294967295");
    setNode(VornValue().setI32(0));
    EXPECT_EQ(write(Kind::Uint32VornI32,
                    request<std::uint32_t>(&HostLinkValueMessage::addValueUint32, 4294967295U)),
              "u8:1");
    EXPECT_EQ(node(), R"({"i32_":-1})");
}

TEST_F(ValueItemProxyTest, HostModelAndUnknownKindsAreNilAndRefused)
{
    for (const Kind kind : {Kind::HostModel, kUnknownKind, Kind(0xFFFFFFFF)}) {
        EXPECT_EQ(read(kind, VornValue().setI32(5)), "nil");
        EXPECT_EQ(write(kind, byte(1)), "u8:0");
        EXPECT_EQ(node(), R"({"i32_":5})");
    }
}

TEST_F(ValueItemProxyTest, EnumeratedKindsSendTheirNumberAsAByte)
{
    EXPECT_EQ(read(Kind::OutputType, VornValue().setOutputType(VornKestalPrimeOutputType::Enum(2))), "u8:2");
    EXPECT_EQ(read(Kind::MqaState, VornValue().setMqaState(VornKestalPrimeMqaState::Enum(3))), "u8:3");
    EXPECT_EQ(read(Kind::SomUpgradeStatus,
                   VornValue().setSomUpgradeStatus(VornKestalPrimeSomUpgradeStatus::Enum(4))),
              "u8:4");
    EXPECT_EQ(read(Kind::Region, VornValue().setRegion(VornKestalPrimeRegion::Enum(1))), "u8:1");
    EXPECT_EQ(
        read(Kind::HaloBrightness, VornValue().setHaloBrightness(VornKestalPrimeHaloBrightness::Enum(2))),
        "u8:2");
    EXPECT_EQ(read(Kind::IrSystemCode, VornValue().setIrSystemCode(VornKestalPrimeIrSystemCode::Enum(1))),
              "u8:1");
    EXPECT_EQ(
        read(Kind::InputAutoSwitch, VornValue().setInputAutoSwitch(VornKestalPrimeInputAutoSwitch::Enum(1))),
        "u8:1");
    EXPECT_EQ(read(Kind::DacFilter, VornValue().setDacFilter(VornKestalPrimeDacFilter::Enum(9))), "u8:9");
    EXPECT_EQ(read(Kind::Uint8InputState, VornValue().setInputState(VornHostLinkdInputStateType::Enum(1))),
              "u8:1");
}

TEST_F(ValueItemProxyTest, AnEnumeratedNumberThatFitsNoByteIsCutToItsLowBits)
{
    EXPECT_EQ(read(Kind::Region, VornValue().setRegion(VornKestalPrimeRegion::Enum(0x1234))), "u8:52");
}

TEST_F(ValueItemProxyTest, ReadOnlyKindsRefuseAndLeaveTheNode)
{
    for (const Kind kind : kReadOnly) {
        setNode(VornValue().setI32(5));
        EXPECT_EQ(write(kind, byte(1)), "u8:0");
        EXPECT_EQ(node(), R"({"i32_":5})");
    }
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(ValueItemProxyTest, WriteOnlyKindsAreNil)
{
    EXPECT_EQ(read(Kind::VolumeMode, VornValue().setVolumeMode(VornKestalPrimeVolumeMode::Enum(1))), "nil");
    EXPECT_EQ(read(Kind::HostUpgradeStatus,
                   VornValue().setHostUpgradeStatus(VornKestalPrimeHostUpgradeStatus::Enum(8))),
              "nil");
}

TEST_F(ValueItemProxyTest, VolumeModeTakesAByte)
{
    setNode(VornValue().setVolumeMode(VornKestalPrimeVolumeMode::Enum(0)));
    EXPECT_EQ(write(Kind::VolumeMode, byte(1)), "u8:1");
    EXPECT_EQ(m_node->value().volumeMode(), 1);
}

TEST_F(ValueItemProxyTest, HostUpgradeStatusTakesAByte)
{
    setNode(VornValue().setHostUpgradeStatus(VornKestalPrimeHostUpgradeStatus::Enum(0)));
    EXPECT_EQ(write(Kind::HostUpgradeStatus, byte(8)), "u8:1");
    EXPECT_EQ(m_node->value().hostUpgradeStatus(), 8);
}

TEST_F(ValueItemProxyTest, RegionTakesAByte)
{
    setNode(VornValue().setRegion(VornKestalPrimeRegion::Enum(0)));
    EXPECT_EQ(write(Kind::Region, byte(200)), "u8:1");
    EXPECT_EQ(m_node->value().region(), 200);
}

TEST_F(ValueItemProxyTest, InputStateTakesAByte)
{
    setNode(VornValue().setInputState(VornHostLinkdInputStateType::Enum(0)));
    EXPECT_EQ(write(Kind::Uint8InputState, byte(1)), "u8:1");
    EXPECT_EQ(m_node->value().inputState(), 1);
}

TEST_F(ValueItemProxyTest, VolumeModeUpgradeStatusAndRegionReadTheFirstValueOfTheRequest)
{
    HostLinkValueMessage request(MSG_SetState);
    request.addValueUint8(1, 11);
    request.addValueUint8(2, 12);
    request.addValueUint8(kValueState, 13);
    setNode(VornValue().setVolumeMode(VornKestalPrimeVolumeMode::Enum(0)));
    EXPECT_EQ(write(Kind::VolumeMode, request, 2), "u8:1");
    EXPECT_EQ(m_node->value().volumeMode(), 11);
    setNode(VornValue().setHostUpgradeStatus(VornKestalPrimeHostUpgradeStatus::Enum(0)));
    EXPECT_EQ(write(Kind::HostUpgradeStatus, request, 2), "u8:1");
    EXPECT_EQ(m_node->value().hostUpgradeStatus(), 11);
    setNode(VornValue().setRegion(VornKestalPrimeRegion::Enum(0)));
    EXPECT_EQ(write(Kind::Region, request, 2), "u8:1");
    EXPECT_EQ(m_node->value().region(), 11);
}

TEST_F(ValueItemProxyTest, AFirstValueThatIsNoByteRefusesTheRegionBehindIt)
{
    HostLinkValueMessage request(MSG_SetState);
    request.addValueInt32(1, 11);
    request.addValueUint8(kValueState, 2);
    setNode(VornValue().setRegion(VornKestalPrimeRegion::Enum(1)));
    EXPECT_EQ(write(Kind::Region, request, 1), "u8:0");
    EXPECT_EQ(m_node->value().region(), 1);
}

TEST_F(ValueItemProxyTest, AllOtherKindsReadTheValueAtTheirIndex)
{
    HostLinkValueMessage request(MSG_SetState);
    request.addValueUint8(1, 11);
    request.addValueUint8(kValueState, 12);
    request.addValueInt32(kValueState, 13);
    request.addValueInt64(kValueState, 14);
    request.addValueString(kValueState, "{\"a\":15}");
    request.addValueUint32(kValueState, 16);
    setNode(VornValue().setI32(0));
    EXPECT_EQ(write(Kind::Uint8VornI32, request, 1), "u8:1");
    EXPECT_EQ(m_node->value().i32(), 12);
    EXPECT_EQ(write(Kind::Int32VornI32, request, 2), "u8:1");
    EXPECT_EQ(m_node->value().i32(), 13);
    EXPECT_EQ(write(Kind::Uint32VornI32, request, 5), "u8:1");
    EXPECT_EQ(m_node->value().i32(), 16);
    setNode(VornValue().setBool(false));
    EXPECT_EQ(write(Kind::Uint8VornBool, request, 1), "u8:1");
    EXPECT_TRUE(m_node->value().bool_());
    setNode(VornValue().setI64(0));
    EXPECT_EQ(write(Kind::Int64VornI64, request, 3), "u8:1");
    EXPECT_EQ(m_node->value().i64(), 14);
    setNode(VornValue().setString(""));
    EXPECT_EQ(write(Kind::Bin16VornString, request, 4), "u8:1");
    EXPECT_EQ(m_node->value().string(), "{\"a\":15}");
    setNode(VornHash{{"a", 0}});
    EXPECT_EQ(write(Kind::Bin16VornValueJson, request, 4), "u8:1");
    EXPECT_EQ(node(), R"({"a":15})");
    setNode(VornValue().setInputState(VornHostLinkdInputStateType::Enum(0)));
    EXPECT_EQ(write(Kind::Uint8InputState, request, 1), "u8:1");
    EXPECT_EQ(m_node->value().inputState(), 12);
}

TEST_F(ValueItemProxyTest, JsonOfTheNodeHasSortedKeys)
{
    EXPECT_EQ(read(Kind::Bin16VornValueJson, VornHash{{"b", 1}, {"a", QString::fromUtf8("ü")}}),
              R"(str:"{\"a\":\"ü\",\"b\":1}")");
}

TEST_F(ValueItemProxyTest, JsonOfAPlainNodeIsItsHash)
{
    EXPECT_EQ(read(Kind::Bin16VornValueJson, VornValue().setI32(5)), R"(str:"{\"i32_\":5}")");
}

TEST_F(ValueItemProxyTest, JsonOfTheHostBecomesTheHashOfTheNode)
{
    setNode(VornHash{{"old", 1}});
    EXPECT_EQ(write(Kind::Bin16VornValueJson, text(R"({"name":"Blå","id":9007199254740993})")), "u8:1");
    EXPECT_EQ(node(), R"({"id":9007199254740993,"name":"Blå"})");
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(ValueItemProxyTest, JsonThatIsNoObjectEmptiesTheNodeAndIsAccepted)
{
    setNode(VornHash{{"old", 1}});
    EXPECT_EQ(write(Kind::Bin16VornValueJson, text("[1,2]")), "u8:1");
    EXPECT_EQ(node(), "{}");
}

TEST_F(ValueItemProxyTest, TextThatIsNoJsonIsAnErrorAndRefusedButEmptiesTheNode)
{
    setNode(VornHash{{"old", 1}});
    EXPECT_EQ(write(Kind::Bin16VornValueJson, text("{\"a\":")), "u8:0");
    EXPECT_EQ(node(), "{}");
    ASSERT_EQ(m_log.errors().size(), 1U);
    VornJson::Error error;
    VornJson::parse("{\"a\":", &error, 0);
    EXPECT_EQ(m_log.errors().front(), "VornValue::fromJsonString failed with: "
                                          + error.toString().toStdString() + " on string: {\"a\":");
}

TEST_F(ValueItemProxyTest, JsonTooDeepToBeReadAgainElsewhereIsRefused)
{
    setNode(VornHash());
    EXPECT_EQ(write(Kind::Bin16VornValueJson, text(deepJson().toStdString())), "u8:1");
    EXPECT_EQ(node(), deepJson().toStdString());
    EXPECT_EQ(write(Kind::Bin16VornValueJson, text(deepJson(1).toStdString())), "u8:0");
    EXPECT_EQ(node(), "{}");
}

TEST_F(ValueItemProxyTest, AValueOfAnotherEncodingIsRefusedAndLeavesTheNode)
{
    HostLinkValueMessage all(MSG_SetState);
    addOneOfEachType(kValueState, "{}", &all);
    for (const Kind kind : kWritable) {
        int accepted = 0;
        for (int i = 0; i < all.size(); ++i) {
            setNode(VornHash{{"old", 1}});
            const bool own =
                all.getEnc(readsFirstValue(kind) ? 0 : i) == wireTypeEncoding(conversionRow(kind).write);
            EXPECT_EQ(write(kind, all, i), own ? "u8:1" : "u8:0") << conversionRow(kind).name << i;
            EXPECT_EQ(node() == R"({"old":1})", !own) << conversionRow(kind).name << i;
            accepted += own ? 1 : 0;
        }
        EXPECT_EQ(accepted, readsFirstValue(kind) ? 0 : 1);
    }
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(ValueItemProxyTest, AnIndexWithoutAValueIsRefused)
{
    for (const Kind kind : kWritable) {
        setNode(VornHash{{"old", 1}});
        EXPECT_EQ(write(kind, request(), 0), "u8:0");
        EXPECT_EQ(node(), R"({"old":1})");
        if (!readsFirstValue(kind)) {
            EXPECT_EQ(write(kind, byte(1), 1), "u8:0");
            EXPECT_EQ(write(kind, byte(1), -1), "u8:0");
            EXPECT_EQ(node(), R"({"old":1})");
        }
    }
}

TEST_F(ValueItemProxyTest, AcceptedMeansAskedNotTaken)
{
    setNode(VornValue().setI32(1));
    m_node->setReadOnly(true);
    EXPECT_EQ(write(Kind::Uint8VornI32, byte(2)), "u8:1");
    EXPECT_EQ(node(), R"({"i32_":1})");
    m_nodes.reset();
    EXPECT_EQ(write(Kind::Uint8VornI32, byte(2)), "u8:1");
}

TEST_F(ValueItemProxyTest, TheNodeIsWrittenLaterNeverInsideTheCall)
{
    setNode(VornValue().setI32(1));
    HostLinkValueMessage reply(MSG_SetStateResponse);
    proxy(Kind::Uint8VornI32)->setValue(kValueState, byte(2), 0, &reply);
    EXPECT_EQ(node(), R"({"i32_":1})");
    settle();
    EXPECT_EQ(node(), R"({"i32_":2})");
}

TEST_F(ValueItemProxyTest, APathWithoutNodeReadsAsZeroFalseOrEmpty)
{
    const Texts expected{"u8:0", "u8:0", "i32:0", "i64:0",      "str:\"\"", "u32:0", "nil",
                         "u8:0", "u8:0", "nil",   "u8:0",       "nil",      "u8:0",  "u8:0",
                         "u8:0", "u8:0", "u8:0",  "str:\"{}\"", "u8:0"};
    ASSERT_EQ(expected.size(), kConversions.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(read(kConversions[i].kind), expected[i]) << kConversions[i].name;
    }
}

TEST_F(ValueItemProxyTest, AnswersUnderTheStateThatIsAskedNotUnderItsOwn)
{
    ValueItemProxy* own = proxy(Kind::Uint8VornI32);
    HostLinkValueMessage reply(MSG_GetStateResponse);
    own->getValue(State(0x7055), &reply);
    own->setValue(State(0x7066), byte(1), 0, &reply);
    proxy(Kind::HostModel)->getValue(State(0x7077), &reply);
    EXPECT_EQ(HostLinkPrinter::printMessage(reply.serialize()),
              "MSG_GetStateResponse 0x7055=u8:0 0x7066=u8:1 0x7077=nil");
    EXPECT_EQ(own->states(), QList<State>{kValueState});
    settle(); // what was asked for is not the next test's
}

TEST_F(ValueItemProxyTest, AChangeOfTheNodeIsAChangeOfItsStateOnly)
{
    setNode(VornValue().setI32(1));
    QList<QList<State>> changes;
    QObject::connect(proxy(Kind::Uint8VornI32), &ValueProxy::valueChanged,
                     [&](const QList<State>& states) { changes.append(states); });
    m_node->setValue(VornValue().setI32(2));
    EXPECT_EQ(changes, QList<QList<State>>{{kValueState}});
    m_node->setValue(VornValue().setI32(2));
    EXPECT_EQ(changes.size(), 1);
}

TEST_F(ValueItemProxyTest, TracesEachReadWithItsConversionAndTheSentValue)
{
    setNode(VornHash{{"bool_", true},
                     {"i32_", 300},
                     {"i64_", qint64(-3)},
                     {"string_", "text"},
                     {"outputType", 1},
                     {"mqaState", 2},
                     {"somUpgradeStatus", 3},
                     {"region", 4},
                     {"haloBrightness", 5},
                     {"irSystemCode", 6},
                     {"inputAutoSwitch", 7},
                     {"dacFilter", 8},
                     {"inputState", 65}});
    const std::string json = node();
    const Texts expected{"Uint8VornBool: 1",
                         "Uint8VornI32: 44",
                         "Int32VornI32: 300",
                         "Int64VornI64: -3",
                         "Bin16VornString: text",
                         "Uint32VornI32: 300",
                         "",
                         "OutputType: 1",
                         "MqaState: 2",
                         "",
                         "SomUpgradeStatus: 3",
                         "",
                         "Region: 4",
                         "HaloBrightness: 5",
                         "IrSystemCode: 6",
                         "InputAutoSwitch: 7",
                         "DacFilter: 8",
                         "Bin16VornValueJson: " + json,
                         "Uint8InputState: 65"};
    for (std::size_t i = 0; i < kConversions.size(); ++i) {
        m_log.clear();
        read(kConversions[i].kind);
        Texts lines{"Enter virtual void ValueItemProxy::getValue(State, HostLinkValueMessage*)"};
        if (!expected[i].empty()) {
            lines.push_back(expected[i]);
        }
        lines.emplace_back("Leave virtual void ValueItemProxy::getValue(State, HostLinkValueMessage*)");
        EXPECT_EQ(m_log.traces(), lines);
    }
}

TEST_F(ValueItemProxyTest, TracesEachWriteWithItsStateAndConversion)
{
    write(Kind::Region, byte(1));
    const std::string signature = "virtual void ValueItemProxy::setValue(State, const HostLinkValueMessage&, "
                                  "int, HostLinkValueMessage*)";
    EXPECT_EQ(m_log.traces(),
              (Texts{"Enter " + signature + ": state: 28673 convert: 12", "Leave " + signature}));
}

} // namespace
