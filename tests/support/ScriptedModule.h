#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/hostlink/HostLinkPort.h"
#include "platform/hostlink/HostLinkUInt16Message.h"
#include "platform/hostlink/HostLinkValueMessage.h"

inline HostLinkPhysicalLayer::Properties unixLine(const std::string& path, bool listens)
{
    HostLinkPhysicalLayer::Properties properties;
    properties.setString(HostLinkPhysicalLayer::Device, path);
    properties.setInt(HostLinkPhysicalLayer::Listen, listens ? 1 : 0);
    return properties;
}

/// The module's end of a link over a Unix socket, stepped by a test. It knows no states: it answers
/// requests for them with Nil and everything else as `onMessage` says.
class ScriptedModule
{
public:
    explicit ScriptedModule(std::string path) : m_path(std::move(path)) {}

    /// Starts, or starts anew as after a crash.
    void start(HostLinkTime now)
    {
        kill();
        m_port.emplace(HostLinkPhysicalLayer::create("unix", unixLine(m_path, true)));
        m_port->open(now);
    }

    void kill() { m_port.reset(); }

    void goodbye(HostLinkTime now)
    {
        m_port->core().goodbye(now);
        m_port->step(now);
    }

    bool send(const ByteArray& message, HostLinkTime now) { return m_port->core().send(message, now); }

    void step(HostLinkTime now)
    {
        m_now = now;
        if (!m_port) {
            return;
        }
        m_port->step(now);
        ByteArray message;
        while (m_port && m_port->core().take(message)) {
            m_port->core().handled();
            received.push_back(message);
            onMessage(message);
        }
        if (m_port) {
            m_port->step(now);
        }
    }

    void answer(const ByteArray& message)
    {
        if (HostLinkMessage::messageId(message) != MSG_GetState) {
            return;
        }
        const HostLinkUInt16Message request(message);
        HostLinkValueMessage reply(MSG_GetStateResponse);
        for (int i = 0; i < request.size(); ++i) {
            reply.addValueNil(request.get(i));
        }
        send(reply.serialize(), m_now);
    }

    std::vector<ByteArray> received;
    std::function<void(const ByteArray&)> onMessage = [this](const ByteArray& message) { answer(message); };

    HostLinkPort& port() { return *m_port; }
    HostLinkTime now() const { return m_now; }

private:
    const std::string m_path;
    HostLinkTime m_now{};
    std::optional<HostLinkPort> m_port;
};
