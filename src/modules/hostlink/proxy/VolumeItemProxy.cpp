#include "modules/hostlink/proxy/VolumeItemProxy.h"

#include "modules/hostlink/CheckedConnect.h"
#include "modules/hostlink/Log.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMItem.h"
#include "platform/sdk/CMWorker.h"
#include "platform/sdk/Paths.h"

VolumeItemProxy::VolumeItemProxy(QObject* parent)
    : ValueProxy(parent), m_volumeItem(new CMItem(this, VornPlayerVolumePath()))
{
    connectChecked(m_volumeItem, &CMItem::changed, this, &VolumeItemProxy::on_volumeItem_changed);
    connectChecked(CMRoot(), &CMRootWorker::volumeChangeEvent, this,
                   &VolumeItemProxy::on_volumeChangeEvent_changed);
}

void VolumeItemProxy::setValue(State /*state*/, const HostLinkValueMessage& request, int index,
                               HostLinkValueMessage* reply)
{
    bool ok = false;
    const int volume = request.getUint8(index, &ok);
    if (!ok || !isWithinLimits(volume)) {
        reply->addValueUint8(STA_Volume, 0);
        return;
    }
    VornValue value;
    value.setI32_(volume);
    CMRoot()->setValue(VornPlayerVolumePath(), value, CMVoidReply(new CMReplyData<QVariant>));
    reply->addValueUint8(STA_Volume, 1);
}

bool VolumeItemProxy::isWithinLimits(int volume) const
{
    const VornEdit edit = m_volumeItem->roles().edit();
    return edit.min().i32_() <= volume && volume <= edit.max().i32_();
}

void VolumeItemProxy::getValue(State /*state*/, HostLinkValueMessage* reply)
{
    reply->addValueUint8(STA_Volume, static_cast<std::uint8_t>(m_volumeItem->roles().value().i32_()));
}

QList<State> VolumeItemProxy::states() const
{
    return {STA_Volume};
}

void VolumeItemProxy::on_volumeItem_changed(const VornRoles& /*roles*/)
{
    emit valueChanged({STA_Volume});
}

void VolumeItemProxy::on_volumeChangeEvent_changed(const CMPath& /*path*/, const QVariant& value)
{
    const VornValue event = VornHash(value.toHash());
    const VornPlayerVolumeChangeEventType::Enum type = event.volumeChangeEvent().type();
    HOSTLINK_TRACE_FUNCTION_WITH(VornPlayerVolumeChangeEventType::toString(type).toStdString());
    if (type == VornPlayerVolumeChangeEventType::Number2) {
        emit valueChanged({STA_Volume});
    }
}
