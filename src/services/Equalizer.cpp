#include "services/Equalizer.h"

#include "platform/sdk/CMNode.h"
#include "platform/sdk/Paths.h"
#include "platform/sdk/VornJson.h"

namespace
{
using Bands = VornList<VornPlayerEqualizer>;

constexpr double kFirstFrequencies[] = {60, 250, 1000, 4000, 16000};
constexpr double kLimit = 12;
constexpr double kStep = 0.5;

Bands firstBands()
{
    Bands bands;
    for (const double frequency : kFirstFrequencies) {
        VornPlayerEqualizer band;
        band.setBand(frequency).setMin(-kLimit).setMax(kLimit).setStep(kStep).setValue(0);
        bands.append(band);
    }
    return bands;
}

QString objectionToBands(const VornValue& value)
{
    const auto bands = VornField::read<Bands>(value.value(VornValue::EqBandList()));
    if (!bands) {
        return R"(takes {"eqBandList":[{"band":60,"min":-12,"max":12,"step":0.5,"value":0}]}, not )"
               + value.toJsonString();
    }
    for (const VornPlayerEqualizer& band : *bands) {
        if (!(band.min() <= band.value() && band.value() <= band.max())) {
            return QString("the band of %1 Hz takes %2 to %3 dB, not %4")
                .arg(band.band())
                .arg(band.min())
                .arg(band.max())
                .arg(band.value());
        }
    }
    return {};
}
} // namespace

Equalizer::Equalizer()
    : CMNodesWorker({}, "Equalizer"),
      m_bands(CMValueNode::create(nodes(), VornPlayerEqualizerConfigurationPath()))
{
    m_bands->setValue(VornValue().setEqBandList(firstBands()));
    m_bands->setCheck(objectionToBands);
}
