#pragma once

#include <QObject>
#include <QSocketNotifier>

#include "platform/hostlink/FileDescriptor.h"
#include "runtime/NodeApiSession.h"

/// One client of the node API: lines in, lines out, over a connected stream socket. What a client makes
/// the module hold is bounded: a line of kMaxLine bytes, kMaxOutput bytes that the client does not read
/// (then it is cut off). Requests wait in the socket while the one before, or the output, is not through.
class NodeApiConnection : public QObject
{
    Q_OBJECT
public:
    static constexpr int kMaxLine = 1 << 20;
    static constexpr int kMaxOutput = 4 << 20;

    /// `client` must not block.
    NodeApiConnection(FileDescriptor client, QObject* parent);

signals:
    void closed();

private:
    void on_readNotifier_activated();
    void on_writeNotifier_activated();
    void on_session_line(const QByteArray& line);

    void pump();
    bool mayServe() const;
    bool takeLine(QByteArray* line);
    void sayTooLong();
    void flush();
    void close();

    FileDescriptor m_client; ///< none once it was closed
    QSocketNotifier m_readNotifier;
    QSocketNotifier m_writeNotifier;
    NodeApiSession m_session;
    QByteArray m_input;
    int m_searched = 0; ///< that much of m_input is known to hold no line feed
    QByteArray m_output;
    bool m_skipping = false; ///< inside a line that is too long
    bool m_ended = false;    ///< the client sends no more
    bool m_pumping = false;
};
