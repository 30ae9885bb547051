#include "modules/hostlink/proxy/HostStateValueNode.h"

#include <string>

#include "modules/hostlink/Log.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMWorker.h"

namespace
{

using Kind = CMValueItemProxyConvert;

/// Texts of the host end at their first zero byte.
QString textOf(const std::string& bytes)
{
    return QString::fromUtf8(bytes.c_str());
}

/// False, and no value, for another encoding or a kind that the host does not push.
bool readPushed(Kind convert, const HostLinkValueMessage& message, int index, VornValue* value)
{
    constexpr int kFirst = 0;
    bool ok = false;
    switch (convert) {
    case Kind::Uint8VornBool: value->setBool(message.getUint8(index, &ok) != 0); break;
    case Kind::Uint8VornI32: value->setI32(message.getUint8(index, &ok)); break;
    case Kind::Int64VornI64: value->setI64(message.getInt64(index, &ok)); break;
    case Kind::Bin16VornString: value->setString(textOf(message.getString(index, &ok))); break;
    case Kind::HostModel:
        value->setHostModel(VornKestalPrimeHostSystemInfoModel::Enum(message.getUint16(kFirst, &ok)));
        break;
    default: break;
    }
    return ok;
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
