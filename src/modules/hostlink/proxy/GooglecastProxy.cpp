#include "modules/hostlink/proxy/GooglecastProxy.h"

#include "modules/hostlink/CheckedConnect.h"
#include "modules/hostlink/Log.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMItem.h"
#include "platform/sdk/Paths.h"
#include "platform/sdk/VornValue.h"

GooglecastProxy::GooglecastProxy(QObject* parent)
    : ValueProxy(parent), m_assistantStateItem(new CMValueItem(this, VornGoogleCastAssistantStatePath())),
      m_channelSelectionItem(new CMValueItem(this, VornGoogleCastChannelSelectionPath())),
      m_multichannelStatusItem(new CMValueItem(this, VornGoogleCastMultichannelStatusPath()))
{
    connectChecked(m_assistantStateItem, &CMValueItem::changed, this,
                   &GooglecastProxy::on_assistantState_changed);
    connectChecked(m_channelSelectionItem, &CMValueItem::changed, this,
                   &GooglecastProxy::on_channelSelection_changed);
    connectChecked(m_multichannelStatusItem, &CMValueItem::changed, this,
                   &GooglecastProxy::on_multichannelStatus_changed);
}

void GooglecastProxy::getValue(State state, HostLinkValueMessage* reply)
{
    HOSTLINK_TRACE_FUNCTION_WITH(state);
    switch (state) {
    case STA_CastAssistantState:
        reply->addValueUint8(
            state, static_cast<std::uint8_t>(m_assistantStateItem->value().googleCastAssistantState()));
        break;
    case STA_CastChannelSelection:
        reply->addValueUint8(state, m_channelSelectionItem->value().bool_() ? 1 : 0);
        break;
    case STA_CastMultichannelStatus:
        reply->addValueUint8(state, static_cast<std::uint8_t>(
                                        m_multichannelStatusItem->value().googleCastMultichannelStatus()));
        break;
    default: break;
    }
}

QList<State> GooglecastProxy::states() const
{
    return {STA_CastAssistantState, STA_CastChannelSelection, STA_CastMultichannelStatus};
}

void GooglecastProxy::on_assistantState_changed(const VornValue& value)
{
    HOSTLINK_TRACE_FUNCTION_WITH(value.toJsonString().toStdString());
    emit valueChanged({STA_CastAssistantState});
}

void GooglecastProxy::on_channelSelection_changed(const VornValue& value)
{
    HOSTLINK_TRACE_FUNCTION_WITH(value.toJsonString().toStdString());
    emit valueChanged({STA_CastChannelSelection});
}

void GooglecastProxy::on_multichannelStatus_changed(const VornValue& value)
{
    HOSTLINK_TRACE_FUNCTION_WITH(value.toJsonString().toStdString());
    emit valueChanged({STA_CastMultichannelStatus});
}
