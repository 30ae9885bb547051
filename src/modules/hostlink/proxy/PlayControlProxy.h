#pragma once

#include <cstdint>

#include "modules/hostlink/proxy/ValueProxy.h"

class CMValueItem;

/// What the host's transport keys ask for. Any byte may arrive.
enum PlayerControl : std::uint8_t {
    PCTRL_Pause = 0,
    PCTRL_Stop = 1,
    PCTRL_Next = 2,
    PCTRL_Previous = 3,
    PCTRL_Like = 4,
    PCTRL_Dislike = 5,
};

/// Carries the host's transport keys to the player, as far as the player offers them. Cannot be read.
class PlayControlProxy : public ValueProxy
{
    Q_OBJECT
public:
    explicit PlayControlProxy(QObject* parent);

    /// Takes the value at `index` as a PlayerControl, whatever the state; one that cannot be read is 0 and
    /// pauses. Answers unsigned byte 1 for a command that was carried out, else 0.
    void setValue(State state, const HostLinkValueMessage& request, int index,
                  HostLinkValueMessage* reply) override;
    QList<State> states() const override;

    /// Carries out one command. False for one that the player does not offer now, and for an unknown one,
    /// which is an error in the log. Stopping always succeeds.
    bool setPlayerControlStateValue(PlayerControl control) const;

private:
    CMValueItem* m_playerDataItem;
};
