#pragma once

#include "platform/sdk/VornBluetooth.h"
#include "platform/sdk/VornEnums.h"
#include "platform/sdk/VornField.h"
#include "platform/sdk/VornHash.h"
#include "platform/sdk/VornNetworkInfo.h"
#include "platform/sdk/VornPlayerVolumeChangeEvent.h"
#include "platform/sdk/VornPowerManagerTarget.h"

/// The typed fields of a value: FIELD(type, getter, setter, Key).
#define VORN_VALUE_FIELDS(FIELD)                                                                             \
    FIELD(bool, bool_, setBool_, Bool)                                                                       \
    FIELD(qint32, i32_, setI32_, I32)                                                                        \
    FIELD(qint64, i64_, setI64_, I64)                                                                        \
    FIELD(double, double_, setDouble_, Double)                                                               \
    FIELD(QString, string_, setString_, String)                                                              \
    FIELD(QStringList, stringList_, setStringList_, StringList)                                              \
    FIELD(VornKestalPrimeOutputType::Enum, outputType, setOutputType, OutputType)                            \
    FIELD(VornKestalPrimeMqaState::Enum, mqaState, setMqaState, MqaState)                                    \
    FIELD(VornKestalPrimeVolumeMode::Enum, volumeMode, setVolumeMode, VolumeMode)                            \
    FIELD(VornKestalPrimeSomUpgradeStatus::Enum, somUpgradeStatus, setSomUpgradeStatus, SomUpgradeStatus)    \
    FIELD(VornKestalPrimeHostUpgradeStatus::Enum, hostUpgradeStatus, setHostUpgradeStatus,                   \
          HostUpgradeStatus)                                                                                 \
    FIELD(VornKestalPrimeRegion::Enum, region, setRegion, Region)                                            \
    FIELD(VornKestalPrimeHaloBrightness::Enum, haloBrightness, setHaloBrightness, HaloBrightness)            \
    FIELD(VornKestalPrimeIrSystemCode::Enum, irSystemCode, setIrSystemCode, IrSystemCode)                    \
    FIELD(VornKestalPrimeInputAutoSwitch::Enum, inputAutoSwitch, setInputAutoSwitch, InputAutoSwitch)        \
    FIELD(VornKestalPrimeDacFilter::Enum, dacFilter, setDacFilter, DacFilter)                                \
    FIELD(VornHostLinkdInputStateType::Enum, inputState, setInputState, InputState)                          \
    FIELD(VornKestalPrimeHostSystemInfoModel::Enum, hostModel, setHostModel, HostModel)                      \
    FIELD(VornAvsStatus::Enum, alexaVoiceServiceStatus, setAlexaVoiceServiceStatus, AlexaVoiceServiceStatus) \
    FIELD(VornAvsAssistantState::Enum, alexaAssistantState, setAlexaAssistantState, AlexaAssistantState)     \
    FIELD(VornAvsCallState::Enum, alexaCallState, setAlexaCallState, AlexaCallState)                         \
    FIELD(VornGoogleCastAssistantState::Enum, googleCastAssistantState, setGoogleCastAssistantState,         \
          GoogleCastAssistantState)                                                                          \
    FIELD(VornGoogleCastMultichannelStatus::Enum, googleCastMultichannelStatus,                              \
          setGoogleCastMultichannelStatus, GoogleCastMultichannelStatus)

/// A typed view over a hash: each type has a field of its own, {"i32_": 5} for a 32-bit number. A field
/// that is missing or of another type reads as 0, false or empty.
class VornValue : public VornHash
{
    VORN_RECORD(VornValue)
public:
    VORN_VALUE_FIELDS(VORN_FIELD)

    // Records are no types of their own: a value with one is a plain hash.
    VORN_FIELD(VornBluetoothDevices, alexaConnectedBluetoothDevices, setAlexaConnectedBluetoothDevices,
               AlexaConnectedBluetoothDevices)
    VORN_FIELD(VornBluetoothState, bluetoothState, setBluetoothState, BluetoothState)
    VORN_FIELD(VornNetworkInfo, networkInfo, setNetworkInfo, NetworkInfo)
    VORN_FIELD(VornPlayerVolumeChangeEvent, volumeChangeEvent, setVolumeChangeEvent, VolumeChangeEvent)
    VORN_FIELD(VornPowerManagerTarget, powerTarget, setPowerTarget, PowerTarget)

    qint32 i32() const { return i32_(); }
    qint64 i64() const { return i64_(); }
    QString string() const { return string_(); }
    QStringList stringList() const { return stringList_(); }
    VornValue& setBool(bool value) { return setBool_(value); }
    VornValue& setI32(qint32 value) { return setI32_(value); }
    VornValue& setI64(qint64 value) { return setI64_(value); }
    VornValue& setString(const QString& value) { return setString_(value); }
    VornValue& setStringList(const QStringList& value) { return setStringList_(value); }

#define VORN_VALUE_TYPE(type, getter, setter, Key) Key,
    enum class Type { Hash, VORN_VALUE_FIELDS(VORN_VALUE_TYPE) };
#undef VORN_VALUE_TYPE

    /// The type whose field is the only one and reads as that type; a plain hash otherwise.
    Type type() const;

    /// For messages: the key of the type's field without a trailing underscore ("i32"), or "hash".
    static QString typeName(Type type);

    /// The bare form: 5 for {"i32_": 5}; a plain hash is its own bare form.
    QVariant scalar() const;

    /// The value with the bare form `scalar` in the field of `type`. A hash or map is taken as a whole
    /// value instead, whatever the type. Otherwise *ok is false and the result empty when the scalar is
    /// of another JSON type or does not fit the field.
    static VornValue fromScalar(Type type, const QVariant& scalar, bool* ok);
};

Q_DECLARE_METATYPE(VornValue)
