#pragma once

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QByteArray>
#include <QString>
#include <cstring>

#include "platform/sdk/VornJson.h"
#include "support/WaitFor.h"

/// A raw client of the node API: sends bytes, and reads lines while the event loop serves them.
class ApiClient
{
public:
    explicit ApiClient(const QString& path) : m_socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, qPrintable(path));
        m_connected = ::connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    }
    ~ApiClient() { close(); }

    ApiClient(const ApiClient&) = delete;
    ApiClient& operator=(const ApiClient&) = delete;

    bool connected() const { return m_connected; }

    void close()
    {
        if (m_socket >= 0) {
            ::close(m_socket);
        }
        m_socket = -1;
    }

    /// Says that nothing more will be sent.
    void endSending() { ::shutdown(m_socket, SHUT_WR); }

    /// Sends all bytes; false when the module went away or takes no more for a while.
    bool send(QByteArray bytes)
    {
        return waitFor([&] {
                   const auto count =
                       ::send(m_socket, bytes.constData(), static_cast<std::size_t>(bytes.size()),
                              MSG_NOSIGNAL | MSG_DONTWAIT);
                   if (count > 0) {
                       bytes.remove(0, static_cast<int>(count));
                   }
                   QCoreApplication::processEvents();
                   return bytes.isEmpty() || (count < 0 && errno == EPIPE);
               })
               && bytes.isEmpty();
    }

    /// Sends what the socket takes without the module reading; the count of bytes.
    qint64 sendNow(const QByteArray& bytes)
    {
        return ::send(m_socket, bytes.constData(), static_cast<std::size_t>(bytes.size()),
                      MSG_NOSIGNAL | MSG_DONTWAIT);
    }

    /// The next line; empty when none comes, or the module closed the connection.
    QByteArray line()
    {
        const bool came = waitFor([this] {
            read();
            return m_input.contains('\n') || m_closed;
        });
        const int end = m_input.indexOf('\n');
        if (!came || end < 0) {
            return {};
        }
        const QByteArray line = m_input.left(end);
        m_input.remove(0, end + 1);
        return line;
    }

    QVariantHash message()
    {
        VornJson::Error error;
        const QVariant json = VornJson::parse(QString::fromUtf8(line()), &error);
        return json.toHash();
    }

    /// The answer to one request.
    QVariantHash ask(const QByteArray& method, const QByteArray& params = "{}")
    {
        send(R"({"jsonrpc":"2.0","id":1,"method":")" + method + R"(","params":)" + params + "}\n");
        return message();
    }

    bool closedByModule()
    {
        return waitFor([this] {
            read();
            return m_closed;
        });
    }

private:
    /// Takes all that came: nothing wakes the event loop for what is left.
    void read()
    {
        char bytes[65536];
        ssize_t count = 0;
        while ((count = ::recv(m_socket, bytes, sizeof bytes, MSG_DONTWAIT)) > 0) {
            m_input.append(bytes, static_cast<int>(count));
        }
        m_closed = m_closed || count == 0 || errno != EAGAIN;
    }

    int m_socket;
    bool m_connected = false;
    bool m_closed = false;
    QByteArray m_input;
};

inline int errorCode(const QVariantHash& answer)
{
    return answer["error"].toHash()["code"].toInt();
}

inline std::string errorText(const QVariantHash& answer)
{
    return answer["error"].toHash()["message"].toString().toStdString();
}
