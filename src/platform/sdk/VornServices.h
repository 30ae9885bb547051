#pragma once

#include <QString>

// The services from which the player gets what it plays: QString VornService_Files_Id() and its like return
// the id under which a service names itself in the meta data of its tracks.
#define VORN_SERVICES(X)                                                                                     \
    X(Airable)                                                                                               \
    X(Multiroom)                                                                                             \
    X(Files)                                                                                                 \
    X(Storage)                                                                                               \
    X(VTuner)                                                                                                \
    X(Sirius)                                                                                                \
    X(SiriusPandora)                                                                                         \
    X(TuneIn)                                                                                                \
    X(UPnP)                                                                                                  \
    X(QPlay)                                                                                                 \
    X(Bluetooth)                                                                                             \
    X(AirPlay)                                                                                               \
    X(Cdrom)                                                                                                 \
    X(Spotify)                                                                                               \
    X(GoogleCast)                                                                                            \
    X(AirableRadios)                                                                                         \
    X(AirablePodcasts)                                                                                       \
    X(Napster)                                                                                               \
    X(Qobuz)                                                                                                 \
    X(Deezer)                                                                                                \
    X(Tidal)                                                                                                 \
    X(Roon)                                                                                                  \
    X(AUX)                                                                                                   \
    X(Avs)                                                                                                   \
    X(AmazonMusic)                                                                                           \
    X(TencentDingDang)                                                                                       \
    X(BluetoothHandsfree)                                                                                    \
    X(Dab)                                                                                                   \
    X(Fm)                                                                                                    \
    X(SPDIF)                                                                                                 \
    X(UsbAudio)                                                                                              \
    X(Pandora)                                                                                               \
    X(TencentXiaowei)                                                                                        \
    X(HDMI)                                                                                                  \
    X(Dante)                                                                                                 \
    X(HighresAudio)                                                                                          \
    X(Dirac)                                                                                                 \
    X(Calmradio)                                                                                             \
    X(JioSaavn)                                                                                              \
    X(Idagio)                                                                                                \
    X(SoundMachine)                                                                                          \
    X(PalcoMP3)                                                                                              \
    X(LautFm)                                                                                                \
    X(KlassikRadio)                                                                                          \
    X(PriatenFm)                                                                                             \
    X(SonySelectHiResMusic)                                                                                  \
    X(Spreaker)                                                                                              \
    X(Soundtrack)                                                                                            \
    X(QobuzConnect)

#define VORN_SERVICE_ID(name)                                                                                \
    inline QString VornService_##name##_Id()                                                                 \
    {                                                                                                        \
        return QStringLiteral(#name);                                                                        \
    }
VORN_SERVICES(VORN_SERVICE_ID)
#undef VORN_SERVICE_ID
