#include "services/DiracSlots.h"

#include "platform/sdk/CMItem.h"
#include "platform/sdk/CMNode.h"
#include "platform/sdk/Paths.h"
#include "platform/sdk/VornDiracSlotsSettings.h"
#include "platform/sdk/VornJson.h"

namespace
{
constexpr qint32 kOff = 0;

std::optional<qint32> activeSlot(const VornHash& settings)
{
    const VornDiracSlotsList list = VornDiracSlotsSettings(settings).slotsList();
    return VornField::read<qint32>(list.value(VornDiracSlotsList::ActiveSlot()));
}

QString objectionToSlots(const VornValue& value)
{
    return activeSlot(value).value_or(-1) >= 0
               ? QString()
               : R"(takes {"slotsList":{"activeSlot":N}}, N from 0, not )" + value.toJsonString();
}
} // namespace

DiracSlots::DiracSlots()
    : CMNodesWorker({}, "DiracSlots"), m_slots(CMValueNode::create(nodes(), VornDiracSlotsSettingsPath())),
      m_activeFilter(CMValueNode::create(nodes(), VornDiracActiveFilterPath()))
{
    const VornDiracSlotsList list = VornDiracSlotsList().setActiveSlot(kOff);
    m_slots->setValue(VornHash(VornDiracSlotsSettings().setSlotsList(list)));
    m_slots->setCheck(objectionToSlots);
    m_activeFilter->setValue(VornValue().setI32(kOff));
    auto* item = new CMValueItem(this, m_slots->path());
    connect(item, &CMValueItem::changed, this, &DiracSlots::on_slots_changed);
}

void DiracSlots::on_slots_changed(const VornValue& value)
{
    m_activeFilter->setValue(VornValue().setI32(activeSlot(value).value_or(kOff)));
}
