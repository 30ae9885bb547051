#include "services/PlayerVolume.h"

#include "platform/sdk/CMNode.h"
#include "platform/sdk/Paths.h"
#include "platform/sdk/VornRoles.h"

static constexpr qint32 kFirstVolume = 25;
static constexpr qint32 kLoudest = 100;

PlayerVolume::PlayerVolume() : CMNodesWorker({}, "PlayerVolume")
{
    const VornEdit limits = VornEdit().setMin(VornValue().setI32(0)).setMax(VornValue().setI32(kLoudest));
    CMValueNode* const volume = CMValueNode::create(nodes(), VornPlayerVolumePath());
    volume->setRoles(VornRoles().setTitle("Volume").setEdit(limits));
    volume->setValue(VornValue().setI32(kFirstVolume));
}
