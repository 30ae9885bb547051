#pragma once

#include <QTimer>
#include <chrono>
#include <functional>
#include <optional>

#include "platform/sdk/CMWorker.h"
#include "services/Playlist.h"

class CMSetDataRequest;
class CMValueNode;

/// The player: a queue of tracks, a position that advances while one plays, and controls that follow what is
/// possible. It makes no sound.
///
/// Its nodes stand below the player instance. Invoking `play` starts a track of the queue ({"track":2}), goes
/// on with what is paused or starts where the queue is ({}), plays an item of any other source beside the
/// queue ({"roles":{...}}) or puts it behind the queue ({"roles":{...},"append":true}). `pause` pauses and
/// goes on; `stop`, `next`, `previous`, `like` and `dislike` do what they say. What is not possible is
/// refused, in words. `data` shows all of it, until somebody else writes it, as a test may need; `playTime`
/// is the position in milliseconds, and writing it seeks.
class Player : public CMNodesWorker
{
    Q_OBJECT
public:
    /// Milliseconds since any fixed time, never going back.
    using Clock = std::function<std::chrono::milliseconds()>;

    explicit Player(Playlist::Tracks queue);
    Player(Playlist::Tracks queue, Clock clock);

    /// Moves the position on to the clock's time, through as many tracks as it takes. Happens each second
    /// while a track plays.
    void catchUp();

private:
    using Outcome = QString; ///< why a request is refused; empty: it is done

    template <typename Handler>
    void createRequestNode(const CMPath& path, Handler handler);
    Outcome play(const VornHash& request);
    Outcome playTrackOf(const VornHash& request);
    Outcome playRoles(const VornHash& request);
    Outcome resume();
    Outcome pause();
    Outcome next();
    Outcome previous(const VornHash& request);
    Outcome rate(VornPlayLogicRating::Enum rating);

    Outcome start(int index);
    Outcome begin(const Track& track);
    void stop();
    void endTrack();
    void show();
    void setState(VornPlayLogicState::Enum state);
    void setPosition(qint64 milliseconds);
    void on_playTime_changed();
    qint64 position() const;
    QString objectionToSeek(const VornValue& value) const;

    const Track* current() const;
    VornPlayLogicControls controls() const;

    Playlist::Tracks m_queue;
    int m_index = 0;              ///< in the queue: what plays, or would play next
    std::optional<Track> m_guest; ///< what plays beside the queue
    VornPlayLogicState::Enum m_state = VornPlayLogicState::Stopped;
    QString m_error; ///< of the track that was tried last
    Clock m_clock;
    std::chrono::milliseconds m_caughtUp{0}; ///< the clock's time of the position
    bool m_isMoving = false;                 ///< the position, by itself
    QTimer m_ticks;                          ///< runs while a track plays
    CMValueNode* m_data;
    CMValueNode* m_playTime;
};
