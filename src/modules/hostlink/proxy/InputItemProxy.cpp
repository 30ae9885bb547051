#include "modules/hostlink/proxy/InputItemProxy.h"

#include "modules/hostlink/CheckedConnect.h"
#include "modules/hostlink/Log.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMItem.h"
#include "platform/sdk/CMWorker.h"

InputItemProxy::InputItemProxy(State state, const CMPath& path, QObject* parent)
    : ValueProxy(parent), m_state(state), m_item(new CMValueItem(this, path))
{
    connectChecked(m_item, &CMValueItem::changed, this, &InputItemProxy::on_cmValueItem_changed);
}

void InputItemProxy::setValue(State state, const HostLinkValueMessage& request, int index,
                              HostLinkValueMessage* reply)
{
    bool ok = false;
    const std::uint8_t input = request.getUint8(index, &ok);
    if (ok) {
        CMRoot()->setValue(m_item->path(), VornValue().setI32(input), CMVoidReply(new CMReplyData<QVariant>));
    }
    reply->addValueUint8(state, ok ? 1 : 0);
}

void InputItemProxy::getValue(State state, HostLinkValueMessage* reply)
{
    HOSTLINK_TRACE_FUNCTION();
    const qint32 number = m_item->value().i32();
    LOG4CPLUS_TRACE(hostLinkLogger, "Input Uint8VornI32: " << number);
    reply->addValueUint8(state, static_cast<std::uint8_t>(number));
}

void InputItemProxy::on_cmValueItem_changed(const VornValue& value)
{
    HOSTLINK_TRACE_FUNCTION_WITH(
        "Value: " << VornHostLinkdInputStateType::toString(value.inputState()).toStdString());
    emit valueChanged({m_state});
}
