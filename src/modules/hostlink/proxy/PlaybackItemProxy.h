#pragma once

#include <QHash>
#include <QTimer>
#include <cstdint>

#include "modules/hostlink/proxy/ValueProxy.h"
#include "platform/sdk/VornPlayLogicData.h"

class CMValueItem;
class VornPlayerAudioDevice;

/// The host's number of the service that plays; 0 for none and for an unknown one.
enum AudioSourceId : std::uint8_t { AUDS_None = 0, AUDS_GoogleCast = 16 };

/// What the player plays, as the host sees it; and the host's own input, which the module's player plays when
/// the host or the module selects it.
class PlaybackItemProxy : public ValueProxy
{
    Q_OBJECT
public:
    explicit PlaybackItemProxy(QObject* parent);

    /// Takes STA_TarkoAudioInput, the number of the input: what plays stops, and the host's input plays.
    /// Takes STA_TarkoSetSampleRate: the host's input plays. Neither is answered, nor is any other state.
    void setValue(State state, const HostLinkValueMessage& request, int index,
                  HostLinkValueMessage* reply) override;

    /// Appends the player's value for the state. Nothing for a state that it has none for: the sample rate
    /// while it is not known, and states of others.
    void getValue(State state, HostLinkValueMessage* reply) override;

    /// What it tells of itself: what the host may write is served, but not owned.
    QList<State> states() const override;

private slots:
    void on_playbackItem_changed(const VornValue& oldValue, const VornValue& newValue);
    void on_ExternInputState_changed(const VornValue& value);
    void on_startPlaybackTimer_timeout();

private:
    VornPlayLogicData data() const;

    /// The host's code of a rate in Hz: 1 (32 kHz) to 9 (384 kHz and more), 0 for one without a code.
    std::uint8_t sampleRateToEnum(int rate) const;
    AudioSourceId serviceIdToEnum(const QString& id) const;
    AudioSourceId getAudioSourceId(const VornMetaData& metaData) const;
    AudioSourceId getAudioSourceId(const VornPlayLogicData& data) const;

    /// Hz; what the sound card plays where the track does not say; 0 where that is not known either.
    int getSampleRate(const VornRoles& trackRoles) const;

    /// Plays the host's input 250 ms after the last call.
    void playExternalInput();

    /// What the player opens for a device. Each option of the address begins with a question mark.
    static void getAlsaResourceAndUriFromAudioDevice(const VornPlayerAudioDevice& device,
                                                     VornResource& resource, QString& uri);

    QTimer* m_startPlaybackTimer;
    quint32 m_audioInput = 0;
    quint32 m_requestedSampleRate = 7; ///< a code; asked for, and used by nobody
    quint8 m_flag = 0;                 ///< used by nobody
    CMValueItem* m_playbackItem;
    CMValueItem* m_externInputItem;
    qint32 m_reportedSampleRate = 0; ///< Hz, of which the host was told last
};
