#include "platform/sdk/CMSetDataRequest.h"

struct CMSetDataRequest::Shared {
    QVariant data;
    CMReply<QVariant> reply;

    ~Shared() { reply.complete(QVariant()); }
};

CMSetDataRequest::CMSetDataRequest(QVariant data, CMReply<QVariant> reply)
    : m_shared(new Shared{std::move(data), std::move(reply)})
{
}

QVariant CMSetDataRequest::data() const
{
    return isNull() ? QVariant() : m_shared->data;
}

void CMSetDataRequest::complete(const QVariant& value) const
{
    if (!isNull()) {
        m_shared->reply.complete(value);
    }
}

void CMSetDataRequest::fail(const CMError& error) const
{
    if (!isNull()) {
        m_shared->reply.fail(error);
    }
}
