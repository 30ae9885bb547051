#pragma once

#include "modules/hostlink/HostLinkMessageHandler.h"
#include "platform/sdk/CMWorker.h"
#include "support/LinkFixture.h"

/// One message handler of the module on a real link, and a host at the other end. What the handler does not
/// take is dropped, but for MSG_GetState, which is answered empty.
class HandlerFixture : public LinkFixture
{
protected:
    explicit HandlerFixture(std::size_t bulkReserve = 0) : m_transport(std::move(m_moduleLayer), bulkReserve)
    {
        m_transport.addMessageReceivedObserver([this](const ByteArray& message) {
            QMetaObject::invokeMethod(
                &m_context, [this, message] { handle(message); }, Qt::QueuedConnection);
        });
        m_transport.start();
    }

    /// No thread may call a handler that goes away.
    ~HandlerFixture() override { m_transport.stop(); }

    /// Sends a message of the host; the handler has seen it on return.
    void deliver(const ByteArray& message)
    {
        const std::size_t before = m_handled;
        ASSERT_NE(m_host->send(message), 0);
        ASSERT_TRUE(waitFor([&] { return m_handled > before; }));
    }

    /// Invokes a node and waits for the end of the invocation.
    static CMVoidReply invoke(const CMPath& path, const VornHash& data = {})
    {
        const CMVoidReply reply;
        CMRoot()->invoke(path, data, reply);
        EXPECT_TRUE(waitFor([&] { return reply.isFinished(); }));
        return reply;
    }

    static VornHash valueAt(const CMPath& path) { return CMRoot()->getValue(path).toHash(); }

    CMNodesWorker m_worker{{}, "worker"};
    HostLinkTransportLayer m_transport;
    HostLinkMessageHandler* m_handler = nullptr;
    std::size_t m_handled = 0; ///< messages of the host that the handler was asked to take

private:
    void handle(const ByteArray& message)
    {
        const MessageId id = HostLinkMessage::messageId(message);
        const bool taken = m_handler != nullptr && m_handler->handleMessage(id, message);
        if (!taken && id == MSG_GetState) {
            m_transport.send(HostLinkUInt16Message(MSG_GetStateResponse).serialize());
        }
        m_transport.messageHandled();
        ++m_handled;
    }

    QObject m_context;
};
