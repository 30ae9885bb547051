#include "runtime/NodeApi.h"

#include <gtest/gtest.h>
#include <log4cplus/loggingmacros.h>

#include <QTemporaryDir>
#include <list>
#include <memory>
#include <vector>

#include "platform/sdk/CMNode.h"
#include "platform/sdk/Paths.h"
#include "runtime/NodeApiConnection.h"
#include "support/DeepValue.h"
#include "support/LogCapture.h"
#include "support/NoDescriptorsLeft.h"
#include "unit/runtime/ApiClient.h"

namespace
{
constexpr int kNoSuchNode = -32001;
constexpr int kReadOnly = -32002;
constexpr int kWrongType = -32003;
constexpr int kNotInvocable = -32004;
constexpr int kRefused = -32005;

VornHash hashOf(const QVariant& json)
{
    return VornHash(json.toHash());
}

class NodeApiTest : public testing::Test
{
protected:
    NodeApiTest() : m_path(m_directory.filePath("api"))
    {
        QString error;
        EXPECT_TRUE(m_api.listen(m_path, &error)) << error.toStdString();
        m_client = std::make_unique<ApiClient>(m_path);
        EXPECT_TRUE(m_client->connected());
    }

    CMValueNode* addNode(const CMPath& path, const VornValue& value)
    {
        CMValueNode* node = CMValueNode::create(&m_nodes, path);
        node->setValue(value);
        return node;
    }

    QVariantHash ask(const QByteArray& method, const QByteArray& params = "{}")
    {
        return m_client->ask(method, params);
    }

    QVariantHash tell(const QByteArray& line)
    {
        m_client->send(line + '\n');
        return m_client->message();
    }

    /// Bytes that a local socket keeps for a reader.
    static int socketBuffer()
    {
        const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
        int bytes = 0;
        socklen_t size = sizeof bytes;
        EXPECT_EQ(::getsockopt(socket, SOL_SOCKET, SO_SNDBUF, &bytes, &size), 0);
        ::close(socket);
        return bytes;
    }

    QTemporaryDir m_directory;
    QString m_path;
    CMNodes m_nodes;
    NodeApi m_api;
    std::unique_ptr<ApiClient> m_client;
};
} // namespace

TEST_F(NodeApiTest, ListsPathsByPrefix)
{
    addNode(CMPath("/a/two"), VornValue().setI32(2));
    addNode(CMPath("/a/one"), VornValue().setI32(1));
    addNode(CMPath("/b"), VornValue().setI32(3));
    EXPECT_EQ(ask("list")["result"].toStringList(), QStringList({"/a/one", "/a/two", "/b"}));
    EXPECT_EQ(ask("list", R"({"prefix":"/a/"})")["result"].toStringList(), QStringList({"/a/one", "/a/two"}));
    EXPECT_EQ(ask("list", R"({"prefix":""})")["result"].toStringList().size(), 3);
    EXPECT_EQ(ask("list", R"({"prefix":"/none"})")["result"], QVariant(QVariantList()));
    EXPECT_EQ(errorCode(ask("list", R"({"prefix":5})")), JsonRpc::kInvalidParams);
}

TEST_F(NodeApiTest, GetsAValueInItsJsonForm)
{
    addNode(VornPlayerMutePath(), VornValue().setBool(true));
    addNode(VornPlayLogicPlayTimePath(), VornValue().setI64(9007199254740993));
    addNode(CMPath("/hash"), VornHash{{"list", QVariantList{1, "two"}}});
    m_client->send(R"({"jsonrpc":"2.0","id":7,"method":"get","params":{"path":"/player/mute"}})"
                   "\n");
    EXPECT_EQ(m_client->line(), R"({"id":7,"jsonrpc":"2.0","result":{"bool_":true}})");
    EXPECT_EQ(hashOf(ask("get", R"({"path":"VornPlayerMutePath"})")["result"]).value("bool_"), true);
    m_client->send(
        R"({"jsonrpc":"2.0","id":"x","method":"get","params":{"path":"VornPlayLogicPlayTimePath"}})"
        "\n");
    EXPECT_EQ(m_client->line(), R"({"id":"x","jsonrpc":"2.0","result":{"i64_":9007199254740993}})");
    m_client->send(R"({"jsonrpc":"2.0","id":null,"method":"get","params":{"path":"/hash"}})"
                   "\n");
    EXPECT_EQ(m_client->line(), R"({"id":null,"jsonrpc":"2.0","result":{"list":[1,"two"]}})");
}

TEST_F(NodeApiTest, ALineNeverHoldsALineFeed)
{
    addNode(CMPath("/text"), VornValue().setString("one\ntwo\r\"three\""));
    m_client->send(R"({"jsonrpc":"2.0","id":1,"method":"get","params":{"path":"/text"}})"
                   "\n");
    EXPECT_EQ(m_client->line(), R"({"id":1,"jsonrpc":"2.0","result":{"string_":"one\ntwo\r\"three\""}})");
}

TEST_F(NodeApiTest, GettingWhatIsNotThereIsAnError)
{
    CMActivateNode::create(
        &m_nodes, CMPath("/action"), &m_nodes, [](const CMSetDataRequest&) {}, Qt::QueuedConnection);
    EXPECT_EQ(errorCode(ask("get", R"({"path":"/none"})")), kNoSuchNode);
    EXPECT_EQ(errorText(ask("get", R"({"path":"/none"})")), "no node at /none");
    EXPECT_EQ(errorText(ask("get", R"({"path":"VornPlayerMutPath"})")),
              "VornPlayerMutPath is neither a path nor the name of one");
    EXPECT_EQ(errorCode(ask("get", R"({"path":"/action"})")), kWrongType);
    EXPECT_EQ(errorCode(ask("get")), JsonRpc::kInvalidParams);
    EXPECT_EQ(errorText(ask("get")), "path is missing");
    EXPECT_EQ(errorText(ask("get", R"({"path":5})")), "path must be a string");
    EXPECT_EQ(errorText(ask("get", R"({"path":"/none","value":1})")), "get takes path, not value");
}

TEST_F(NodeApiTest, SetsAScalarInTheNodesType)
{
    CMValueNode* flag = addNode(CMPath("/flag"), VornValue().setBool(false));
    CMValueNode* number = addNode(CMPath("/number"), VornValue().setI32(1));
    CMValueNode* large = addNode(CMPath("/large"), VornValue().setI64(1));
    CMValueNode* text = addNode(CMPath("/text"), VornValue().setString("a"));
    CMValueNode* input = addNode(CMPath("/input"), VornHash{{"inputState", 0}});
    EXPECT_TRUE(ask("set", R"({"path":"/flag","value":true})").contains("result"));
    EXPECT_TRUE(ask("set", R"({"path":"/number","value":-5})").contains("result"));
    EXPECT_TRUE(ask("set", R"({"path":"/large","value":9007199254740993})").contains("result"));
    EXPECT_TRUE(ask("set", R"({"path":"/text","value":"Küche"})").contains("result"));
    EXPECT_TRUE(ask("set", R"({"path":"/input","value":1})").contains("result"));
    EXPECT_TRUE(flag->value().bool_());
    EXPECT_EQ(number->value().i32(), -5);
    EXPECT_EQ(large->value().i64(), 9007199254740993);
    EXPECT_EQ(text->value().string(), "Küche");
    EXPECT_EQ(static_cast<int>(input->value().inputState()), 1);
}

TEST_F(NodeApiTest, SetsTheJsonForm)
{
    CMValueNode* number = addNode(CMPath("/number"), VornValue().setI32(1));
    CMValueNode* hash = addNode(CMPath("/hash"), VornHash{{"a", 1}});
    EXPECT_TRUE(ask("set", R"({"path":"/number","value":{"i32_":6}})").contains("result"));
    EXPECT_TRUE(ask("set", R"({"path":"/hash","value":{"b":[true,null]}})").contains("result"));
    EXPECT_EQ(number->value().i32(), 6);
    EXPECT_EQ(hash->value().toJsonString(), R"({"b":[true,null]})");
}

TEST_F(NodeApiTest, ARefusedSetChangesNothing)
{
    CMValueNode* node = addNode(CMPath("/number"), VornValue().setI32(1));
    addNode(CMPath("/hash"), VornHash{{"a", 1}});
    CMValueNode* fixed = addNode(CMPath("/fixed"), VornValue().setI32(1));
    fixed->setReadOnly(true);
    EXPECT_EQ(errorCode(ask("set", R"({"path":"/fixed","value":2})")), kReadOnly);
    EXPECT_EQ(errorCode(ask("set", R"({"path":"/number","value":"2"})")), kWrongType);
    EXPECT_EQ(errorText(ask("set", R"({"path":"/number","value":"2"})")), R"(/number takes i32, not "2")");
    EXPECT_EQ(errorCode(ask("set", R"({"path":"/number","value":2147483648})")), kWrongType);
    EXPECT_EQ(errorCode(ask("set", R"({"path":"/number","value":2.5})")), kWrongType);
    EXPECT_EQ(errorCode(ask("set", R"({"path":"/number","value":null})")), kWrongType);
    EXPECT_EQ(errorCode(ask("set", R"({"path":"/number","value":{"string_":"2"}})")), kWrongType);
    EXPECT_EQ(errorText(ask("set", R"({"path":"/hash","value":2})")), "/hash takes an object, not 2");
    EXPECT_EQ(errorCode(ask("set", R"({"path":"/none","value":2})")), kNoSuchNode);
    EXPECT_EQ(errorCode(ask("set", R"({"path":"/none","value":{"i32_":2}})")), kNoSuchNode);
    EXPECT_EQ(errorText(ask("set", R"({"path":"/number"})")), "value is missing");
    EXPECT_EQ(node->value().i32(), 1);
    EXPECT_EQ(fixed->value().i32(), 1);
}

TEST_F(NodeApiTest, InvokesANodeAndHandsItsAnswerBack)
{
    QVariantHash got;
    CMActivateNode::create(
        &m_nodes, CMPath("/action"), &m_nodes,
        [&](const CMSetDataRequest& request) {
            got = request.data().toHash();
            request.complete(QVariantHash{{"done", true}});
        },
        Qt::QueuedConnection);
    EXPECT_EQ(hashOf(ask("invoke", R"({"path":"/action","data":{"i32_":3}})")["result"]).value("done"), true);
    EXPECT_EQ(got["i32_"].toInt(), 3);
    EXPECT_TRUE(ask("invoke", R"({"path":"/action"})").contains("result"));
    EXPECT_TRUE(got.isEmpty());
}

TEST_F(NodeApiTest, ARefusedInvocationIsAnError)
{
    addNode(CMPath("/number"), VornValue().setI32(1));
    CMActivateNode::create(
        &m_nodes, CMPath("/action"), &m_nodes,
        [](const CMSetDataRequest& request) {
            request.fail({CMError::Refused, "not now"});
        },
        Qt::QueuedConnection);
    EXPECT_EQ(errorCode(ask("invoke", R"({"path":"/action"})")), kRefused);
    EXPECT_EQ(errorText(ask("invoke", R"({"path":"/action"})")), "not now");
    EXPECT_EQ(errorCode(ask("invoke", R"({"path":"/number"})")), kNotInvocable);
    EXPECT_EQ(errorCode(ask("invoke", R"({"path":"/none"})")), kNoSuchNode);
    EXPECT_EQ(errorText(ask("invoke", R"({"path":"/action","data":3})")), "data must be an object");
}

TEST_F(NodeApiTest, WatchingGivesTheValueThenEachChange)
{
    CMValueNode* node = addNode(VornPlayerMutePath(), VornValue().setBool(false));
    EXPECT_EQ(hashOf(ask("watch", R"({"path":"VornPlayerMutePath"})")["result"]).value("bool_"), false);
    node->setValue(VornValue().setBool(true));
    EXPECT_EQ(m_client->line(),
              R"({"jsonrpc":"2.0","method":"changed","params":)"
              R"({"path":"VornPlayerMutePath","previous":{"bool_":false},"value":{"bool_":true}}})");
}

TEST_F(NodeApiTest, TheDeepestValueIsReadAndWatched)
{
    const VornHash deepest(VornJson::parseValue(deepJson(), nullptr).toHash());
    CMValueNode* node = addNode(CMPath("/deep"), deepest);
    EXPECT_TRUE(hashOf(ask("watch", R"({"path":"/deep"})")["result"]).sameAs(deepest));
    node->setValue(VornValue().setI32(1));
    const QVariantHash params = m_client->message()["params"].toHash();
    EXPECT_TRUE(hashOf(params["previous"]).sameAs(deepest));
    EXPECT_EQ(hashOf(params["value"]).value("i32_"), 1);
}

TEST_F(NodeApiTest, WatchingSeesANodeComeAndGo)
{
    EXPECT_TRUE(ask("watch", R"({"path":"/later"})")["result"].isNull());
    {
        CMNodes nodes;
        CMValueNode::create(&nodes, CMPath("/later"))->setValue(VornValue().setI32(1));
        const QVariantHash came = hashOf(m_client->message()["params"]);
        EXPECT_EQ(hashOf(came["value"]).value("i32_").toInt(), 1);
        EXPECT_TRUE(hashOf(came["previous"]).isEmpty());
    }
    const QVariantHash gone = hashOf(m_client->message()["params"]);
    EXPECT_TRUE(hashOf(gone["value"]).isEmpty());
    EXPECT_EQ(hashOf(gone["previous"]).value("i32_").toInt(), 1);
}

TEST_F(NodeApiTest, WatchingTwiceNotifiesOnce)
{
    CMValueNode* node = addNode(CMPath("/n"), VornValue().setI32(1));
    ask("watch", R"({"path":"/n"})");
    ask("watch", R"({"path":"/n"})");
    node->setValue(VornValue().setI32(2));
    EXPECT_EQ(m_client->message()["method"], "changed");
    EXPECT_TRUE(ask("list").contains("result"));
}

TEST_F(NodeApiTest, AClientsWatchesAreBounded)
{
    for (int i = 0; i < NodeApiSession::kMostWatches; ++i) {
        ASSERT_TRUE(ask("watch", "{\"path\":\"/n" + QByteArray::number(i) + "\"}").contains("result"));
    }
    EXPECT_EQ(errorCode(ask("watch", R"({"path":"/one/more"})")), kRefused);
}

TEST_F(NodeApiTest, TheLengthOfAWatchedPathIsBounded)
{
    const QByteArray longest = '/' + QByteArray(4095, 'x');
    EXPECT_TRUE(ask("watch", R"({"path":")" + longest + R"("})").contains("result"));
    CMNodes nodes;
    CMValueNode::create(&nodes, CMPath(longest))->setValue(VornValue().setI32(1));
    EXPECT_EQ(hashOf(m_client->message()["params"])["path"], longest);
    const QVariantHash refused = ask("watch", R"({"path":")" + longest + R"(x"})");
    EXPECT_EQ(errorCode(refused), kRefused);
    EXPECT_EQ(errorText(refused), "a watched path has at most 4096 characters");
    EXPECT_EQ(errorCode(ask("get", R"({"path":")" + longest + R"(x"})")), kNoSuchNode)
        << "what is not kept may be longer";
}

TEST_F(NodeApiTest, RequestsOfAClientAreServedInOrder)
{
    addNode(CMPath("/n"), VornValue().setI32(1));
    m_client->send(R"({"jsonrpc":"2.0","id":1,"method":"set","params":{"path":"/n","value":2}})"
                   "\n"
                   R"({"jsonrpc":"2.0","id":2,"method":"get","params":{"path":"/n"}})"
                   "\n");
    EXPECT_EQ(m_client->message()["id"].toInt(), 1);
    EXPECT_EQ(m_client->line(), R"({"id":2,"jsonrpc":"2.0","result":{"i32_":2}})");
}

TEST_F(NodeApiTest, ARequestWithoutAnIdIsNotAnswered)
{
    CMValueNode* node = addNode(CMPath("/n"), VornValue().setI32(1));
    m_client->send(R"({"jsonrpc":"2.0","method":"set","params":{"path":"/n","value":2}})"
                   "\n"
                   R"({"jsonrpc":"2.0","method":"nothing"})"
                   "\n"
                   R"({"jsonrpc":"2.0","method":"get","params":[]})"
                   "\n");
    EXPECT_EQ(ask("list")["id"].toInt(), 1);
    EXPECT_EQ(node->value().i32(), 2);
}

TEST_F(NodeApiTest, TellsWhatIsNoRequest)
{
    EXPECT_EQ(errorCode(tell("garbage")), JsonRpc::kParseError);
    EXPECT_EQ(errorCode(tell("{\"jsonrpc\":")), JsonRpc::kParseError);
    EXPECT_EQ(errorCode(tell("{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"\xff\"}")), JsonRpc::kParseError);
    EXPECT_EQ(errorCode(tell(QByteArray(100000, '['))), JsonRpc::kParseError);
    EXPECT_EQ(errorCode(tell("5")), JsonRpc::kInvalidRequest);
    EXPECT_EQ(errorCode(tell(R"([{"jsonrpc":"2.0","id":1,"method":"list"}])")), JsonRpc::kInvalidRequest);
    EXPECT_EQ(errorCode(tell(R"({"id":1,"method":"list"})")), JsonRpc::kInvalidRequest);
    EXPECT_EQ(errorCode(tell(R"({"jsonrpc":"1.0","id":1,"method":"list"})")), JsonRpc::kInvalidRequest);
    EXPECT_EQ(errorCode(tell(R"({"jsonrpc":"2.0","id":1})")), JsonRpc::kInvalidRequest);
    EXPECT_EQ(errorCode(tell(R"({"jsonrpc":"2.0","id":[],"method":"list"})")), JsonRpc::kInvalidRequest);
    EXPECT_EQ(errorCode(tell(R"({"jsonrpc":"2.0","id":1,"method":"List"})")), JsonRpc::kMethodNotFound);
    EXPECT_EQ(errorCode(tell(R"({"jsonrpc":"2.0","id":1,"method":"get","params":["/n"]})")),
              JsonRpc::kInvalidParams);
    EXPECT_TRUE(ask("list").contains("result"));
}

TEST_F(NodeApiTest, AnErrorCarriesTheIdWhereItCanBeRead)
{
    EXPECT_EQ(tell(R"({"jsonrpc":"2.0","id":"me","method":5})")["id"], "me");
    EXPECT_TRUE(tell("garbage")["id"].isNull());
}

TEST_F(NodeApiTest, BlankLinesAndCarriageReturnsAreIgnored)
{
    m_client->send("\n  \r\n{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"list\"}\r\n");
    EXPECT_TRUE(m_client->message().contains("result"));
}

TEST_F(NodeApiTest, ARequestMayComeInPieces)
{
    for (const char c : QByteArray("{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"list\"}\n")) {
        m_client->send(QByteArray(1, c));
    }
    EXPECT_TRUE(m_client->message().contains("result"));
}

TEST_F(NodeApiTest, TheLongestLineIsServedAndALongerOneIsSkipped)
{
    const QByteArray request = R"({"jsonrpc":"2.0","id":1,"method":"list"})";
    const QByteArray longest = request + QByteArray(NodeApiConnection::kMaxLine - request.size(), ' ');
    m_client->send(longest + '\n');
    EXPECT_TRUE(m_client->message().contains("result"));
    m_client->send(longest + " \n");
    EXPECT_EQ(errorCode(m_client->message()), JsonRpc::kInvalidRequest);
    m_client->send(longest + longest + longest + '\n');
    EXPECT_EQ(errorText(m_client->message()), "a line has at most 1048576 bytes");
    EXPECT_TRUE(ask("list").contains("result"));
}

TEST_F(NodeApiTest, AClientThatEndsSendingStillGetsItsAnswers)
{
    addNode(CMPath("/n"), VornValue().setI32(1));
    m_client->send(R"({"jsonrpc":"2.0","id":1,"method":"set","params":{"path":"/n","value":2}})"
                   "\n"
                   R"({"jsonrpc":"2.0","id":2,"method":"get","params":{"path":"/n"}})"
                   "\nunfinished");
    m_client->endSending();
    EXPECT_EQ(m_client->message()["id"].toInt(), 1);
    EXPECT_EQ(m_client->message()["id"].toInt(), 2);
    EXPECT_TRUE(m_client->closedByModule());
}

TEST_F(NodeApiTest, AClientThatGoesAwayTakesItsRequestsAndWatchesAlong)
{
    CMValueNode* node = addNode(CMPath("/n"), VornValue().setI32(1));
    CMSetDataRequest pending;
    CMActivateNode::create(
        &m_nodes, CMPath("/slow"), &m_nodes, [&](const CMSetDataRequest& request) { pending = request; },
        Qt::QueuedConnection);
    ask("watch", R"({"path":"/n"})");
    m_client->send(R"({"jsonrpc":"2.0","id":1,"method":"invoke","params":{"path":"/slow"}})"
                   "\n");
    ASSERT_TRUE(waitFor([&] { return !pending.isNull(); }));
    m_client->close();

    node->setValue(VornValue().setI32(2));
    pending.complete(QVariantHash());
    node->setValue(VornValue().setI32(3));
    ApiClient other(m_path);
    EXPECT_TRUE(other.ask("list").contains("result"));
}

TEST_F(NodeApiTest, ASlowRequestHoldsUpItsOwnClientOnly)
{
    CMSetDataRequest pending;
    CMActivateNode::create(
        &m_nodes, CMPath("/slow"), &m_nodes, [&](const CMSetDataRequest& request) { pending = request; },
        Qt::QueuedConnection);
    m_client->send(R"({"jsonrpc":"2.0","id":1,"method":"invoke","params":{"path":"/slow"}})"
                   "\n"
                   R"({"jsonrpc":"2.0","id":2,"method":"list"})"
                   "\n");
    ASSERT_TRUE(waitFor([&] { return !pending.isNull(); }));
    ApiClient other(m_path);
    EXPECT_TRUE(other.ask("list").contains("result"));
    pending.complete({});
    EXPECT_EQ(m_client->message()["id"].toInt(), 1);
    EXPECT_EQ(m_client->message()["id"].toInt(), 2);
}

TEST_F(NodeApiTest, AClientThatReadsNothingIsServedNoFurther)
{
    const QByteArray request = R"({"jsonrpc":"2.0","id":1,"method":"get","params":{"path":"/n"}})"
                               "\n";
    int served = 0;
    CMValueNode* node = CMValueNode::create(&m_nodes, CMPath("/n"));
    node->setSource([&] {
        ++served;
        return VornValue().setString(QString(1000, 'x'));
    });
    int sent = 0;
    while (m_client->sendNow(request) == request.size() && sent < 100000) {
        ++sent;
        QCoreApplication::processEvents();
    }
    EXPECT_LT(sent, 100000) << "the module took every request";
    EXPECT_LE(served, (262'144 + socketBuffer()) / 1000 + 1) << "the socket holds the others";
    ApiClient other(m_path);
    EXPECT_TRUE(other.ask("list").contains("result"));
    for (int i = 0; i < sent; ++i) {
        ASSERT_TRUE(m_client->message().contains("result")) << i;
    }
}

TEST_F(NodeApiTest, AWatcherThatReadsNothingIsCutOff)
{
    CMValueNode* node = addNode(CMPath("/n"), VornValue().setString(""));
    ask("watch", R"({"path":"/n"})");
    for (int i = 0; i < 2 * NodeApiConnection::kMaxOutput / 100000; ++i) {
        node->setValue(VornValue().setString(QString::number(i) + QString(100000, 'x')));
    }
    EXPECT_TRUE(m_client->closedByModule());
    ApiClient other(m_path);
    EXPECT_TRUE(other.ask("list").contains("result"));
}

TEST_F(NodeApiTest, TooManyClientsAreTurnedAway)
{
    std::list<ApiClient> clients;
    for (int i = 1; i < NodeApi::kMostClients; ++i) {
        EXPECT_TRUE(clients.emplace_back(m_path).ask("list").contains("result"));
    }
    ApiClient extra(m_path);
    EXPECT_EQ(errorText(extra.message()), "at most 64 clients at a time");
    EXPECT_TRUE(extra.closedByModule());

    clients.pop_back();
    EXPECT_TRUE(waitFor([&] { return ApiClient(m_path).ask("list").contains("result"); }));
}

TEST_F(NodeApiTest, AClientThatFindsNoDescriptorLeftIsServedWhenThereIsOne)
{
    const LogCapture log(log4cplus::TRACE_LOG_LEVEL, "Runtime.NodeApi");
    // A sanitizer that sees a type for the first time looks at it through a pipe, which there is none of
    // below.
    LOG4CPLUS_INFO(log4cplus::Logger::getInstance("Runtime.NodeApi"), "before");
    EXPECT_TRUE(ask("list").contains("result"));
    ApiClient waiting(m_path);
    {
        const NoDescriptorsLeft none;
        EXPECT_TRUE(ask("list").contains("result")) << "the others are served";
        EXPECT_TRUE(waitFor([&] { return !log.warnings().empty(); }));
        EXPECT_EQ(log.warnings()[0], "cannot accept a client now: Too many open files");
        for (int i = 0; i < 100; ++i) {
            EXPECT_TRUE(ask("list").contains("result"));
        }
        EXPECT_LT(log.warnings().size(), 50U) << "it pauses";
    }
    EXPECT_TRUE(waiting.ask("list").contains("result"));
}
