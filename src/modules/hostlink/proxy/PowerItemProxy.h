#pragma once

#include <cstdint>

#include "modules/hostlink/proxy/ValueProxy.h"
#include "platform/sdk/VornPowerManagerTarget.h"

class CMValueItem;
class VornValue;

/// The host's code of a power state, a byte: 0, 5, 10, 20, 30, 40 or 50.
using PowerState = std::uint8_t;

/// The power manager's target as the host's power state codes. The host may request some of them.
class PowerItemProxy : public ValueProxy
{
    Q_OBJECT
public:
    explicit PowerItemProxy(QObject* parent);

    /// Takes STA_PowerState only: answers unsigned byte 1 when the code can be requested and the power
    /// manager was asked for its target, else 0.
    void setValue(State state, const HostLinkValueMessage& request, int index,
                  HostLinkValueMessage* reply) override;

    /// Appends the code of the next target for STA_PowerNextState, of the present one for any other state.
    void getValue(State state, HostLinkValueMessage* reply) override;
    QList<State> states() const override;

    /// 0, with an error in the log, for a target without a code.
    static PowerState convertTargetToState(VornPowerManagerTargets::Enum target);

    /// The target that a code requests. Fewer codes can be requested than shown: for the others *ok is false,
    /// the log has an error, and the target is empty.
    static VornPowerManagerTarget convertStateToTarget(const PowerState& state, bool* ok);

private slots:
    void on_powerItem_changed(const VornValue& oldValue, const VornValue& newValue);

private:
    CMValueItem* m_powerItem;
};
