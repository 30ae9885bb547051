#include "modules/hostlink/proxy/ValueProxy.h"

#include "platform/hostlink/HostLinkValueMessage.h"

void ValueProxy::setValue(State state, const HostLinkValueMessage& /*request*/, int /*index*/,
                          HostLinkValueMessage* reply)
{
    reply->addValueUint8(state, 0);
}

void ValueProxy::getValue(State state, HostLinkValueMessage* reply)
{
    reply->addValueNil(state);
}
