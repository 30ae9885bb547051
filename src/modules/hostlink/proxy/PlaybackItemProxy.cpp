#include "modules/hostlink/proxy/PlaybackItemProxy.h"

#include <QFile>
#include <QRegularExpression>
#include <algorithm>
#include <chrono>
#include <limits>

#include "modules/hostlink/CheckedConnect.h"
#include "modules/hostlink/Log.h"
#include "platform/audioutils/PcmFormat.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMItem.h"
#include "platform/sdk/CMWorker.h"
#include "platform/sdk/MimeTypes.h"
#include "platform/sdk/Paths.h"
#include "platform/sdk/PlayLogicInterface.h"
#include "platform/sdk/VornServices.h"

namespace
{
using namespace std::chrono_literals;

// What is selected in quick succession is played once.
constexpr auto kStartPlaybackDelay = 250ms;

// The parameters of what the sound card plays.
constexpr const char* kOutputParametersFile = "/proc/asound/card0/pcm0p/sub0/hw_params";

// The host knows no lower rate than this one.
constexpr int kLowestToldRate = 44100;
constexpr int kHighestRate = 384000;
constexpr std::uint8_t kHighestRateCode = 9;

// The host's input never ends, and comes back by itself.
constexpr auto kForever = std::numeric_limits<qint32>::max();

void addText(State state, const QString& text, HostLinkValueMessage* reply)
{
    const QByteArray utf8 = text.toUtf8();
    reply->addValueString(state, {utf8.constData(), static_cast<std::size_t>(utf8.size())});
}

qint32 controlBits(const VornPlayLogicControls& controls)
{
    const VornPlayLogicPlayModesSupported modes = controls.playMode();
    const bool bits[] = {controls.pause(),     true,
                         controls.next_(),     controls.previous(),
                         controls.like(),      controls.dislike(),
                         modes.shuffle(),      modes.repeatOne(),
                         modes.repeatAll(),    controls.seekTime(),
                         controls.seekTrack(), controls.seekBytes()};
    qint32 mask = 0;
    for (std::size_t i = 0; i < std::size(bits); ++i) {
        mask |= bits[i] ? 1 << i : 0;
    }
    return mask;
}

/// Appends one option of an address. They are all set off alike: the player takes it so.
void addNumberOption(QString& uri, const char* option, qint32 number)
{
    if (number != 0) {
        uri += option + QString::number(number);
    }
}

/// The player takes microseconds in 32 bits, in which a time that is set may become 0.
void addTimeOption(QString& uri, const char* option, qint32 milliseconds)
{
    if (milliseconds != 0) {
        uri += option + QString::number(static_cast<quint32>(milliseconds) * 1000U);
    }
}

void addOption(QString& uri, const char* option, const QString& text)
{
    if (!text.isEmpty()) {
        uri += option + text;
    }
}

void addFormat(const VornPlayerAudioDevice& device, VornResource& resource, QString& uri)
{
    if (device.format().isEmpty()) {
        if (device.bps() != 0) {
            uri += QString("?format=S%1LE").arg(device.bps());
            resource.setBitsPerSample(device.bps());
        }
        return;
    }
    audioUtils::PcmFormat format{};
    if (audioUtils::fromSndPcmString(format, device.format().toStdString())) {
        addOption(uri, "?format=", QString::fromStdString(audioUtils::toGstString(format)));
    }
}

VornRoles rolesOf(const VornResource& resource)
{
    VornMetaData metaData;
    metaData.setServiceID(VornService_AUX_Id());
    metaData.setMaximumRetryCount(kForever);
    VornMediaData mediaData;
    mediaData.setResources({resource});
    mediaData.setMetaData(metaData);
    VornRoles roles;
    roles.setType(VornRolesType::Number3);
    roles.setAudioType(VornRolesAudioType::Number2);
    roles.setMediaData(mediaData);
    return roles;
}
} // namespace

PlaybackItemProxy::PlaybackItemProxy(QObject* parent)
    : ValueProxy(parent), m_startPlaybackTimer(new QTimer(this)),
      m_playbackItem(new CMValueItem(this, PlayLogicInterface::playerInstance()->dataPath())),
      m_externInputItem(new CMValueItem(this, VornTarkoExternalSourcePath()))
{
    m_startPlaybackTimer->setSingleShot(true);
    m_startPlaybackTimer->setTimerType(Qt::PreciseTimer);
    m_startPlaybackTimer->setInterval(kStartPlaybackDelay);
    connectChecked(m_startPlaybackTimer, &QTimer::timeout, this,
                   &PlaybackItemProxy::on_startPlaybackTimer_timeout);
    connectChecked(m_playbackItem, &CMValueItem::changed, this,
                   [this](const VornValue& value, const VornValue& previous) {
                       on_playbackItem_changed(previous, value);
                   });
    connectChecked(m_externInputItem, &CMValueItem::changed, this,
                   &PlaybackItemProxy::on_ExternInputState_changed);
}

void PlaybackItemProxy::setValue(State state, const HostLinkValueMessage& request, int index,
                                 HostLinkValueMessage* /*reply*/)
{
    HOSTLINK_TRACE_FUNCTION();
    if (state == STA_TarkoAudioInput) {
        m_audioInput = request.getUint8(index);
        LOG4CPLUS_TRACE(hostLinkLogger, "STA_TarkoAudioInput: 0x" << std::hex << m_audioInput);
        m_flag = 0;
        PlayLogicInterface::playerInstance()->stop(VornPlayLogicStopReason::Unset);
        playExternalInput();
    } else if (state == STA_TarkoSetSampleRate) {
        m_requestedSampleRate = request.getUint8(index);
        LOG4CPLUS_TRACE(hostLinkLogger, "STA_TarkoSetSampleRate: 0x" << std::hex << m_requestedSampleRate);
        playExternalInput();
    }
}

VornPlayLogicData PlaybackItemProxy::data() const
{
    return m_playbackItem->value();
}

void PlaybackItemProxy::getValue(State state, HostLinkValueMessage* reply)
{
    HOSTLINK_TRACE_FUNCTION();
    const VornPlayLogicData now = data();
    const VornRoles track = now.trackRoles();
    const VornMediaData media = track.mediaData();
    switch (state) {
    case STA_PlayState: reply->addValueUint8(state, static_cast<std::uint8_t>(now.state())); break;
    case STA_TrackTitle: addText(state, track.title(), reply); break;
    case STA_TrackAlbum: addText(state, media.metaData().album(), reply); break;
    case STA_TrackIcon: addText(state, track.icon(), reply); break;
    case STA_TrackArtist: addText(state, media.metaData().artist(), reply); break;
    case STA_TrackMimeType: addText(state, media.activeResource().mimeType(), reply); break;
    case STA_TrackDuration: reply->addValueInt64(state, now.status().duration()); break;
    case STA_AudioSourceId: reply->addValueUint8(state, getAudioSourceId(now)); break;
    case STA_PlayControls: reply->addValueInt32(state, controlBits(now.controls())); break;
    case STA_TarkoAudioInput: reply->addValueUint8(state, static_cast<std::uint8_t>(m_audioInput)); break;
    case STA_TarkoSampleRate:
        if (int rate = getSampleRate(track); rate > 0) {
            rate = std::max(rate, kLowestToldRate);
            LOG4CPLUS_TRACE(hostLinkLogger,
                            "MCU reading STA_TarkoSampleRate to notification vector samplerate = " << rate);
            reply->addValueUint8(state, sampleRateToEnum(rate));
        }
        break;
    default: break;
    }
}

QList<State> PlaybackItemProxy::states() const
{
    return {STA_PlayState, STA_TrackDuration, STA_TrackTitle,      STA_TrackAlbum,    STA_TrackArtist,
            STA_TrackIcon, STA_TrackMimeType, STA_TarkoSampleRate, STA_AudioSourceId, STA_PlayControls};
}

void PlaybackItemProxy::on_playbackItem_changed(const VornValue& oldValue, const VornValue& newValue)
{
    HOSTLINK_TRACE_FUNCTION();
    const VornPlayLogicData before = oldValue;
    const VornPlayLogicData now = newValue;
    const VornRoles trackBefore = before.trackRoles();
    const VornRoles trackNow = now.trackRoles();
    const VornMediaData mediaBefore = trackBefore.mediaData();
    const VornMediaData mediaNow = trackNow.mediaData();
    QList<State> changed;
    const auto addIf = [&changed](State state, bool differs) {
        if (differs) {
            changed.append(state);
        }
    };
    addIf(STA_AudioSourceId, getAudioSourceId(before) != getAudioSourceId(now));
    addIf(STA_PlayControls, !before.controls().sameAs(now.controls()));
    addIf(STA_PlayState, before.state() != now.state());
    addIf(STA_TrackDuration, before.status().duration() != now.status().duration());
    addIf(STA_TrackTitle, trackBefore.title() != trackNow.title());
    addIf(STA_TrackIcon, trackBefore.icon() != trackNow.icon());
    addIf(STA_TrackAlbum, mediaBefore.metaData().album() != mediaNow.metaData().album());
    addIf(STA_TrackArtist, mediaBefore.metaData().artist() != mediaNow.metaData().artist());
    // Where the rate is the sound card's, the old data does not say what it was.
    if (const int rate = getSampleRate(trackNow); rate != m_reportedSampleRate) {
        m_reportedSampleRate = rate;
        LOG4CPLUS_TRACE(hostLinkLogger,
                        "Adding STA_TarkoSampleRate to notification vector samplerate = " << rate);
        changed.append(STA_TarkoSampleRate);
    }
    addIf(STA_TrackMimeType, mediaBefore.activeResource().mimeType() != mediaNow.activeResource().mimeType());
    emit valueChanged(changed);
}

void PlaybackItemProxy::on_ExternInputState_changed(const VornValue& value)
{
    const qint32 input = value.i32();
    m_audioInput = static_cast<quint32>(input);
    LOG4CPLUS_INFO(hostLinkLogger, "Test Input start name changed to:" << input);
    if (input >= 1) {
        playExternalInput();
    }
}

void PlaybackItemProxy::playExternalInput()
{
    LOG4CPLUS_TRACE(hostLinkLogger, "Starting Playback timer");
    m_startPlaybackTimer->start();
}

void PlaybackItemProxy::on_startPlaybackTimer_timeout()
{
    PlayLogicInterface* player = PlayLogicInterface::playerInstance();
    LOG4CPLUS_INFO(hostLinkLogger, "Playback timer in START playback");
    LOG4CPLUS_INFO(hostLinkLogger, "PlaybackItemProxy - STOPPING previous playback");
    player->stop(VornPlayLogicStopReason::Unset);

    const VornValue settings = VornHash(CMRoot()->getValue(VornPlayerLineInDeviceSettingsPath()).toHash());
    const VornPlayerAudioDevice device = settings.audioDevice();
    if (device.device().isEmpty()) {
        // The player is asked all the same: it says what is wrong with the address.
        LOG4CPLUS_ERROR(hostLinkLogger, "Unable to read/parse alsa device!");
    }
    VornResource resource;
    QString uri;
    getAlsaResourceAndUriFromAudioDevice(device, resource, uri);
    resource.setMimeType(MimeTypes::Audio::unknown());
    resource.setUri(uri);
    LOG4CPLUS_INFO(hostLinkLogger, "Starting external playback using uri: " << uri.toStdString());
    player->play(rolesOf(resource), false);
}

void PlaybackItemProxy::getAlsaResourceAndUriFromAudioDevice(const VornPlayerAudioDevice& device,
                                                             VornResource& resource, QString& uri)
{
    uri = "alsa://" + device.device();
    addNumberOption(uri, "?rate=", device.sampleRate());
    if (device.sampleRate() != 0) {
        resource.setSampleFrequency(device.sampleRate());
    }
    addNumberOption(uri, "?channels=", device.channels());
    if (device.channels() != 0) {
        resource.setNrAudioChannels(device.channels());
    }
    addFormat(device, resource, uri);
    addTimeOption(uri, "?latency-time=", device.periodTime());
    addTimeOption(uri, "?buffer-time=", device.bufferTime());
    addTimeOption(uri, "?ts-offset=", device.inputTsOffset());
    uri += device.useDriftComp() ? "?drift-comp=1" : "";
    const VornPlayerSampleRateSource source = device.sampleRateSource();
    addOption(uri, "?sr-card=", source.soundCard());
    addOption(uri, "?sr-elem=", source.sampleRateElement());
}

int PlaybackItemProxy::getSampleRate(const VornRoles& trackRoles) const
{
    const VornList<VornResource> resources = trackRoles.mediaData().resources();
    if (!resources.isEmpty()) {
        return resources.first().sampleFrequency();
    }
    QFile file(kOutputParametersFile);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        return 0;
    }
    const QString parameters = QString::fromUtf8(file.readAll()).simplified();
    LOG4CPLUS_TRACE(hostLinkLogger, "alsaOutputParameters: " << parameters.toStdString());
    static const QRegularExpression rate("(rate: )(\\d+)");
    return rate.match(parameters).captured(2).toInt();
}

std::uint8_t PlaybackItemProxy::sampleRateToEnum(int rate) const
{
    if (rate >= kHighestRate) {
        return kHighestRateCode;
    }
    switch (rate) {
    case 32000: return 1;
    case 44100: return 2;
    case 48000: return 3;
    case 88200: return 4;
    case 96000: return 5;
    case 176400: return 6;
    case 192000: return 7;
    case 352800: return 8;
    default: return 0;
    }
}

AudioSourceId PlaybackItemProxy::getAudioSourceId(const VornPlayLogicData& data) const
{
    const AudioSourceId id = getAudioSourceId(data.trackRoles().mediaData().metaData());
    return id != AUDS_None ? id : getAudioSourceId(data.mediaRoles().mediaData().metaData());
}

AudioSourceId PlaybackItemProxy::getAudioSourceId(const VornMetaData& metaData) const
{
    if (metaData.contains(VornMetaData::ExternalServiceID())) {
        LOG4CPLUS_DEBUG(hostLinkLogger,
                        "External service ID: " << metaData.externalServiceID().toStdString());
        return serviceIdToEnum(metaData.externalServiceID());
    }
    LOG4CPLUS_DEBUG(hostLinkLogger, "Service ID: " << metaData.serviceID().toStdString());
    const AudioSourceId id = serviceIdToEnum(metaData.serviceID());
    if (id == AUDS_GoogleCast && metaData.contains(VornMetaData::ExternalAppName())
        && metaData.externalAppName().isEmpty()) {
        LOG4CPLUS_DEBUG(hostLinkLogger, "GoogleCast is idle, no audio source");
        return AUDS_None;
    }
    return id;
}

AudioSourceId PlaybackItemProxy::serviceIdToEnum(const QString& id) const
{
    // 5 and 7 belong to nobody, and two services share 8.
    static const QHash<QString, AudioSourceId> ids = [] {
        const std::pair<QString, int> numbers[] = {
            {VornService_Airable_Id(), 1},
            {VornService_Multiroom_Id(), 2},
            {VornService_Files_Id(), 3},
            {VornService_Storage_Id(), 4},
            {VornService_VTuner_Id(), 6},
            {VornService_Sirius_Id(), 8},
            {VornService_SiriusPandora_Id(), 8},
            {VornService_TuneIn_Id(), 9},
            {VornService_UPnP_Id(), 10},
            {VornService_QPlay_Id(), 11},
            {VornService_Bluetooth_Id(), 12},
            {VornService_AirPlay_Id(), 13},
            {VornService_Cdrom_Id(), 14},
            {VornService_Spotify_Id(), 15},
            {VornService_GoogleCast_Id(), AUDS_GoogleCast},
            {VornService_AirableRadios_Id(), 17},
            {VornService_AirablePodcasts_Id(), 18},
            {VornService_Napster_Id(), 19},
            {VornService_Qobuz_Id(), 20},
            {VornService_Deezer_Id(), 21},
            {VornService_Tidal_Id(), 22},
            {VornService_Roon_Id(), 23},
            {VornService_AUX_Id(), 24},
            {VornService_Avs_Id(), 25},
            {VornService_AmazonMusic_Id(), 26},
            {VornService_TencentDingDang_Id(), 27},
            {VornService_BluetoothHandsfree_Id(), 28},
            {VornService_Dab_Id(), 29},
            {VornService_Fm_Id(), 30},
            {VornService_SPDIF_Id(), 31},
            {VornService_UsbAudio_Id(), 32},
            {VornService_Pandora_Id(), 33},
            {VornService_TencentXiaowei_Id(), 34},
            {VornService_HDMI_Id(), 35},
            {VornService_Dante_Id(), 36},
            {VornService_HighresAudio_Id(), 37},
            {VornService_Dirac_Id(), 38},
            {VornService_Calmradio_Id(), 39},
            {VornService_JioSaavn_Id(), 40},
            {VornService_Idagio_Id(), 41},
            {VornService_SoundMachine_Id(), 42},
            {VornService_PalcoMP3_Id(), 43},
            {VornService_LautFm_Id(), 44},
            {VornService_KlassikRadio_Id(), 45},
            {VornService_PriatenFm_Id(), 46},
            {VornService_SonySelectHiResMusic_Id(), 47},
            {VornService_Spreaker_Id(), 48},
            {VornService_Soundtrack_Id(), 49},
            {VornService_QobuzConnect_Id(), 50},
        };
        QHash<QString, AudioSourceId> table;
        for (const auto& [service, number] : numbers) {
            table.insert(service, static_cast<AudioSourceId>(number));
        }
        return table;
    }();
    const AudioSourceId found = ids.value(id, AUDS_None);
    if (found == AUDS_None && !id.isEmpty()) {
        LOG4CPLUS_ERROR(hostLinkLogger,
                        "Unknown conversion from '" << id.toStdString() << "' to Audio Source Id");
    }
    return found;
}
