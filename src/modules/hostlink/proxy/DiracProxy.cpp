#include "modules/hostlink/proxy/DiracProxy.h"

#include "modules/hostlink/Log.h"

DiracProxy::DiracProxy(QObject* parent) : ValueProxy(parent) {}

void DiracProxy::setValue(State /*state*/, const HostLinkValueMessage& /*request*/, int /*index*/,
                          HostLinkValueMessage* /*reply*/)
{
    HOSTLINK_TRACE_FUNCTION();
}

QList<State> DiracProxy::states() const
{
    return {STA_DiracFilterSettings, STA_DiracActiveFilter};
}
