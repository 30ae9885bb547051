#include "modules/hostlink/proxy/HostStateValueNode.h"

#include "modules/hostlink/Log.h"
#include "modules/hostlink/proxy/NodeConversion.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMWorker.h"

namespace
{

using Kind = CMValueItemProxyConvert;

/// False for another encoding or a kind that the host does not push.
bool readPushed(Kind convert, const HostLinkValueMessage& message, int index, VornValue* value)
{
    constexpr int kFirst = 0;
    bool ok = false;
    switch (convert) {
    case Kind::HostModel:
        value->setHostModel(VornKestalPrimeHostSystemInfoModel::Enum(message.getUint16(kFirst, &ok)));
        return ok;
    case Kind::Uint8VornBool:
    case Kind::Uint8VornI32:
    case Kind::Int64VornI64:
    case Kind::Bin16VornString: return convertToNode(convert, message, index, value) == Received::Value;
    default: return false;
    }
}

} // namespace

HostStateValueNode::HostStateValueNode(CMNodesWorker* worker, const CMPath& path,
                                       CMValueItemProxyConvert convert)
    : QObject(worker), m_convert(convert)
{
    HOSTLINK_TRACE_FUNCTION();
    m_node = CMValueNode::create(worker->nodes(), path, nullptr);
    m_node->setReadOnly(true);
}

void HostStateValueNode::setValue(State state, const HostLinkValueMessage& message, int index)
{
    HOSTLINK_TRACE_FUNCTION_WITH("state " << state << " convert: " << static_cast<quint32>(m_convert));
    VornValue value;
    if (readPushed(m_convert, message, index, &value)) {
        m_node->setValue(value);
    }
}
