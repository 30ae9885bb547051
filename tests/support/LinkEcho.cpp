// The far end of a link, in a process of its own: sends each message back, within its class in their order.
// The message kCountSessions is answered with the number of sessions in a message of its own.
//
//   link_echo DEVICE FAULTS

#include <signal.h>
#include <sys/prctl.h>

#include <condition_variable>
#include <deque>
#include <mutex>

#include "platform/hostlink/HostLinkMessage.h"
#include "platform/hostlink/HostLinkTransportLayer.h"
#include "support/LinkEcho.h"
#include "support/LinkMessages.h"

namespace
{

class Echo
{
public:
    explicit Echo(const HostLinkPhysicalLayer::Properties& line)
        : m_transport(HostLinkPhysicalLayer::create("unix", line))
    {
        m_transport.addMessageReceivedObserver([this](const ByteArray& message) {
            const std::lock_guard lock(m_mutex);
            m_messages.push_back(message);
            m_changed.notify_all();
        });
        m_transport.addBulkDrainedObserver([this] {
            const std::lock_guard lock(m_mutex);
            m_drained = true;
            m_changed.notify_all();
        });
        m_transport.start();
    }

    void run()
    {
        for (;;) {
            const ByteArray message = next();
            const bool asked = message == kCountSessions;
            send(asked ? ::message(MSG_ErrorResponse, std::uint32_t(m_transport.counters().sessions))
                       : message);
            m_transport.messageHandled();
        }
    }

private:
    ByteArray next()
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return !m_messages.empty(); });
        ByteArray message = std::move(m_messages.front());
        m_messages.pop_front();
        return message;
    }

    void send(const ByteArray& message)
    {
        const MessageClass ofMessage = messageClass(HostLinkMessage::messageId(message));
        while (ofMessage == MessageClass::Bulk && !m_transport.writable(ofMessage, message.size())) {
            std::unique_lock lock(m_mutex);
            m_changed.wait(lock, [this] { return m_drained; });
            m_drained = false;
        }
        m_transport.send(message);
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<ByteArray> m_messages;
    bool m_drained = false;
    HostLinkTransportLayer m_transport;
};

} // namespace

int main(int argc, char** argv)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (argc != 3) {
        return 2;
    }
    HostLinkPhysicalLayer::Properties line;
    line.setString(HostLinkPhysicalLayer::Device, argv[1]);
    line.setString(HostLinkPhysicalLayer::Faults, argv[2]);
    line.setInt(HostLinkPhysicalLayer::Listen, 1);
    Echo(line).run();
}
