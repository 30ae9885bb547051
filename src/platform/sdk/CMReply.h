#pragma once

#include <QObject>
#include <QPointer>
#include <QVariant>
#include <functional>
#include <memory>
#include <vector>

#include "platform/sdk/CMError.h"

/// The shared state of a reply: open until it is completed once, with a value or an error.
template <typename T>
class CMReplyData;

template <>
class CMReplyData<QVariant> : public std::enable_shared_from_this<CMReplyData<QVariant>>
{
public:
    bool isFinished() const { return m_finished; }
    const QVariant& value() const { return m_value; }
    const CMError& error() const { return m_error; }

    /// The first completion counts; later ones are ignored.
    void complete(const QVariant& value);
    void fail(const CMError& error);

    /// Runs `handler` when the reply finishes, at once if it has; with a queued connection later, from
    /// the event loop. The handler goes with its context; without a context it stays.
    void onFinished(QObject* context, std::function<void()> handler, Qt::ConnectionType type);

private:
    struct Handler {
        bool bound; ///< to its context
        QPointer<QObject> context;
        std::function<void()> run;
        Qt::ConnectionType type;
    };
    void call(const Handler& handler);
    void finish();

    bool m_finished = false;
    QVariant m_value;
    CMError m_error;
    std::vector<Handler> m_handlers;
};

/// A handle of a reply. Copies share the reply; handlers may be attached at any time.
template <typename T>
class CMReply
{
public:
    CMReply() : m_data(std::make_shared<CMReplyData<T>>()) {}
    explicit CMReply(CMReplyData<T>* data) : m_data(data) {}

    bool isFinished() const { return m_data->isFinished(); }
    const T& value() const { return m_data->value(); }
    const CMError& error() const { return m_data->error(); }

    void complete(const T& value) const { m_data->complete(value); }
    void fail(const CMError& error) const { m_data->fail(error); }

    void onResult(QObject* context, std::function<void(const T&)> handler,
                  Qt::ConnectionType type = Qt::AutoConnection) const
    {
        m_data->onFinished(
            context,
            [data = m_data.get(), handler = std::move(handler)] {
                if (!data->error().isError()) {
                    handler(data->value());
                }
            },
            type);
    }

    void onError(QObject* context, std::function<void(const CMError&)> handler,
                 Qt::ConnectionType type = Qt::AutoConnection) const
    {
        m_data->onFinished(
            context,
            [data = m_data.get(), handler = std::move(handler)] {
                if (data->error().isError()) {
                    handler(data->error());
                }
            },
            type);
    }

    /// Waits until the reply is finished, without a time limit; only the node tree's own completions
    /// run meanwhile. Returns false when nothing is left that could finish it.
    bool wait() const;

private:
    std::shared_ptr<CMReplyData<T>> m_data;
};

template <>
bool CMReply<QVariant>::wait() const;

/// A reply that carries a variant.
class CMVoidReply : public CMReply<QVariant>
{
public:
    CMVoidReply() = default;
    /// Takes ownership of `data`.
    explicit CMVoidReply(CMReplyData<QVariant>* data) : CMReply<QVariant>(data) {}
};
