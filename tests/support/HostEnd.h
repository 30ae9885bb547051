#pragma once

#include <QObject>
#include <deque>
#include <memory>
#include <optional>

#include "platform/hostlink/HostLinkMessage.h"
#include "platform/hostlink/HostLinkTransportLayer.h"
#include "support/WaitFor.h"

/// The host's end of a link: sends raw messages and keeps what comes back.
class HostEnd
{
public:
    enum class Handling { AtOnce, WhenTold };

    /// Handles each message as it comes, or when transport() is told so.
    explicit HostEnd(std::unique_ptr<HostLinkPhysicalLayer> layer, Handling handling = Handling::AtOnce)
        : m_transport(std::move(layer))
    {
        m_transport.addMessageReceivedObserver([this, handling](const ByteArray& message) {
            QMetaObject::invokeMethod(
                &m_context, [this, message] { m_received.push_back(message); }, Qt::QueuedConnection);
            if (handling == Handling::AtOnce) {
                m_transport.messageHandled();
            }
        });
        m_transport.start();
    }

    ~HostEnd() { m_transport.stop(); }

    /// Non-zero when the link took the message.
    int send(const ByteArray& message) { return m_transport.send(message); }
    int send(const HostLinkMessageSerializable& message) { return send(message.serialize()); }

    bool hasReceived() const { return !m_received.empty(); }

    /// The next message of the module, in order; empty when none came in time.
    ByteArray receive()
    {
        if (!waitFor([this] { return hasReceived(); })) {
            return {};
        }
        ByteArray message = std::move(m_received.front());
        m_received.pop_front();
        return message;
    }

    HostLinkTransportLayer& transport() { return m_transport; }

private:
    QObject m_context;
    std::deque<ByteArray> m_received;
    HostLinkTransportLayer m_transport;
};
