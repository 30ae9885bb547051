// JSON text: as any value, as the value of a node, as a text of the command line.

#include <QTextCodec>

#include "FuzzInput.h"
#include "cli/JsonText.h"
#include "platform/sdk/VornJson.h"
#include "platform/sdk/VornValue.h"

namespace
{

bool isSame(const QVariant& a, const QVariant& b)
{
    return VornHash{{"value", a}}.sameAs(VornHash{{"value", b}});
}

/// What is printed reads as the same value again, which prints as the same text.
void requireRoundTrip(const QVariant& json)
{
    const QString text = VornJson::print(json);
    VornJson::Error error;
    const QVariant again = VornJson::parse(text, &error);
    require(error.isEmpty() && isSame(json, again));
    require(VornJson::print(again) == text && !text.contains('\n'));
}

/// A bare value makes a node's value of a type, or is refused; then it is the bare form of what it made.
void requireTyped(VornValue::Type type, const QVariant& json)
{
    bool isTaken = false;
    const VornValue value = VornValue::fromScalar(type, json, &isTaken);
    require(isTaken || value.isEmpty());
    if (!isTaken || json.userType() == QMetaType::QVariantHash) {
        return;
    }
    require(value.type() == type);
    require(type == VornValue::Type::Double ? value.double_() == json.toDouble()
                                            : isSame(value.scalar(), json));
    requireRoundTrip(QVariantHash(value));
}

#define FIELD(type, getter, setter, Key) VornValue::Type::Key,
constexpr VornValue::Type kTypes[] = {VornValue::Type::Hash, VORN_VALUE_FIELDS(FIELD)};
#undef FIELD

/// Reads all that can be read of a value.
void readFields(const VornValue& value)
{
#define FIELD(type, getter, setter, Key) VornValue().setter(value.getter());
    VORN_VALUE_FIELDS(FIELD)
#undef FIELD
    require(value.scalar().isValid());
    require(!VornValue::typeName(value.type()).isEmpty());
    VornValue copy;
    copy.setAlexaConnectedBluetoothDevices(value.alexaConnectedBluetoothDevices());
    copy.setAudioDevice(value.audioDevice());
    copy.setBluetoothState(value.bluetoothState());
    copy.setEqBandList(value.eqBandList());
    copy.setNetworkInfo(value.networkInfo());
    copy.setVolumeChangeEvent(value.volumeChangeEvent());
    copy.setPowerTarget(value.powerTarget());
    requireRoundTrip(QVariantHash(copy));
}

/// Any bytes are a text that can be read back; UTF-8 stays as it is.
void requireString(const std::string& bytes)
{
    const QString text = QString::fromStdString(jsonString(bytes));
    VornJson::Error error;
    const QVariant json = VornJson::parse(text, &error);
    require(error.isEmpty() && json.userType() == QMetaType::QString);
    QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
    const QString plain =
        QTextCodec::codecForName("UTF-8")->toUnicode(bytes.data(), static_cast<int>(bytes.size()), &state);
    require(state.invalidChars != 0 || state.remainingChars != 0 || json.toString() == plain);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string bytes(data, data + size);
    requireString(bytes);
    VornJson::Error error;
    const QVariant json = VornJson::parse(QString::fromStdString(bytes), &error);
    require(error.isEmpty() || !json.isValid());
    require(error.isEmpty() == error.toString().isEmpty());
    if (!error.isEmpty()) {
        return 0;
    }
    requireRoundTrip(json);
    for (const VornValue::Type type : kTypes) {
        requireTyped(type, json);
    }
    readFields(VornHash(json.toHash()));
    return 0;
}
