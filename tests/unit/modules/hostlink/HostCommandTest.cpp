#include "modules/hostlink/proxy/HostCommandProxy.h"

#include "platform/sdk/CMSetDataRequest.h"
#include "support/WorkerFixture.h"

namespace
{

using Kind = CMValueItemProxyConvert;
using Texts = std::vector<std::string>;

/// Commands that the module gives through the worker's request nodes.
class HostCommandTest : public WorkerFixture
{
protected:
    /// Invokes a request node; the command waits for the host on return.
    static void command(const CMPath& path, const VornHash& data)
    {
        const CMVoidReply reply;
        CMRoot()->invoke(path, data, reply);
        ASSERT_TRUE(waitFor([&] { return reply.isFinished(); }));
        EXPECT_FALSE(reply.error().isError());
        EXPECT_FALSE(reply.value().isValid());
    }

    static void command(int number)
    {
        command(VornHostLinkKestalPrimeBtCommandPath(), VornValue().setI32(number));
    }

    std::string read(State state) { return ask(numbers(MSG_GetState, {state})); }
};

TEST_F(HostCommandTest, WithoutACommandTheHostReadsNil)
{
    EXPECT_EQ(read(STA_BtCommand), "MSG_GetStateResponse STA_BtCommand=nil");
    EXPECT_EQ(read(STA_BtConnectionCommand), "MSG_GetStateResponse STA_BtConnectionCommand=nil");
}

TEST_F(HostCommandTest, ACommandIsHandedOverOnce)
{
    command(5);
    EXPECT_EQ(read(STA_BtCommand), "MSG_GetStateResponse STA_BtCommand=u8:5");
    EXPECT_EQ(read(STA_BtCommand), "MSG_GetStateResponse STA_BtCommand=nil");
}

TEST_F(HostCommandTest, OnlyTheLatestCommandWaits)
{
    command(5);
    command(6);
    EXPECT_EQ(read(STA_BtCommand), "MSG_GetStateResponse STA_BtCommand=u8:6");
    EXPECT_EQ(read(STA_BtCommand), "MSG_GetStateResponse STA_BtCommand=nil");
}

TEST_F(HostCommandTest, TheLatestCommandReplacesTheOthersWholeHash)
{
    const CMPath path = VornHostLinkKestalPrimeBtConnectionCommandPath();
    command(path, {{"name", "a"}});
    command(path, {{"connect", true}});
    EXPECT_EQ(read(STA_BtConnectionCommand),
              R"(MSG_GetStateResponse STA_BtConnectionCommand=str:"{\"connect\":true}")");
}

TEST_F(HostCommandTest, AnEmptyCommandIsOne)
{
    command(VornHostLinkKestalPrimeBtConnectionCommandPath(), {});
    EXPECT_EQ(read(STA_BtConnectionCommand), R"(MSG_GetStateResponse STA_BtConnectionCommand=str:"{}")");
    command(VornHostLinkKestalPrimeBtCommandPath(), {{"name", "a"}});
    EXPECT_EQ(read(STA_BtCommand), "MSG_GetStateResponse STA_BtCommand=u8:0");
}

TEST_F(HostCommandTest, ASubscribedHostGetsTheCommandAsAChange)
{
    EXPECT_EQ(ask(numbers(MSG_Subscribe, {STA_BtCommand})), "MSG_SubscribeResponse STA_BtCommand");
    EXPECT_EQ(receive(), "MSG_StateChanged STA_BtCommand=nil");
    command(7);
    EXPECT_EQ(receive(), "MSG_StateChanged STA_BtCommand=u8:7");
    EXPECT_EQ(read(STA_BtCommand), "MSG_GetStateResponse STA_BtCommand=nil");
}

TEST_F(HostCommandTest, TheHostCannotWriteACommand)
{
    m_log.clear();
    command(5);
    HostLinkValueMessage request(MSG_SetState);
    request.addValueUint8(STA_BtCommand, 9);
    request.addValueString(STA_BtConnectionCommand, "{}");
    EXPECT_EQ(ask(request), "MSG_SetStateResponse STA_BtCommand=u8:0 STA_BtConnectionCommand=u8:0");
    EXPECT_EQ(m_log.errors(), (Texts{"Set value of state 40983 is not supported",
                                     "Set value of state 40987 is not supported"}));
    EXPECT_EQ(read(STA_BtCommand), "MSG_GetStateResponse STA_BtCommand=u8:5");
}

TEST_F(HostCommandTest, TracesStateConversionAndTheCommand)
{
    m_log.clear();
    command(5);
    read(STA_BtCommand);
    const Texts traces = m_log.traces();
    const auto has = [&](const std::string& line) {
        EXPECT_EQ(std::count(traces.begin(), traces.end(), line), 1) << line;
    };
    has("Enter void HostCommandProxy::on_requestNode_activated(const CMSetDataRequest&): state: 40983 "
        "convert: 1");
    has(R"(Enter virtual void HostCommandProxy::getValue(State, HostLinkValueMessage*): state: 40983 value: )"
        R"({"i32_":5})");
    has("Uint8VornI32: 5");
}

/// A proxy alone, of any kind.
class HostCommandKindTest : public LinkFixture
{
protected:
    std::string read(Kind kind, const VornHash& data)
    {
        CMNodesWorker worker({}, "HostCommandKindTest");
        HostCommandProxy proxy(State(0x7001), kind, nullptr);
        const CMPath path("/test/command");
        const CMActivateNode* node = proxy.createRequestNode(&worker, path);
        EXPECT_EQ(node->path().toString(), path.toString());
        const CMVoidReply reply;
        CMRoot()->invoke(path, data, reply);
        EXPECT_TRUE(waitFor([&] { return reply.isFinished(); }));
        HostLinkValueMessage first(MSG_GetStateResponse);
        proxy.getValue(State(0x7001), &first);
        HostLinkValueMessage second(MSG_GetStateResponse);
        proxy.getValue(State(0x7001), &second);
        EXPECT_EQ(HostLinkPrinter::printMessage(second.serialize()), "MSG_GetStateResponse 0x7001=nil");
        return HostLinkPrinter::printMessage(first.serialize()).substr(sizeof "MSG_GetStateResponse 0x7001");
    }
};

TEST_F(HostCommandKindTest, EachConvertedKindHasItsType)
{
    EXPECT_EQ(read(Kind::Uint8VornBool, VornValue().setBool(true)), "u8:1");
    EXPECT_EQ(read(Kind::Uint8VornI32, VornValue().setI32(300)), "u8:44");
    EXPECT_EQ(read(Kind::Int32VornI32, VornValue().setI32(-300)), "i32:-300");
    EXPECT_EQ(read(Kind::Int64VornI64, VornValue().setI64(1234567890123)), "i64:1234567890123");
    EXPECT_EQ(read(Kind::Bin16VornString, VornValue().setString("go")), R"(str:"go")");
    EXPECT_EQ(read(Kind::Bin16VornValueJson, {{"b", 1}, {"a", "x"}}), R"(str:"{\"a\":\"x\",\"b\":1}")");
}

TEST_F(HostCommandKindTest, OtherKindsAreNilAndStillHandedOver)
{
    VornValue value = VornValue().setI32(5);
    value.setRegion(VornKestalPrimeRegion::Asia).setDacFilter(VornKestalPrimeDacFilter::SlowRollOff);
    for (const int kind : {5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 18, 19}) {
        EXPECT_EQ(read(Kind(kind), value), "nil") << kind;
        HostLinkValueMessage reply(MSG_GetStateResponse);
        EXPECT_FALSE(HostCommandProxy::convertFromVorn(Kind(kind), value, State(1), &reply)) << kind;
        EXPECT_EQ(reply.size(), 0) << kind;
    }
}

using HostCommandDeathTest = HostCommandKindTest;

TEST_F(HostCommandDeathTest, ANullRequestIsFatal)
{
    HostCommandProxy proxy(State(0x7001), Kind::Uint8VornI32, nullptr);
    EXPECT_DEATH(QMetaObject::invokeMethod(&proxy, "on_requestNode_activated", Qt::DirectConnection,
                                           Q_ARG(CMSetDataRequest, CMSetDataRequest())),
                 "the request is null");
}

} // namespace
