#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QVariantHash>
#include <chrono>
#include <optional>

#include "platform/hostlink/FileDescriptor.h"
#include "runtime/JsonRpc.h"

/// A blocking client of the node API.
class NodeClient
{
public:
    /// An answer: an error with a code, or a result.
    struct Answer {
        JsonRpc::Error error;
        QVariant result;
    };

    /// Waiting ends when the descriptor `interrupt` becomes readable, and when nobody reads any more what is
    /// written to the descriptor `output`, a pipe, a socket or a terminal; -1 for none.
    explicit NodeClient(int interrupt = -1, int output = -1) : m_interrupt(interrupt), m_output(output) {}

    /// Without success, which a module that takes nobody in for `timeout` is too, *error says why.
    bool connect(const QString& socket, std::chrono::milliseconds timeout, QString* error);

    /// Nothing, and *error, when no answer came within `timeout`, the module went away or waiting was ended.
    std::optional<Answer> call(const QString& method, const QVariantHash& params,
                               std::chrono::milliseconds timeout, QString* error);

    /// Waits for the next notification and gives its parameters. Nothing, and *error, when the module
    /// went away or waiting was ended.
    std::optional<QVariantHash> nextNotification(QString* error);

    /// True once waiting was interrupted.
    bool interrupted() const { return m_interrupted; }

    /// True once waiting was ended because nobody reads the output.
    bool outputGone() const { return m_outputGone; }

private:
    using Deadline = std::optional<std::chrono::steady_clock::time_point>;

    bool send(const QByteArray& line, const Deadline& deadline, QString* error);
    std::optional<QVariantHash> nextMessage(const Deadline& deadline, QString* error);
    bool receive(const Deadline& deadline, QString* error);
    bool wait(int descriptor, short events, const Deadline& deadline, QString* error);

    int m_interrupt;
    int m_output;
    FileDescriptor m_socket;
    int m_lastId = 0;
    bool m_interrupted = false;
    bool m_outputGone = false;
    QByteArray m_input;
    QList<QVariantHash> m_notifications;
};
