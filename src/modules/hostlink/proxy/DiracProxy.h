#pragma once

#include "modules/hostlink/proxy/ValueProxy.h"

/// Claims the states of the Dirac filters and converts nothing: reads are nil, a write is not answered.
class DiracProxy : public ValueProxy
{
    Q_OBJECT
public:
    explicit DiracProxy(QObject* parent);

    void setValue(State state, const HostLinkValueMessage& request, int index,
                  HostLinkValueMessage* reply) override;
    QList<State> states() const override;
};
