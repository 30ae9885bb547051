#include "services/PlayerVolume.h"

#include <algorithm>

#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMSetDataRequest.h"
#include "platform/sdk/Paths.h"
#include "platform/sdk/VornRoles.h"

namespace
{
constexpr qint32 kFirstVolume = 25;
constexpr qint64 kQuietest = 0;
constexpr qint64 kLoudest = 100;

VornValue volumeOf(qint64 volume)
{
    return VornValue().setI32(static_cast<qint32>(volume));
}

QString objectionToVolume(const VornValue& value)
{
    const qint32 volume = value.i32();
    return volume >= kQuietest && volume <= kLoudest
               ? QString()
               : QString("takes %1 to %2, not %3").arg(kQuietest).arg(kLoudest).arg(volume);
}

/// Tells a step that did not change the volume; the worker takes an event of this type for a change.
void tellStep()
{
    VornPlayerVolumeChangeEvent event;
    event.setType(VornPlayerVolumeChangeEventType::Number2);
    const VornValue value = VornValue().setVolumeChangeEvent(event);
    emit CMRoot()->volumeChangeEvent(VornPlayerVolumePath(), QVariant(QVariantHash(value)));
}
} // namespace

PlayerVolume::PlayerVolume()
    : CMNodesWorker({}, "PlayerVolume"), m_volume(CMValueNode::create(nodes(), VornPlayerVolumePath()))
{
    const VornEdit limits = VornEdit().setMin(volumeOf(kQuietest)).setMax(volumeOf(kLoudest));
    m_volume->setRoles(VornRoles().setTitle("Volume").setEdit(limits));
    m_volume->setCheck(objectionToVolume);
    m_volume->setValue(volumeOf(kFirstVolume));
    CMActivateNode::create(nodes(), VornPlayerVolumeStepPath(), this, &PlayerVolume::on_volumeStep_activated);
}

void PlayerVolume::on_volumeStep_activated(const CMSetDataRequest& request)
{
    const VornValue step = VornHash(request.data().toHash());
    if (step.type() != VornValue::Type::I32) {
        request.fail({CMError::Refused, VornPlayerVolumeStepPath().toString()
                                            + R"(: takes {"i32_":N}, N steps up or -N down, not )"
                                            + step.toJsonString()});
        return;
    }
    const qint64 before = m_volume->value().i32();
    const qint64 after = std::clamp(before + step.i32(), kQuietest, kLoudest);
    if (after == before) {
        tellStep();
    } else {
        m_volume->setValue(volumeOf(after));
    }
    request.complete(QVariantHash(m_volume->value()));
}
