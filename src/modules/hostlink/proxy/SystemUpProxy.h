#pragma once

#include "modules/hostlink/proxy/ValueProxy.h"

/// Tells the host that the module's system is up.
class SystemUpStateProxy : public ValueProxy
{
    Q_OBJECT
public:
    explicit SystemUpStateProxy(QObject* parent);

    /// Unsigned byte 1 under whatever state is asked.
    void getValue(State state, HostLinkValueMessage* reply) override;
    QList<State> states() const override;

private:
    quint32 m_systemState = 1;
};
