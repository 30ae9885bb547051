#include "platform/sdk/CMReply.h"

#include <utility>

#include "platform/sdk/CMQueue.h"

void CMReplyData<QVariant>::complete(const QVariant& value)
{
    if (m_finished) {
        return;
    }
    m_value = value;
    finish();
}

void CMReplyData<QVariant>::fail(const CMError& error)
{
    if (m_finished) {
        return;
    }
    m_error = error;
    finish();
}

void CMReplyData<QVariant>::onFinished(QObject* context, std::function<void()> handler,
                                       Qt::ConnectionType type)
{
    m_handlers.push_back({context != nullptr, context, std::move(handler), type});
    if (m_finished) {
        finish();
    }
}

void CMReplyData<QVariant>::finish()
{
    m_finished = true;
    const auto alive = weak_from_this().lock(); // a handler may drop the last handle
    for (const Handler& handler : std::exchange(m_handlers, {})) {
        call(handler);
    }
}

void CMReplyData<QVariant>::call(const Handler& handler)
{
    if (handler.type == Qt::QueuedConnection) {
        Handler later = handler;
        later.type = Qt::DirectConnection;
        CMQueue::instance().post([data = shared_from_this(), later] { data->call(later); });
        return;
    }
    if (!handler.bound || handler.context != nullptr) {
        handler.run();
    }
}

template <>
bool CMReply<QVariant>::wait() const
{
    const auto data = m_data; // this handle may go away meanwhile
    while (!data->isFinished() && CMQueue::instance().runOne()) {
    }
    return data->isFinished();
}
