#include "services/Equalizer.h"

#include <gtest/gtest.h>

#include "platform/sdk/Paths.h"
#include "platform/sdk/VornJson.h"

namespace
{
using Bands = VornList<VornPlayerEqualizer>;

class EqualizerTest : public testing::Test
{
protected:
    static VornValue value()
    {
        return VornHash(CMRoot()->getValue(VornPlayerEqualizerConfigurationPath()).toHash());
    }

    /// What a write fails with; empty when it is done.
    static std::string write(const VornValue& value)
    {
        const CMReply<QVariant> reply;
        CMRoot()->setValue(VornPlayerEqualizerConfigurationPath(), value, reply);
        EXPECT_TRUE(reply.wait());
        return reply.error().Message().toStdString();
    }

    static std::string writeGain(int band, double gain)
    {
        Bands bands = value().eqBandList();
        bands[band].setValue(gain);
        return write(VornValue().setEqBandList(bands));
    }

    Equalizer m_equalizer;
};
} // namespace

TEST_F(EqualizerTest, HasFiveBandsAtFirst)
{
    const Bands bands = value().eqBandList();
    const double frequencies[] = {60, 250, 1000, 4000, 16000};
    ASSERT_EQ(bands.size(), 5);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(bands[i].toJsonString(),
                  QString(R"({"band":%1,"max":12,"min":-12,"step":0.5,"value":0})").arg(frequencies[i]));
    }
}

TEST_F(EqualizerTest, EachGainKeepsWithinItsBand)
{
    EXPECT_EQ(writeGain(0, 12), "");
    EXPECT_EQ(writeGain(4, -12), "");
    const VornValue before = value();
    EXPECT_EQ(writeGain(1, 12.1),
              "/player/equalizer/configuration: the band of 250 Hz takes -12 to 12 dB, not 12.1");
    EXPECT_EQ(writeGain(3, -3276.8),
              "/player/equalizer/configuration: the band of 4000 Hz takes -12 to 12 dB, not -3276.8");
    EXPECT_TRUE(value().sameAs(before));
}

TEST_F(EqualizerTest, TakesAnyNumberOfBands)
{
    for (const int count : {31, 1, 0, 5}) {
        Bands bands;
        for (int i = 0; i < count; ++i) {
            VornPlayerEqualizer band;
            bands.append(band.setBand(20 * i).setMin(-i).setMax(1).setStep(1).setValue(-i));
        }
        EXPECT_EQ(write(VornValue().setEqBandList(bands)), "");
        EXPECT_EQ(value().eqBandList().size(), count);
    }
}

TEST_F(EqualizerTest, AnythingElseIsRefused)
{
    const VornValue before = value();
    for (const VornValue& other : {VornValue(), VornValue().setI32(1), VornValue(VornHash{{"eqBandList", 5}}),
                                   VornValue(VornHash{{"eqBandList", QVariantList{5}}})}) {
        EXPECT_EQ(write(other).find("/player/equalizer/configuration: takes {\"eqBandList\":["), 0U);
    }
    EXPECT_TRUE(value().sameAs(before));
}
