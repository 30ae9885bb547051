#include "modules/hostlink/proxy/HostCommandProxy.h"

#include "modules/hostlink/Log.h"
#include "modules/hostlink/proxy/NodeConversion.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMWorker.h"
#include "platform/sdk/VornValue.h"

HostCommandProxy::HostCommandProxy(State state, CMValueItemProxyConvert convert, QObject* parent)
    : ValueProxy(parent), m_state(state), m_convert(convert)
{
}

CMActivateNode* HostCommandProxy::createRequestNode(CMNodesWorker* worker, const CMPath& path)
{
    m_requestNode = CMActivateNode::create(worker->nodes(), path, this,
                                           &HostCommandProxy::on_requestNode_activated, Qt::QueuedConnection);
    return m_requestNode;
}

void HostCommandProxy::on_requestNode_activated(const CMSetDataRequest& request)
{
    HOSTLINK_TRACE_FUNCTION_WITH("state: " << m_state << " convert: " << static_cast<quint32>(m_convert));
    if (request.isNull()) {
        qFatal("HostCommandProxy: the request is null");
    }
    m_value = request.data().toHash();
    m_pending = true;
    emit valueChanged({m_state});
    request.complete(QVariant());
}

void HostCommandProxy::getValue(State state, HostLinkValueMessage* reply)
{
    HOSTLINK_TRACE_FUNCTION_WITH("state: " << m_state << " value: " << m_value.toJsonString().toStdString());
    if (!m_pending) {
        reply->addValueNil(state);
        return;
    }
    if (!convertFromVorn(m_convert, m_value, m_state, reply)) {
        reply->addValueNil(state);
    }
    m_pending = false;
    m_value = {};
}

void HostCommandProxy::setValue(State state, const HostLinkValueMessage& /*request*/, int /*index*/,
                                HostLinkValueMessage* reply)
{
    LOG4CPLUS_ERROR(hostLinkLogger, "Set value of state " << state << " is not supported");
    reply->addValueUint8(state, 0);
}

bool HostCommandProxy::convertFromVorn(CMValueItemProxyConvert convert, const VornValue& value, State state,
                                       HostLinkValueMessage* reply)
{
    switch (convert) {
    case CMValueItemProxyConvert::Uint8VornBool:
    case CMValueItemProxyConvert::Uint8VornI32:
    case CMValueItemProxyConvert::Int32VornI32:
    case CMValueItemProxyConvert::Int64VornI64:
    case CMValueItemProxyConvert::Bin16VornString:
    case CMValueItemProxyConvert::Bin16VornValueJson: return convertFromNode(convert, value, state, reply);
    default: return false;
    }
}
