#include "modules/hostlink/proxy/NodeConversion.h"

#include <string>
#include <string_view>

#include "modules/hostlink/Log.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/VornJson.h"
#include "platform/sdk/VornValue.h"

namespace
{

using Kind = CMValueItemProxyConvert;

/// One value on its way to the host: traced under its conversion's name, then appended.
struct Answer {
    Kind convert;
    State state;
    HostLinkValueMessage* message;

    bool uint8(int number) const
    {
        const auto byte = static_cast<std::uint8_t>(number);
        trace(+byte);
        message->addValueUint8(state, byte);
        return true;
    }

    bool int32(std::int32_t number) const
    {
        trace(number);
        message->addValueInt32(state, number);
        return true;
    }

    bool uint32(std::uint32_t number) const
    {
        trace(number);
        message->addValueUint32(state, number);
        return true;
    }

    bool int64(std::int64_t number) const
    {
        trace(number);
        message->addValueInt64(state, number);
        return true;
    }

    /// A text ends at its first zero byte.
    bool text(const QString& text) const
    {
        const QByteArray utf8 = text.toUtf8();
        const std::string_view bytes(utf8.constData());
        trace(bytes);
        message->addValueString(state, bytes);
        return true;
    }

    template <typename T>
    void trace(const T& value) const
    {
        LOG4CPLUS_TRACE(hostLinkLogger, conversionRow(convert).name << ": " << value);
    }
};

/// A text of the host, which ends at its first zero byte too.
QString textAt(const HostLinkValueMessage& message, int index, bool* ok)
{
    const std::string_view text = message.getStringView(index, ok);
    const std::string_view shown = text.substr(0, text.find('\0'));
    return QString::fromUtf8(shown.data(), static_cast<int>(shown.size()));
}

/// Whatever text arrives there is a value: a node never keeps what the host meant to replace.
Received parseJson(const QString& text, VornValue* value)
{
    VornJson::Error error;
    const QVariant parsed = VornJson::parseValue(text, &error);
    *value = VornHash(parsed.toHash());
    if (error.code() == 0) {
        return Received::Value;
    }
    LOG4CPLUS_ERROR(hostLinkLogger,
                    "VornValue::fromJsonString failed with: " << error.toString().toStdString()
                                                              << " on string: " << text.toStdString());
    return Received::BrokenJson;
}

} // namespace

bool convertFromNode(CMValueItemProxyConvert convert, const VornValue& value, State state,
                     HostLinkValueMessage* message)
{
    const Answer answer{convert, state, message};
    switch (convert) {
    case Kind::Uint8VornBool: return answer.uint8(value.bool_() ? 1 : 0);
    case Kind::Uint8VornI32: return answer.uint8(value.i32());
    case Kind::Int32VornI32: return answer.int32(value.i32());
    case Kind::Int64VornI64: return answer.int64(value.i64());
    case Kind::Bin16VornString: return answer.text(value.string());
    case Kind::Uint32VornI32: return answer.uint32(static_cast<std::uint32_t>(value.i32()));
    case Kind::OutputType: return answer.uint8(value.outputType());
    case Kind::MqaState: return answer.uint8(value.mqaState());
    case Kind::SomUpgradeStatus: return answer.uint8(value.somUpgradeStatus());
    case Kind::Region: return answer.uint8(value.region());
    case Kind::HaloBrightness: return answer.uint8(value.haloBrightness());
    case Kind::IrSystemCode: return answer.uint8(value.irSystemCode());
    case Kind::InputAutoSwitch: return answer.uint8(value.inputAutoSwitch());
    case Kind::DacFilter: return answer.uint8(value.dacFilter());
    case Kind::Bin16VornValueJson: return answer.text(value.toJsonString());
    case Kind::Uint8InputState: return answer.uint8(value.inputState());
    case Kind::HostModel:
    case Kind::VolumeMode:
    case Kind::HostUpgradeStatus: break;
    }
    return false;
}

Received convertToNode(CMValueItemProxyConvert convert, const HostLinkValueMessage& message, int index,
                       VornValue* value)
{
    constexpr int kFirst = 0;
    bool ok = false;
    switch (convert) {
    case Kind::Uint8VornBool: value->setBool(message.getUint8(index, &ok) != 0); break;
    case Kind::Uint8VornI32: value->setI32(message.getUint8(index, &ok)); break;
    case Kind::Int32VornI32: value->setI32(message.getInt32(index, &ok)); break;
    case Kind::Int64VornI64: value->setI64(message.getInt64(index, &ok)); break;
    case Kind::Bin16VornString: value->setString(textAt(message, index, &ok)); break;
    case Kind::Uint32VornI32: value->setI32(static_cast<qint32>(message.getUint32(index, &ok))); break;
    case Kind::VolumeMode:
        value->setVolumeMode(VornKestalPrimeVolumeMode::Enum(message.getUint8(kFirst, &ok)));
        break;
    case Kind::HostUpgradeStatus:
        value->setHostUpgradeStatus(VornKestalPrimeHostUpgradeStatus::Enum(message.getUint8(kFirst, &ok)));
        break;
    case Kind::Region: value->setRegion(VornKestalPrimeRegion::Enum(message.getUint8(kFirst, &ok))); break;
    case Kind::Bin16VornValueJson: {
        const QString text = textAt(message, index, &ok);
        return ok ? parseJson(text, value) : Received::Nothing;
    }
    case Kind::Uint8InputState:
        value->setInputState(VornHostLinkdInputStateType::Enum(message.getUint8(index, &ok)));
        break;
    case Kind::HostModel:
    case Kind::OutputType:
    case Kind::MqaState:
    case Kind::SomUpgradeStatus:
    case Kind::HaloBrightness:
    case Kind::IrSystemCode:
    case Kind::InputAutoSwitch:
    case Kind::DacFilter: break;
    }
    return ok ? Received::Value : Received::Nothing;
}
