#include <filesystem>
#include <fstream>

#include "modules/hostlink/proxy/PlaybackItemProxy.h"
#include "support/PrivateRoot.h"
#include "support/ProxyFixture.h"

namespace
{

namespace fs = std::filesystem;

const std::string kCard = "/proc/asound/card0/pcm0p/sub0";

/// What a sound card tells while it plays 48 kHz.
constexpr const char* kPlaying = "access: RW_INTERLEAVED\n"
                                 "format: S16_LE\n"
                                 "subformat: STD\n"
                                 "channels: 2\n"
                                 "rate: 48000 (48000/1)\n"
                                 "period_size: 1024\n"
                                 "buffer_size: 4096\n";

/// A player whose track has no resource, on a machine with the sound card that a test describes.
class SampleRateTest : public ProxyFixture
{
protected:
    SampleRateTest()
    {
        fs::create_directories(kCard);
        listenTo(m_proxy);
    }

    static void tell(const std::string& parameters) { std::ofstream(kCard + "/hw_params") << parameters; }

    /// The player's data changes, though nothing that the host is told.
    void touch() { m_data->setValue(VornHash{{"touched", ++m_touched}}); }

    std::string rate() { return read(m_proxy, {STA_TarkoSampleRate}); }
    static std::string code(int number)
    {
        return "MSG_GetStateResponse STA_TarkoSampleRate=u8:" + std::to_string(number);
    }
    static std::string none() { return "MSG_GetStateResponse"; }

    TemporaryMount m_proc{"/proc"};
    CMValueNode* m_data = createNode(VornPlayLogicDataPath(), VornValue());
    PlaybackItemProxy m_proxy{nullptr};

private:
    int m_touched = 0;
};

} // namespace

TEST_F(SampleRateTest, IsTheSoundCardsWhereTheTrackHasNoResource)
{
    tell(kPlaying);
    m_log.clear();
    EXPECT_EQ(rate(), code(3));
    EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL,
                          "alsaOutputParameters: access: RW_INTERLEAVED format: S16_LE subformat: STD "
                          "channels: 2 rate: 48000 (48000/1) period_size: 1024 buffer_size: 4096"),
              1U);
    tell("rate: 44100 (44100/1)\n");
    EXPECT_EQ(rate(), code(2));
    tell("rate:\t\n 8000");
    EXPECT_EQ(rate(), code(2)) << "low rates are told as the lowest";
}

TEST_F(SampleRateTest, IsNotToldWithoutASoundCardThatPlays)
{
    EXPECT_EQ(rate(), none()) << "no card";
    for (const char* parameters : {"closed\n", "", "rate: fast\n", "Rate: 48000\n", "rate:48000\n",
                                   "rate: 0\n", "rate: 99999999999\n"}) {
        tell(parameters);
        EXPECT_EQ(rate(), none()) << parameters;
    }
}

TEST_F(SampleRateTest, IsTheTracksWhereItHasAResource)
{
    tell(kPlaying);
    const QVariantList resources{QVariantHash{{"sampleFrequency", 96000}}, QVariantHash()};
    m_data->setValue(
        VornHash{{"trackRoles", QVariantHash{{"mediaData", QVariantHash{{"resources", resources}}}}}});
    EXPECT_EQ(rate(), code(5));
    const QVariantList unknown{QVariantHash()};
    m_data->setValue(
        VornHash{{"trackRoles", QVariantHash{{"mediaData", QVariantHash{{"resources", unknown}}}}}});
    EXPECT_EQ(rate(), none()) << "even where it does not say";
}

TEST_F(SampleRateTest, IsToldWhenItDiffersFromTheOneToldLast)
{
    touch();
    EXPECT_EQ(told(), (States{{}}));
    tell(kPlaying);
    touch();
    EXPECT_EQ(told(), States{{STA_TarkoSampleRate}});
    touch();
    EXPECT_EQ(told(), (States{{}})) << "the data before did not say it either";
    tell("closed\n");
    touch();
    EXPECT_EQ(told(), States{{STA_TarkoSampleRate}});
}
