#include "runtime/NodeApiConnection.h"

#include <log4cplus/loggingmacros.h>
#include <sys/socket.h>

#include <cerrno>

#include "runtime/JsonRpc.h"

static log4cplus::Logger connectionLogger = log4cplus::Logger::getInstance("Runtime.NodeApi");

namespace
{
constexpr int kReadSize = 1 << 16;
constexpr int kHighWater = 1 << 18; ///< unread output above which no further request is served

bool isBlank(const QByteArray& line)
{
    return line.trimmed().isEmpty();
}
} // namespace

NodeApiConnection::NodeApiConnection(FileDescriptor client, QObject* parent)
    : QObject(parent), m_client(std::move(client)), m_readNotifier(m_client.get(), QSocketNotifier::Read),
      m_writeNotifier(m_client.get(), QSocketNotifier::Write)
{
    m_writeNotifier.setEnabled(false);
    connect(&m_readNotifier, &QSocketNotifier::activated, this,
            &NodeApiConnection::on_readNotifier_activated);
    connect(&m_writeNotifier, &QSocketNotifier::activated, this,
            &NodeApiConnection::on_writeNotifier_activated);
    connect(&m_session, &NodeApiSession::line, this, &NodeApiConnection::on_session_line);
    connect(&m_session, &NodeApiSession::finished, this, &NodeApiConnection::pump);
}

void NodeApiConnection::on_readNotifier_activated()
{
    const int before = m_input.size();
    m_input.resize(before + kReadSize);
    const ssize_t count = recv(m_client.get(), m_input.data() + before, kReadSize, 0);
    m_input.resize(before + static_cast<int>(std::max<ssize_t>(count, 0)));
    if (count < 0 && errno != EAGAIN && errno != EINTR) {
        return close();
    }
    m_ended = m_ended || count == 0;
    pump();
}

void NodeApiConnection::on_writeNotifier_activated()
{
    flush();
    pump();
}

void NodeApiConnection::on_session_line(const QByteArray& line)
{
    if (!m_client) {
        return;
    }
    if (m_output.size() + line.size() > kMaxOutput) {
        LOG4CPLUS_WARN(connectionLogger,
                       "a client does not read its " << m_output.size() << " bytes; cut off");
        return close();
    }
    m_output += line;
    flush();
}

void NodeApiConnection::pump()
{
    if (m_pumping || !m_client) {
        return;
    }
    m_pumping = true;
    QByteArray line;
    while (mayServe() && takeLine(&line)) {
        m_session.handle(line);
    }
    m_pumping = false;
    if (!m_client) {
        return;
    }
    if (m_ended && mayServe() && m_output.isEmpty()) {
        return close();
    }
    m_readNotifier.setEnabled(!m_ended && mayServe());
}

bool NodeApiConnection::mayServe() const
{
    return m_client && !m_session.busy() && m_output.size() < kHighWater;
}

/// The next line that is not blank, without its line feed. An unfinished line at the end is no line.
bool NodeApiConnection::takeLine(QByteArray* line)
{
    for (;;) {
        const int end = m_input.indexOf('\n', m_searched);
        const int length = end < 0 ? m_input.size() : end;
        if (length > kMaxLine) {
            sayTooLong();
        }
        if (end < 0) {
            if (m_skipping) {
                m_input.clear();
            }
            m_searched = m_input.size();
            return false;
        }
        *line = m_input.left(end);
        m_input.remove(0, end + 1);
        m_searched = 0;
        const bool skipped = m_skipping;
        m_skipping = false;
        if (!skipped && !isBlank(*line)) {
            return true;
        }
    }
}

/// Once for each line that is too long; the rest of it is skipped.
void NodeApiConnection::sayTooLong()
{
    if (m_skipping) {
        return;
    }
    m_skipping = true;
    on_session_line(
        JsonRpc::error({}, {JsonRpc::kInvalidRequest, QString("a line has at most %1 bytes").arg(kMaxLine)}));
}

void NodeApiConnection::flush()
{
    while (!m_output.isEmpty()) {
        const ssize_t count = ::send(m_client.get(), m_output.constData(),
                                     static_cast<std::size_t>(m_output.size()), MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0 && errno != EAGAIN) {
            return close();
        }
        if (count < 0) {
            break;
        }
        m_output.remove(0, static_cast<int>(count));
    }
    m_writeNotifier.setEnabled(!m_output.isEmpty());
}

void NodeApiConnection::close()
{
    if (!m_client) {
        return;
    }
    m_readNotifier.setEnabled(false);
    m_writeNotifier.setEnabled(false);
    m_client.reset();
    emit closed();
}
