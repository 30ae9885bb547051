#pragma once

#include <QString>

// Enumerations of the module. VORN_ENUM declares a holder with `Enum` and `toString(Enum)` from a list of
// (name, number); an Enum holds any number, and one without an enumerator prints as itself.
//
// The numbers are what travels to the host. Where only a number is known, its enumerator says so.

#define VORN_ENUMERATOR(name, number) name = number,
#define VORN_ENUMERATOR_TEXT(name, number)                                                                   \
    case name:                                                                                               \
        return QStringLiteral(#name);

#define VORN_ENUM(Holder, LIST)                                                                              \
    struct Holder {                                                                                          \
        enum Enum : int { LIST(VORN_ENUMERATOR) };                                                           \
        static QString toString(Enum value)                                                                  \
        {                                                                                                    \
            switch (value) {                                                                                 \
                LIST(VORN_ENUMERATOR_TEXT)                                                                   \
            }                                                                                                \
            return QString::number(static_cast<int>(value));                                                 \
        }                                                                                                    \
    };

/// The output that plays.
#define VORN_OUTPUT_TYPES(X) X(Speakers, 0) X(Headphones, 1) X(PreOut, 2)
VORN_ENUM(VornKestalPrimeOutputType, VORN_OUTPUT_TYPES)

/// What the MQA decoder sees in the stream.
#define VORN_MQA_STATES(X) X(NoMqa, 0) X(Mqa, 1) X(MqaStudio, 2) X(OriginalSampleRate, 3)
VORN_ENUM(VornKestalPrimeMqaState, VORN_MQA_STATES)

/// Whether the volume is adjustable or held.
#define VORN_VOLUME_MODES(X) X(Variable, 0) X(Fixed, 1)
VORN_ENUM(VornKestalPrimeVolumeMode, VORN_VOLUME_MODES)

/// The module's software upgrade.
#define VORN_SOM_UPGRADE_STATUSES(X) X(Available, 0) X(InProgress, 4)
VORN_ENUM(VornKestalPrimeSomUpgradeStatus, VORN_SOM_UPGRADE_STATUSES)

/// The host's firmware upgrade.
#define VORN_HOST_UPGRADE_STATUSES(X) X(ReadyToReceiveData, 0) X(StartOmbrelUsbUpgrade, 8)
VORN_ENUM(VornKestalPrimeHostUpgradeStatus, VORN_HOST_UPGRADE_STATUSES)

/// Where the appliance is sold.
#define VORN_REGIONS(X) X(Europe, 0) X(NorthAmerica, 1) X(Asia, 2)
VORN_ENUM(VornKestalPrimeRegion, VORN_REGIONS)

/// The light around the volume control.
#define VORN_HALO_BRIGHTNESSES(X) X(Off, 0) X(Dim, 1) X(Bright, 2)
VORN_ENUM(VornKestalPrimeHaloBrightness, VORN_HALO_BRIGHTNESSES)

/// The system code that the remote control sends.
#define VORN_IR_SYSTEM_CODES(X) X(Primary, 0) X(Secondary, 1)
VORN_ENUM(VornKestalPrimeIrSystemCode, VORN_IR_SYSTEM_CODES)

/// Whether an input with a signal becomes the selected one.
#define VORN_INPUT_AUTO_SWITCHES(X) X(Disabled, 0) X(Enabled, 1)
VORN_ENUM(VornKestalPrimeInputAutoSwitch, VORN_INPUT_AUTO_SWITCHES)

/// The reconstruction filter.
#define VORN_DAC_FILTERS(X) X(SharpRollOff, 0) X(SlowRollOff, 1) X(MinimumPhase, 2)
VORN_ENUM(VornKestalPrimeDacFilter, VORN_DAC_FILTERS)

/// The host's selected input.
#define VORN_INPUT_STATES(X) X(NoSignal, 0) X(Locked, 1)
VORN_ENUM(VornHostLinkdInputStateType, VORN_INPUT_STATES)

/// The appliance's model, as the host reports it.
#define VORN_HOST_MODELS(X) X(Unknown, 0) X(Model1, 1) X(Model2, 2)
VORN_ENUM(VornKestalPrimeHostSystemInfoModel, VORN_HOST_MODELS)

/// What happened to the player's volume.
#define VORN_PLAYER_VOLUME_CHANGE_EVENT_TYPES(X) X(Unset, 0) X(Number2, 2)
VORN_ENUM(VornPlayerVolumeChangeEventType, VORN_PLAYER_VOLUME_CHANGE_EVENT_TYPES)

/// Where the power manager may take the module. It goes down for Restart and for Shutdown.
#define VORN_POWER_MANAGER_TARGETS(X)                                                                        \
    X(Number0, 0) X(Number1, 1) X(Number2, 2) X(Restart, 3) X(Shutdown, 4) X(Number5, 5) X(Number6, 6)
VORN_ENUM(VornPowerManagerTargets, VORN_POWER_MANAGER_TARGETS)

/// Why it was asked to.
#define VORN_POWER_MANAGER_REASONS(X) X(Unset, 0) X(Number3, 3)
VORN_ENUM(VornPowerManagerReasons, VORN_POWER_MANAGER_REASONS)

/// Who may use a node. The tree carries it and does not examine it.
#define VORN_PERMISSIONS(X) X(Unset, 0) X(Number9999, 9999)
VORN_ENUM(VornPermission, VORN_PERMISSIONS)

/// How the network, or one interface of it, is connected.
#define VORN_NETWORK_STATES(X) X(Disconnected, 0) X(Connected, 1) X(Connecting, 2)
VORN_ENUM(VornNetworkState, VORN_NETWORK_STATES)

/// The status of the voice service.
#define VORN_AVS_STATUSES(X) X(Number0, 0) X(Number1, 1) X(Number2, 2) X(Number3, 3) X(Number4, 4)
VORN_ENUM(VornAvsStatus, VORN_AVS_STATUSES)

/// What the voice assistant is at.
#define VORN_AVS_ASSISTANT_STATES(X)                                                                         \
    X(Number0, 0) X(Number1, 1) X(Number2, 2) X(Number3, 3) X(Number4, 4) X(Number5, 5)
VORN_ENUM(VornAvsAssistantState, VORN_AVS_ASSISTANT_STATES)

/// The call of the voice assistant.
#define VORN_AVS_CALL_STATES(X) X(Number0, 0) X(Number1, 1) X(Number2, 2) X(Number3, 3) X(Number4, 4)
VORN_ENUM(VornAvsCallState, VORN_AVS_CALL_STATES)

/// What the cast assistant is at.
#define VORN_GOOGLE_CAST_ASSISTANT_STATES(X) X(Number0, 0) X(Number1, 1) X(Number2, 2)
VORN_ENUM(VornGoogleCastAssistantState, VORN_GOOGLE_CAST_ASSISTANT_STATES)

/// The part that the module plays among several cast receivers.
#define VORN_GOOGLE_CAST_MULTICHANNEL_STATUSES(X) X(Number0, 0) X(Number1, 1) X(Number2, 2)
VORN_ENUM(VornGoogleCastMultichannelStatus, VORN_GOOGLE_CAST_MULTICHANNEL_STATUSES)

/// What the player is at.
#define VORN_PLAY_LOGIC_STATES(X) X(Stopped, 0) X(Playing, 1) X(Paused, 2)
VORN_ENUM(VornPlayLogicState, VORN_PLAY_LOGIC_STATES)

/// Why the player is stopped.
#define VORN_PLAY_LOGIC_STOP_REASONS(X) X(Unset, 0)
VORN_ENUM(VornPlayLogicStopReason, VORN_PLAY_LOGIC_STOP_REASONS)

/// What the listener thinks of a track.
#define VORN_PLAY_LOGIC_RATINGS(X) X(None, 0) X(Liked, 1) X(Disliked, 2)
VORN_ENUM(VornPlayLogicRating, VORN_PLAY_LOGIC_RATINGS)

/// The kind of a media item. Number3 is one that plays.
#define VORN_ROLES_TYPES(X) X(Unset, 0) X(Number3, 3)
VORN_ENUM(VornRolesType, VORN_ROLES_TYPES)

/// The kind of its audio. Number2 is a stream without an end.
#define VORN_ROLES_AUDIO_TYPES(X) X(Unset, 0) X(Number2, 2)
VORN_ENUM(VornRolesAudioType, VORN_ROLES_AUDIO_TYPES)
