#include "modules/hostlink/proxy/PowerItemProxy.h"

#include <array>

#include "modules/hostlink/CheckedConnect.h"
#include "modules/hostlink/Log.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMItem.h"
#include "platform/sdk/CMWorker.h"
#include "platform/sdk/Paths.h"

namespace
{
using Targets = VornPowerManagerTargets;

/// By the number of the target. Those of 3 and 4 are not in order.
constexpr std::array<PowerState, 7> kStateOfTarget{5, 10, 20, 40, 30, 50, 0};
} // namespace

PowerItemProxy::PowerItemProxy(QObject* parent)
    : ValueProxy(parent), m_powerItem(new CMValueItem(this, VornPowerManagerTargetPath()))
{
    connectChecked(
        m_powerItem, &CMValueItem::changed, this,
        [this](const VornValue& value, const VornValue& previous) { on_powerItem_changed(previous, value); });
}

void PowerItemProxy::setValue(State state, const HostLinkValueMessage& request, int index,
                              HostLinkValueMessage* reply)
{
    if (state != STA_PowerState) {
        reply->addValueUint8(state, 0);
        return;
    }
    const PowerState code = request.getUint8(index); // one that cannot be read is 0, which is refused
    LOG4CPLUS_DEBUG(hostLinkLogger, "powerState: " << static_cast<int>(code));
    bool ok = false;
    const VornPowerManagerTarget target = convertStateToTarget(code, &ok);
    if (ok) {
        CMRoot()->invoke(VornPowerManagerTargetRequestPath(), target, CMVoidReply(new CMReplyData<QVariant>));
    }
    reply->addValueUint8(state, ok ? 1 : 0);
}

void PowerItemProxy::getValue(State state, HostLinkValueMessage* reply)
{
    const VornPowerManagerTarget target = m_powerItem->value().powerTarget();
    reply->addValueUint8(
        state, convertTargetToState(state == STA_PowerNextState ? target.nextTarget() : target.target()));
}

QList<State> PowerItemProxy::states() const
{
    return {STA_PowerState, STA_PowerNextState};
}

PowerState PowerItemProxy::convertTargetToState(Targets::Enum target)
{
    const auto number = static_cast<std::size_t>(target);
    if (number < kStateOfTarget.size()) {
        return kStateOfTarget[number];
    }
    LOG4CPLUS_ERROR(hostLinkLogger, "Unknown conversion from '" << Targets::toString(target).toStdString()
                                                                << "' to power state");
    return 0;
}

VornPowerManagerTarget PowerItemProxy::convertStateToTarget(const PowerState& state, bool* ok)
{
    const auto request = [](int target) {
        return VornPowerManagerTarget().setTarget(static_cast<Targets::Enum>(target));
    };
    *ok = true;
    switch (state) {
    case 10: return request(1);
    case 20: return request(2);
    case 30: return request(4);
    case 40: return request(3);
    default: break;
    }
    *ok = false;
    LOG4CPLUS_ERROR(hostLinkLogger,
                    "Unknown conversion from " << static_cast<int>(state) << " to power target");
    return {};
}

void PowerItemProxy::on_powerItem_changed(const VornValue& oldValue, const VornValue& newValue)
{
    const VornPowerManagerTarget before = oldValue.powerTarget();
    const VornPowerManagerTarget now = newValue.powerTarget();
    QList<State> changed;
    if (before.target() != now.target()) {
        changed.append(STA_PowerState);
    }
    if (before.nextTarget() != now.nextTarget()) {
        changed.append(STA_PowerNextState);
    }
    if (!changed.isEmpty()) {
        emit valueChanged(changed);
    }
}
