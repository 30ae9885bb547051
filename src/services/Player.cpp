#include "services/Player.h"

#include <log4cplus/loggingmacros.h>

#include <algorithm>

#include "platform/sdk/CMItem.h"
#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMSetDataRequest.h"
#include "platform/sdk/Paths.h"
#include "platform/sdk/VornPlayLogicRequests.h"

static log4cplus::Logger playerLogger = log4cplus::Logger::getInstance("Services.Player");

namespace
{
using namespace std::chrono_literals;
using PlayRequest = VornPlayLogicPlayRequest;
using States = VornPlayLogicState;
using Ratings = VornPlayLogicRating;

constexpr auto kTick = 1s;
constexpr int kLongestQueue = 1000;
constexpr int kLongestAppended = 16 * 1024; // characters of the request that puts a track into the queue
const QString kSoundCard = QStringLiteral("alsa://");

std::chrono::milliseconds steadyTime()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
}

VornResource activeResource(const Track& track)
{
    return track.roles.mediaData().activeResource();
}

/// Milliseconds, 0 for a track without an end.
qint64 durationOf(const Track& track)
{
    return std::max<qint64>(activeResource(track).duration(), 0);
}

/// What plays of a media item is its preferred resource, unless the item says so itself.
Track trackOf(const VornRoles& roles)
{
    Track track;
    track.roles = roles;
    VornMediaData media = roles.mediaData();
    if (!media.contains(VornMediaData::ActiveResource()) && !media.resources().isEmpty()) {
        media.setActiveResource(media.resources().first());
        track.roles.setMediaData(media);
    }
    return track;
}

/// Why a track cannot be played; empty when it can.
QString flaw(const Track& track)
{
    if (!track.error.isEmpty()) {
        return track.error;
    }
    if (track.roles.mediaData().resources().isEmpty()) {
        return {};
    }
    const QString uri = activeResource(track).uri();
    if (uri.isEmpty()) {
        return "the resource has no address";
    }
    if (uri == kSoundCard || uri.startsWith(kSoundCard + '?')) {
        return uri + " names no device";
    }
    return {};
}

template <typename T>
bool isOther(const VornHash& request, const QString& key)
{
    return request.contains(key) && !VornField::read<T>(request.value(key));
}
} // namespace

Player::Player(Playlist::Tracks queue) : Player(std::move(queue), steadyTime) {}

Player::Player(Playlist::Tracks queue, Clock clock)
    : CMNodesWorker({}, "Player"), m_queue(std::move(queue)), m_clock(std::move(clock)),
      m_data(CMValueNode::create(nodes(), VornPlayLogicDataPath())),
      m_playTime(CMValueNode::create(nodes(), VornPlayLogicPlayTimePath()))
{
    m_ticks.setInterval(kTick);
    connect(&m_ticks, &QTimer::timeout, this, &Player::catchUp);
    setPosition(0);
    m_playTime->setCheck([this](const VornValue& value) { return objectionToSeek(value); });
    auto* item = new CMValueItem(this, m_playTime->path());
    connect(item, &CMValueItem::changed, this, &Player::on_playTime_changed);
    show();
    createRequestNode(VornPlayLogicPlayPath(), [this](const VornHash& request) { return play(request); });
    createRequestNode(VornPlayLogicPausePath(), [this](const VornHash&) { return pause(); });
    createRequestNode(VornPlayLogicStopPath(), [this](const VornHash&) {
        stop();
        return Outcome();
    });
    createRequestNode(VornPlayLogicNextPath(), [this](const VornHash&) { return next(); });
    createRequestNode(VornPlayLogicPreviousPath(),
                      [this](const VornHash& request) { return previous(request); });
    createRequestNode(VornPlayLogicLikePath(), [this](const VornHash&) { return rate(Ratings::Liked); });
    createRequestNode(VornPlayLogicDislikePath(),
                      [this](const VornHash&) { return rate(Ratings::Disliked); });
}

template <typename Handler>
void Player::createRequestNode(const CMPath& path, Handler handler)
{
    CMActivateNode::create(
        nodes(), path, this,
        [this, path, handler](const CMSetDataRequest& request) {
            catchUp();
            const Outcome outcome = handler(VornHash(request.data().toHash()));
            show();
            if (outcome.isEmpty()) {
                request.complete({});
            } else {
                request.fail({CMError::Refused, path.toString() + ": " + outcome});
            }
        },
        Qt::QueuedConnection);
}

Player::Outcome Player::play(const VornHash& request)
{
    if (request.contains(PlayRequest::Roles())) {
        return playRoles(request);
    }
    return request.contains(PlayRequest::Track()) ? playTrackOf(request) : resume();
}

Player::Outcome Player::playTrackOf(const VornHash& request)
{
    const int track = PlayRequest(request).track();
    if (track < 1 || track > m_queue.size()) {
        return QString(R"(takes {"track":N} with N from 1 to %1, not %2)")
            .arg(m_queue.size())
            .arg(request.toJsonString());
    }
    return start(track - 1);
}

Player::Outcome Player::playRoles(const VornHash& request)
{
    if (isOther<QVariantHash>(request, PlayRequest::Roles())
        || isOther<bool>(request, PlayRequest::Append())) {
        return R"(takes {"roles":{...},"append":false}, not )" + request.toJsonString();
    }
    const PlayRequest wanted = request;
    const Track track = trackOf(wanted.roles());
    if (!wanted.append()) {
        stop();
        m_guest = track;
        return begin(track);
    }
    if (m_queue.size() >= kLongestQueue) {
        return QString("the queue has %1 tracks already").arg(kLongestQueue);
    }
    if (const int length = request.toJsonString().size(); length > kLongestAppended) {
        return QString("takes at most %1 characters for the queue, not %2").arg(kLongestAppended).arg(length);
    }
    m_queue.append(track);
    return {};
}

Player::Outcome Player::resume()
{
    if (m_state == States::Paused) {
        setState(States::Playing);
    }
    if (m_state == States::Playing) {
        return {};
    }
    return m_queue.isEmpty() ? "the queue is empty" : start(m_index);
}

Player::Outcome Player::pause()
{
    if (!controls().pause()) {
        return current() == nullptr ? "nothing plays" : "this cannot be paused";
    }
    setState(m_state == States::Playing ? States::Paused : States::Playing);
    return {};
}

Player::Outcome Player::next()
{
    return controls().next_() ? start(m_index + 1) : "there is no track behind this one";
}

Player::Outcome Player::previous(const VornHash& request)
{
    if (VornPlayLogicPreviousRequest(request).restart() && controls().seekTime() && position() > 0) {
        setPosition(0);
        return {};
    }
    return controls().previous() ? start(m_index - 1) : "there is no track before this one";
}

Player::Outcome Player::rate(Ratings::Enum rating)
{
    const bool isOffered = rating == Ratings::Liked ? controls().like() : controls().dislike();
    if (!isOffered) {
        return current() == nullptr ? "nothing plays" : "this is not to be rated so";
    }
    (m_guest ? *m_guest : m_queue[m_index]).rating = rating;
    return {};
}

/// Plays a track of the queue from its begin.
Player::Outcome Player::start(int index)
{
    stop();
    m_index = index;
    return begin(m_queue[index]);
}

/// Plays what is current by now, or says why it cannot be played.
Player::Outcome Player::begin(const Track& track)
{
    m_error = flaw(track);
    if (!m_error.isEmpty()) {
        LOG4CPLUS_WARN(playerLogger, "cannot play '" << track.roles.title().toStdString()
                                                     << "': " << m_error.toStdString());
        m_guest.reset();
        return m_error;
    }
    setState(States::Playing);
    return {};
}

void Player::stop()
{
    m_error.clear();
    m_guest.reset();
    if (m_state != States::Stopped) {
        setState(States::Stopped);
        setPosition(0);
    }
}

void Player::setState(States::Enum state)
{
    if (m_state == States::Stopped) {
        setPosition(0);
    }
    m_state = state;
    if (state == States::Playing) {
        m_caughtUp = m_clock();
        m_ticks.start();
    } else {
        m_ticks.stop();
    }
}

void Player::catchUp()
{
    while (m_state == States::Playing) {
        const qint64 passed = (m_clock() - m_caughtUp).count();
        const qint64 duration = durationOf(*current());
        const qint64 left = duration > 0 ? std::max<qint64>(duration - position(), 0) : passed + 1;
        m_caughtUp += std::chrono::milliseconds(std::min(passed, left));
        setPosition(position() + std::min(passed, left));
        if (passed < left) {
            return;
        }
        endTrack();
    }
}

/// Goes on with the next track, which begins when this one ended.
void Player::endTrack()
{
    const auto ended = m_caughtUp;
    if (controls().next_()) {
        start(m_index + 1);
    } else {
        m_index = m_guest ? m_index : 0;
        stop();
    }
    m_caughtUp = ended;
    show();
}

void Player::setPosition(qint64 milliseconds)
{
    m_isMoving = true;
    m_playTime->setValue(VornValue().setI64(milliseconds));
    m_isMoving = false;
}

/// From where somebody moved the position to, time counts anew.
void Player::on_playTime_changed()
{
    if (!m_isMoving) {
        m_caughtUp = m_clock();
    }
}

qint64 Player::position() const
{
    return m_playTime->value().i64();
}

/// While nothing plays the position means nothing, and may be any.
QString Player::objectionToSeek(const VornValue& value) const
{
    const Track* track = current();
    if (track == nullptr) {
        return {};
    }
    if (!controls().seekTime()) {
        return "what plays has no positions";
    }
    const qint64 duration = durationOf(*track);
    return value.i64() >= 0 && value.i64() <= duration
               ? QString()
               : QString("takes 0 to %1, not %2").arg(duration).arg(value.i64());
}

/// What plays or is paused, or nullptr.
const Track* Player::current() const
{
    if (m_state == States::Stopped) {
        return nullptr;
    }
    return m_guest ? &*m_guest : &m_queue[m_index];
}

VornPlayLogicControls Player::controls() const
{
    VornPlayLogicControls controls;
    const Track* track = current();
    if (track == nullptr) {
        return controls;
    }
    const bool hasEnd = durationOf(*track) > 0;
    const bool canBeRated = track->roles.mediaData().metaData().canBeRated();
    controls.setPause(hasEnd).setSeekTime(hasEnd);
    controls.setNext_(!m_guest && m_index + 1 < m_queue.size()).setPrevious(!m_guest && m_index > 0);
    controls.setLike(canBeRated && track->rating != Ratings::Liked);
    controls.setDislike(canBeRated && track->rating != Ratings::Disliked);
    return controls;
}

void Player::show()
{
    VornPlayLogicData data;
    VornPlayLogicStatus status;
    status.setDuration(0).setRating(Ratings::None).setError(m_error);
    data.setState(m_state).setControls(controls());
    if (const Track* track = current()) {
        status.setDuration(durationOf(*track)).setRating(track->rating);
        data.setTrackRoles(track->roles);
    }
    m_data->setValue(VornHash(data.setStatus(status)));
}
