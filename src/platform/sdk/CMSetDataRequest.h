#pragma once

#include <QMetaType>
#include <QVariant>
#include <memory>

#include "platform/sdk/CMReply.h"

/// An invocation of an activate node. Copies share the request; when the last one goes away without an
/// answer, the request completes with an empty value.
class CMSetDataRequest
{
public:
    CMSetDataRequest() = default; ///< a null request
    CMSetDataRequest(QVariant data, CMReply<QVariant> reply);

    bool isNull() const { return m_shared == nullptr; }
    QVariant data() const; ///< invalid for a null request

    void complete(const QVariant& value) const;
    void fail(const CMError& error) const;

private:
    struct Shared;
    std::shared_ptr<Shared> m_shared;
};

Q_DECLARE_METATYPE(CMSetDataRequest)
