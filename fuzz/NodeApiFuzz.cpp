// Any bytes of a client of the node API, in portions, over a socket, to the nodes of all services.

#include <sys/socket.h>
#include <unistd.h>

#include "FuzzInput.h"
#include "HandlerFuzz.h"
#include "ServiceNodes.h"
#include "platform/sdk/VornJson.h"
#include "runtime/JsonRpc.h"
#include "runtime/NodeApiConnection.h"

namespace
{

/// How many answers the client has to get.
int answersTo(const QByteArray& input)
{
    int answers = 0;
    QList<QByteArray> lines = input.split('\n');
    lines.removeLast(); // is not finished
    for (const QByteArray& line : qAsConst(lines)) {
        JsonRpc::Error error;
        QVariant id;
        const std::optional<JsonRpc::Request> request = JsonRpc::parseRequest(line, &error, &id);
        const bool isBlank = line.trimmed().isEmpty();
        answers += !isBlank && (!request || request->wantsAnswer) ? 1 : 0;
    }
    return answers;
}

/// Each line is an answer or a notification; returns whether it is an answer.
bool isAnswer(const QByteArray& line)
{
    VornJson::Error error;
    const QVariant json = VornJson::parse(QString::fromUtf8(line), &error);
    require(error.isEmpty() && json.userType() == QMetaType::QVariantHash);
    const QVariantHash message = json.toHash();
    require(message["jsonrpc"] == QVariant("2.0"));
    if (message.contains("method")) {
        require(message["method"] == QVariant("changed") && message.size() == 3);
        return false;
    }
    require(message.contains("id") && message.size() == 3);
    require(message.contains("result") != message.contains("error"));
    return true;
}

class Client
{
public:
    Client()
    {
        int ends[2];
        require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0);
        m_socket = ends[0];
        m_connection = new NodeApiConnection(FileDescriptor(ends[1]), nullptr);
        QObject::connect(m_connection, &NodeApiConnection::closed, m_connection,
                         [this] { m_isClosed = true; });
    }
    ~Client()
    {
        delete m_connection;
        ::close(m_socket);
    }

    void say(const QByteArray& bytes)
    {
        require(::send(m_socket, bytes.constData(), std::size_t(bytes.size()), MSG_NOSIGNAL) == bytes.size());
        listen();
    }

    void sayNoMore()
    {
        ::shutdown(m_socket, SHUT_WR);
        listen();
        require(m_isClosed);
    }

    int answers() const
    {
        require(m_heard.isEmpty() || m_heard.endsWith('\n'));
        int answers = 0;
        QList<QByteArray> lines = m_heard.split('\n');
        lines.removeLast();
        for (const QByteArray& line : qAsConst(lines)) {
            answers += isAnswer(line) ? 1 : 0;
        }
        return answers;
    }

private:
    void listen()
    {
        for (int size = -1; m_heard.size() > size;) {
            size = m_heard.size();
            HandlerFuzz::runEvents();
            char buffer[1 << 16];
            for (ssize_t count; (count = ::recv(m_socket, buffer, sizeof buffer, 0)) > 0;) {
                m_heard.append(buffer, static_cast<int>(count));
            }
        }
    }

    int m_socket;
    NodeApiConnection* m_connection;
    QByteArray m_heard;
    bool m_isClosed = false;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    HandlerFuzz::initialize(argc, argv);
    registerSdkMetaTypes();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray input(reinterpret_cast<const char*>(data), static_cast<int>(size));
    ServiceNodes nodes;
    nodes.createOthers();
    HandlerFuzz::runEvents();
    Client client;
    const int portion = 16 + input.size() % 300;
    for (int at = 0; at < input.size(); at += portion) {
        client.say(input.mid(at, portion));
    }
    SimulatedEvents::instance().pass(std::chrono::seconds(6)); // time enough for every service to stir
    client.sayNoMore();
    require(client.answers() == answersTo(input));
    return 0;
}
