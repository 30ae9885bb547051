#include "modules/hostlink/proxy/PlayControlProxy.h"

#include "modules/hostlink/Log.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMItem.h"
#include "platform/sdk/PlayLogicInterface.h"

PlayControlProxy::PlayControlProxy(QObject* parent)
    : ValueProxy(parent),
      m_playerDataItem(new CMValueItem(this, PlayLogicInterface::playerInstance()->dataPath()))
{
}

void PlayControlProxy::setValue(State state, const HostLinkValueMessage& request, int index,
                                HostLinkValueMessage* reply)
{
    const std::uint8_t code = request.getUint8(index);
    LOG4CPLUS_DEBUG(hostLinkLogger, "playerControl: " << static_cast<int>(code));
    const bool result = setPlayerControlStateValue(static_cast<PlayerControl>(code));
    reply->addValueUint8(state, result ? 1 : 0);
}

QList<State> PlayControlProxy::states() const
{
    return {STA_PlayControl};
}

bool PlayControlProxy::setPlayerControlStateValue(PlayerControl control) const
{
    HOSTLINK_TRACE_FUNCTION();
    PlayLogicInterface* player = PlayLogicInterface::playerInstance();
    const VornPlayLogicControls offered = player->data().controls();
    const auto ifOffered = [](bool isOffered, auto action) {
        if (isOffered) {
            action();
        }
        return isOffered;
    };
    switch (control) {
    case PCTRL_Pause: return ifOffered(offered.pause(), [player] { player->pause(); });
    case PCTRL_Stop:
        ifOffered(VornPlayLogicData(m_playerDataItem->value()).state() != VornPlayLogicState::Stopped,
                  [player] { player->stop(VornPlayLogicStopReason::Unset); });
        return true;
    case PCTRL_Next: return ifOffered(offered.next_(), [player] { player->next(); });
    case PCTRL_Previous: return ifOffered(offered.previous(), [player] { player->previous(false); });
    case PCTRL_Like: return ifOffered(offered.like(), [player] { player->like(); });
    case PCTRL_Dislike: return ifOffered(offered.dislike(), [player] { player->dislike(); });
    }
    LOG4CPLUS_ERROR(hostLinkLogger,
                    "playerControl control: " << static_cast<int>(control) << " is not supported");
    return false;
}
