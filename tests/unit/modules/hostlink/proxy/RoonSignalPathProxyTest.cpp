#include "modules/hostlink/proxy/RoonSignalPathProxy.h"

#include "support/DeepValue.h"
#include "support/ProxyFixture.h"

namespace
{
const QString kBase = QStringLiteral("/roon/signalPath/customElement");

class RoonSignalPathProxyTest : public ProxyFixture
{
protected:
    RoonSignalPathProxyTest()
    {
        m_nodes.ownSubtree(CMPath(kBase), [this](const CMPath& path) {
            m_created.push_back(path.toString().toStdString());
            CMValueNode::create(&m_nodes, path);
        });
    }

    std::string send(const std::string& text)
    {
        HostLinkValueMessage request(MSG_SetState);
        request.addValueString(STA_RoonSignalPath, text);
        return write(m_proxy, request);
    }

    static std::string answer(int byte)
    {
        return "MSG_SetStateResponse STA_RoonSignalPath=u8:" + std::to_string(byte);
    }

    static std::string valueAt(const QString& path)
    {
        return VornHash(CMRoot()->getValue(CMPath(kBase + path)).toHash()).toJsonString().toStdString();
    }

    /// Waits until all writes so far are done.
    static void settle()
    {
        const CMVoidReply reply;
        CMRoot()->invoke(CMPath("/nobody"), {}, reply);
        EXPECT_TRUE(waitFor([&] { return reply.isFinished(); }));
    }

    RoonSignalPathProxy m_proxy{nullptr};
    Texts m_created;
};
} // namespace

TEST_F(RoonSignalPathProxyTest, OwnsItsStateAndCannotBeRead)
{
    EXPECT_EQ(m_proxy.states(), QList<State>{STA_RoonSignalPath});
    EXPECT_EQ(read(m_proxy, {55}), "MSG_GetStateResponse STA_RoonSignalPath=nil");
}

TEST_F(RoonSignalPathProxyTest, EachElementGoesToItsNodeInOrder)
{
    EXPECT_EQ(send(R"([{"id":"y","value":5,"more":[1]},{"value":{"a":"b"},"id":"x"}])"), answer(1));
    EXPECT_TRUE(m_created.empty()) << "never inside the call";
    settle();
    EXPECT_EQ(m_created, (Texts{"/roon/signalPath/customElement/y", "/roon/signalPath/customElement/x"}));
    EXPECT_EQ(valueAt("/y"), R"({"variant":5})");
    EXPECT_EQ(valueAt("/x"), R"({"variant":{"a":"b"}})");
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(RoonSignalPathProxyTest, AnElementCanChangeItsValueAndTheTypeOfIt)
{
    for (const std::string value : {"1", "\"text\"", "null", "true", "[1,\"2\"]", "1.5"}) {
        EXPECT_EQ(send(R"([{"id":"x","value":)" + value + "}]"), answer(1));
        settle();
        EXPECT_EQ(valueAt("/x"), "{\"variant\":" + value + "}");
    }
    EXPECT_EQ(m_created, Texts{"/roon/signalPath/customElement/x"});
}

TEST_F(RoonSignalPathProxyTest, AnEmptyListIsTakenAndWritesNothing)
{
    EXPECT_EQ(send("[]"), answer(1));
    EXPECT_EQ(send(R"({"id":"x","value":1})"), answer(1)) << "JSON, but no list";
    EXPECT_EQ(send("5"), answer(1));
    settle();
    EXPECT_TRUE(m_created.empty());
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(RoonSignalPathProxyTest, AnythingButAStringIsRefused)
{
    HostLinkValueMessage request(MSG_SetState);
    request.addValueUint8(STA_RoonSignalPath, 1);
    request.addValueBin16(STA_RoonSignalPath, {'[', ']'});
    EXPECT_EQ(write(m_proxy, request),
              "MSG_SetStateResponse STA_RoonSignalPath=u8:0 STA_RoonSignalPath=u8:0");
    EXPECT_EQ(m_log.errors(), (Texts{"Could not get the string from incomming msg!",
                                     "Could not get the string from incomming msg!"}));
}

TEST_F(RoonSignalPathProxyTest, TextThatIsNoJsonIsRefusedAndWritesNothing)
{
    EXPECT_EQ(send(R"([{"id":"x","value":1},)"), answer(0));
    ASSERT_EQ(m_log.errors().size(), 1U);
    EXPECT_EQ(m_log.errors()[0].find("Failed to parse roon signal path json: line 1 column "), 0U)
        << m_log.errors()[0];
    EXPECT_EQ(send(""), answer(0));
    EXPECT_EQ(send('[' + deepJson().toStdString() + ']'), answer(0));
    settle();
    EXPECT_TRUE(m_created.empty());
}

TEST_F(RoonSignalPathProxyTest, TheTextEndsAtItsFirstZeroByte)
{
    EXPECT_EQ(send(std::string("[{\"id\":\"x\",\"value\":\"\u00e4\"}]\0garbage", 34)), answer(1));
    settle();
    EXPECT_EQ(valueAt("/x"), "{\"variant\":\"\u00e4\"}");
}

TEST_F(RoonSignalPathProxyTest, AnElementWithoutAValueWritesNoValue)
{
    EXPECT_EQ(send(R"([{"id":"x"}])"), answer(1));
    settle();
    EXPECT_EQ(valueAt("/x"), R"({"variant":null})");
}

TEST_F(RoonSignalPathProxyTest, ANodeThatRefusesIsAnErrorLaterAndDoesNotKeepTheOthers)
{
    CMValueNode* locked = createNode(CMPath(kBase + "/locked"), VornValue().setVariant(1));
    locked->setReadOnly(true);
    EXPECT_EQ(send(R"([{"id":"locked","value":2},{"id":"x","value":3}])"), answer(1));
    EXPECT_TRUE(m_log.errors().empty());
    settle();
    const CMReply<QVariant> refused;
    CMRoot()->setValue(locked->path(), VornValue().setVariant(2), refused);
    EXPECT_TRUE(refused.wait());
    EXPECT_EQ(m_log.errors(), Texts{"RoonSignalPathProxy could not set the value on path: "
                                    "/roon/signalPath/customElement/locked, with error msg: "
                                    + refused.error().Message().toStdString()});
    EXPECT_EQ(valueAt("/locked"), R"({"variant":1})");
    EXPECT_EQ(valueAt("/x"), R"({"variant":3})");
}

TEST_F(RoonSignalPathProxyTest, WhatIsNoElementGoesToTheBaseWhichIsNoNode)
{
    EXPECT_EQ(send(R"([5,{"value":1},{"id":7,"value":1}])"), answer(1));
    settle();
    ASSERT_EQ(m_log.errors().size(), 3U);
    for (const std::string& error : m_log.errors()) {
        EXPECT_EQ(error.find("RoonSignalPathProxy could not set the value on path: "
                             "/roon/signalPath/customElement, with error msg: "),
                  0U)
            << error;
    }
    EXPECT_TRUE(m_created.empty());
}

TEST_F(RoonSignalPathProxyTest, ARefusalBehindTheEndOfTheProxyIsNotHeard)
{
    {
        RoonSignalPathProxy proxy(nullptr);
        HostLinkValueMessage request(MSG_SetState);
        request.addValueString(STA_RoonSignalPath, R"([{"value":1}])");
        EXPECT_EQ(write(proxy, request), answer(1));
    }
    settle();
    EXPECT_TRUE(m_log.errors().empty());
}
