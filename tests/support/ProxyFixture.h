#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "modules/hostlink/proxy/ValueProxy.h"
#include "platform/hostlink/HostLinkPrinter.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMSetDataRequest.h"
#include "platform/sdk/CMWorker.h"
#include "platform/sdk/MetaTypes.h"
#include "platform/sdk/Paths.h"
#include "support/LogCapture.h"
#include "support/WaitFor.h"

/// Keeps the requests that reach an activate node, and answers each with an empty value.
class Requests : public QObject
{
public:
    Requests(CMNodes* nodes, const CMPath& path)
    {
        CMActivateNode::create(nodes, path, this, &Requests::take);
    }

    /// Their data as JSON, in order.
    std::vector<std::string> taken;

private:
    void take(const CMSetDataRequest& request)
    {
        taken.push_back(VornHash(request.data().toHash()).toJsonString().toStdString());
        request.complete({});
    }
};

/// One proxy on the real node tree, without a worker. Expectations compare answers as the printer shows them,
/// and what the proxy tells as lists of state numbers.
class ProxyFixture : public ::testing::Test
{
protected:
    using Texts = std::vector<std::string>;
    using States = std::vector<QList<State>>;

    ProxyFixture() { registerSdkMetaTypes(); }

    /// What is still asked for reaches this test's nodes, not those of the next.
    void TearDown() override { settle(); }

    CMValueNode* createNode(const CMPath& path, const VornValue& value)
    {
        CMValueNode* node = CMValueNode::create(&m_nodes, path);
        node->setValue(value);
        return node;
    }

    /// Takes away every node that can be invoked.
    void removeActivateNodes() { qDeleteAll(m_nodes.findChildren<CMActivateNode*>()); }

    /// A node that can be invoked, and refuses each time.
    void createRefusal(const CMPath& path)
    {
        CMActivateNode::create(
            &m_nodes, path, &m_context,
            [](const CMSetDataRequest& request) {
                request.fail({CMError::NotInvocable, "busy"});
            },
            Qt::DirectConnection);
    }

    /// Waits until all writes so far are done.
    static void settle()
    {
        const CMVoidReply reply;
        CMRoot()->invoke(CMPath("/nobody"), {}, reply);
        EXPECT_TRUE(waitFor([&] { return reply.isFinished(); }));
    }

    /// Collects in m_told what the proxy tells from now on.
    void listenTo(ValueProxy& proxy)
    {
        QObject::connect(&proxy, &ValueProxy::valueChanged, &m_context,
                         [this](const QList<State>& states) { m_told.push_back(states); });
    }

    /// What was told since the last call.
    States told() { return std::exchange(m_told, {}); }

    static std::string read(ValueProxy& proxy, std::initializer_list<int> states)
    {
        HostLinkValueMessage reply(MSG_GetStateResponse);
        for (const int state : states) {
            proxy.getValue(State(state), &reply);
        }
        return HostLinkPrinter::printMessage(reply.serialize());
    }

    /// The answers to each value of a request.
    static std::string write(ValueProxy& proxy, const HostLinkValueMessage& request)
    {
        HostLinkValueMessage reply(MSG_SetStateResponse);
        for (int i = 0; i < request.size(); ++i) {
            proxy.setValue(State(request.getTag(i)), request, i, &reply);
        }
        return HostLinkPrinter::printMessage(reply.serialize());
    }

    CMNodes m_nodes;
    LogCapture m_log;

private:
    QObject m_context;
    States m_told;
};
