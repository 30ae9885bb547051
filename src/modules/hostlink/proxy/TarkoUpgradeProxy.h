#pragma once

#include "modules/hostlink/proxy/ValueProxy.h"

/// Restarts the module when the host's upgrade status asks for it: to let the host's firmware be upgraded, or
/// into the module's own upgrade from USB. Who registers it says for which state.
class TarkoUpgradeProxy : public ValueProxy
{
    Q_OBJECT
public:
    using ValueProxy::ValueProxy;

    /// Takes STA_HostUpgradeStatus as an unsigned byte, 0 or 8, and appends no answer for it: the restart
    /// comes 500 ms later, so that the reply leaves before. Nil under any other state.
    void setValue(State state, const HostLinkValueMessage& message, int index,
                  HostLinkValueMessage* reply) override;

    /// Nil, and an error in the log: the status cannot be read.
    void getValue(State state, HostLinkValueMessage* reply) override;

public slots:
    /// Blocks until both upgrade commands have ended and the power manager has answered.
    void on_ombrelUsbUpgradeRequested();
    void on_tarkoHostUpgradeRequested();
};
