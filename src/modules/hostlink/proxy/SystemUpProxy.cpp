#include "modules/hostlink/proxy/SystemUpProxy.h"

#include "modules/hostlink/Log.h"
#include "platform/hostlink/HostLinkValueMessage.h"

SystemUpStateProxy::SystemUpStateProxy(QObject* parent) : ValueProxy(parent) {}

void SystemUpStateProxy::getValue(State state, HostLinkValueMessage* reply)
{
    HOSTLINK_TRACE_FUNCTION_WITH(state << "system state: ");
    reply->addValueUint8(state, static_cast<quint8>(m_systemState));
}

QList<State> SystemUpStateProxy::states() const
{
    return {STA_SystemUp};
}
