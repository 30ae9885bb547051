#include "modules/hostlink/proxy/ValueItemProxy.h"

#include "modules/hostlink/CheckedConnect.h"
#include "modules/hostlink/Log.h"
#include "modules/hostlink/proxy/NodeConversion.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMItem.h"
#include "platform/sdk/CMWorker.h"

ValueItemProxy::ValueItemProxy(State state, const CMPath& path, CMValueItemProxyConvert convert,
                               QObject* parent)
    : ValueProxy(parent), m_state(state), m_convert(convert), m_item(new CMValueItem(this, path))
{
    connectChecked(m_item, &CMValueItem::changed, this, &ValueItemProxy::on_cmValueItem_changed);
}

void ValueItemProxy::setValue(State state, const HostLinkValueMessage& request, int index,
                              HostLinkValueMessage* reply)
{
    HOSTLINK_TRACE_FUNCTION_WITH("state: " << state << " convert: " << static_cast<quint32>(m_convert));
    VornValue value;
    const Received received = convertToNode(m_convert, request, index, &value);
    if (received != Received::Nothing) {
        CMRoot()->setValue(m_item->path(), value, CMVoidReply(new CMReplyData<QVariant>));
    }
    reply->addValueUint8(state, received == Received::Value ? 1 : 0);
}

void ValueItemProxy::getValue(State state, HostLinkValueMessage* reply)
{
    HOSTLINK_TRACE_FUNCTION();
    const VornValue value = m_item->value();
    if (!convertFromNode(m_convert, value, state, reply)) {
        reply->addValueNil(state);
    }
}

void ValueItemProxy::on_cmValueItem_changed(const VornValue& /*value*/)
{
    emit valueChanged({m_state});
}
