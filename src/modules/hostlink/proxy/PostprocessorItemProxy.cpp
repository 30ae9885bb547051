#include "modules/hostlink/proxy/PostprocessorItemProxy.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "modules/hostlink/CheckedConnect.h"
#include "modules/hostlink/Log.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMItem.h"
#include "platform/sdk/CMWorker.h"
#include "platform/sdk/Paths.h"
#include "platform/sdk/VornPlayerEqualizer.h"
#include "platform/sdk/VornValue.h"

namespace
{
using Bands = VornList<VornPlayerEqualizer>;

constexpr std::size_t kGainSize = 2;

/// Truncated toward zero and held within 32 bits, from which any narrower number can be cut.
int truncated(double number)
{
    using Limits = std::numeric_limits<int>;
    if (std::isnan(number)) {
        return 0;
    }
    return static_cast<int>(
        std::clamp(number, static_cast<double>(Limits::min()), static_cast<double>(Limits::max())));
}

int tenths(double number)
{
    return truncated(number * 10);
}

std::int8_t toneByte(const CMValueItem* item)
{
    return static_cast<std::int8_t>(tenths(item->value().double_()));
}

void append16(ByteArray& bytes, int number)
{
    const auto low16 = static_cast<std::uint16_t>(number);
    bytes.push_back(static_cast<std::uint8_t>(low16 >> 8U));
    bytes.push_back(static_cast<std::uint8_t>(low16 & 0xFFU));
}

ByteArray layoutOf(const Bands& bands)
{
    ByteArray bytes;
    for (const VornPlayerEqualizer& band : bands) {
        append16(bytes, truncated(band.band()));
        append16(bytes, tenths(band.min()));
        append16(bytes, tenths(band.max()));
        append16(bytes, tenths(band.step()));
    }
    return bytes;
}

ByteArray gainsOf(const Bands& bands)
{
    ByteArray bytes;
    for (const VornPlayerEqualizer& band : bands) {
        append16(bytes, tenths(band.value()));
    }
    return bytes;
}

double gainAt(const ByteArray& bytes, std::size_t band)
{
    const int number = bytes[band * kGainSize] * 256 + bytes[band * kGainSize + 1];
    return static_cast<std::int16_t>(number) / 10.0;
}

bool writeNode(const CMValueItem* item, const VornValue& value)
{
    CMRoot()->setValue(item->path(), value, CMVoidReply(new CMReplyData<QVariant>));
    return true;
}
} // namespace

PostprocessorItemProxy::PostprocessorItemProxy(QObject* parent)
    : ValueProxy(parent), m_bass(watch(VornPlayerBassPath(), &PostprocessorItemProxy::on_bass_changed)),
      m_treble(watch(VornPlayerTreblePath(), &PostprocessorItemProxy::on_treble_changed)),
      m_loudness(watch(VornPlayerLoudnessPath(), &PostprocessorItemProxy::on_loudness_changed)),
      m_balance(watch(VornPlayerBalancePath(), &PostprocessorItemProxy::on_balance_changed)),
      m_equalizerOnOff(
          watch(VornPlayerEqualizerOnOffPath(), &PostprocessorItemProxy::on_equalizerOnOff_changed)),
      m_postprocessingOnOff(watch(VornPlayerPostprocessingOnOffPath(),
                                  &PostprocessorItemProxy::on_postprocessingOnOff_changed)),
      m_equalizer(
          watch(VornPlayerEqualizerConfigurationPath(), &PostprocessorItemProxy::on_equalizer_changed))
{
}

CMValueItem* PostprocessorItemProxy::watch(const CMPath& path, Slot slot)
{
    auto* item = new CMValueItem(this, path);
    connectChecked(item, &CMValueItem::changed, this, slot);
    return item;
}

void PostprocessorItemProxy::setValue(State state, const HostLinkValueMessage& request, int index,
                                      HostLinkValueMessage* reply)
{
    bool taken = false;
    switch (state) {
    case STA_Balance: taken = writeTone(m_balance, request, index); break;
    case STA_Bass: taken = writeTone(m_bass, request, index); break;
    case STA_Treble: taken = writeTone(m_treble, request, index); break;
    case STA_Loudness: taken = writeLoudness(m_loudness, request, index); break;
    case STA_PostprocessingOnOff: taken = writeSwitch(m_postprocessingOnOff, request, index); break;
    case STA_EqualizerOnOff: taken = writeSwitch(m_equalizerOnOff, request, index); break;
    case STA_EqualizerValues: taken = writeGains(m_equalizer, request, index); break;
    default: break;
    }
    reply->addValueUint8(state, taken ? 1 : 0);
}

bool PostprocessorItemProxy::writeTone(const CMValueItem* item, const HostLinkValueMessage& request,
                                       int index)
{
    bool ok = false;
    const bool isOn = request.getInt8(index, &ok) != 0;
    return ok && writeNode(item, VornValue().setDouble_((isOn ? 1 : 0) / 10.0));
}

bool PostprocessorItemProxy::writeLoudness(const CMValueItem* item, const HostLinkValueMessage& request,
                                           int index)
{
    bool ok = false;
    const bool isOn = request.getUint8(index, &ok) != 0;
    return ok && writeNode(item, VornValue().setI32_(isOn ? 1 : 0));
}

bool PostprocessorItemProxy::writeSwitch(const CMValueItem* item, const HostLinkValueMessage& request,
                                         int index)
{
    bool ok = false;
    const bool isOn = request.getUint8(index, &ok) != 0;
    return ok && writeNode(item, VornValue().setBool_(isOn));
}

bool PostprocessorItemProxy::writeGains(const CMValueItem* item, const HostLinkValueMessage& request,
                                        int index)
{
    bool ok = false;
    const ByteArray bytes = request.getBin16(index, &ok);
    if (!ok) {
        return false;
    }
    Bands bands = item->value().eqBandList();
    const auto count = static_cast<std::size_t>(bands.size());
    if (bytes.size() != count * kGainSize) {
        LOG4CPLUS_ERROR(hostLinkLogger, "Incorrect binary size: expected "
                                            << count * kGainSize << " bytes, received " << bytes.size()
                                            << " bytes!");
        return false;
    }
    for (std::size_t i = 0; i < count; ++i) {
        VornPlayerEqualizer band = bands[static_cast<int>(i)];
        band.setValue(gainAt(bytes, i));
        bands[static_cast<int>(i)] = band;
    }
    return writeNode(item, VornValue().setEqBandList(bands));
}

void PostprocessorItemProxy::getValue(State state, HostLinkValueMessage* reply)
{
    switch (state) {
    case STA_Balance: reply->addValueInt8(state, toneByte(m_balance)); break;
    case STA_Bass: reply->addValueInt8(state, toneByte(m_bass)); break;
    case STA_Treble: reply->addValueInt8(state, toneByte(m_treble)); break;
    case STA_Loudness:
        reply->addValueInt8(state, static_cast<std::int8_t>(m_loudness->value().i32_()));
        break;
    case STA_PostprocessingOnOff:
        reply->addValueUint8(state, m_postprocessingOnOff->value().bool_() ? 1 : 0);
        break;
    case STA_EqualizerOnOff: reply->addValueUint8(state, m_equalizerOnOff->value().bool_() ? 1 : 0); break;
    case STA_EqualizerConfiguration:
        reply->addValueBin16(state, layoutOf(m_equalizer->value().eqBandList()));
        break;
    case STA_EqualizerValues: reply->addValueBin16(state, gainsOf(m_equalizer->value().eqBandList())); break;
    default: break;
    }
}

QList<State> PostprocessorItemProxy::states() const
{
    return {STA_Balance,
            STA_Bass,
            STA_Treble,
            STA_Loudness,
            STA_PostprocessingOnOff,
            STA_EqualizerOnOff,
            STA_EqualizerConfiguration,
            STA_EqualizerValues};
}

void PostprocessorItemProxy::on_balance_changed(const VornValue& /*value*/)
{
    HOSTLINK_TRACE_FUNCTION();
    emit valueChanged({STA_Balance});
}

void PostprocessorItemProxy::on_bass_changed(const VornValue& /*value*/)
{
    HOSTLINK_TRACE_FUNCTION();
    emit valueChanged({STA_Bass});
}

void PostprocessorItemProxy::on_treble_changed(const VornValue& /*value*/)
{
    HOSTLINK_TRACE_FUNCTION();
    emit valueChanged({STA_Treble});
}

void PostprocessorItemProxy::on_loudness_changed(const VornValue& /*value*/)
{
    HOSTLINK_TRACE_FUNCTION();
    emit valueChanged({STA_Loudness});
}

void PostprocessorItemProxy::on_postprocessingOnOff_changed(const VornValue& /*value*/)
{
    HOSTLINK_TRACE_FUNCTION();
    emit valueChanged({STA_PostprocessingOnOff});
}

void PostprocessorItemProxy::on_equalizerOnOff_changed(const VornValue& /*value*/)
{
    HOSTLINK_TRACE_FUNCTION();
    emit valueChanged({STA_EqualizerOnOff});
}

/// The layout is not told: the host reads it when it needs it.
void PostprocessorItemProxy::on_equalizer_changed(const VornValue& /*value*/)
{
    HOSTLINK_TRACE_FUNCTION();
    emit valueChanged({STA_EqualizerValues});
}
