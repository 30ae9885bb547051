#include <signal.h>

#include <fstream>
#include <iterator>

#include "support/ModuleFixture.h"

namespace
{
constexpr const char* kParameters = "/proc/asound/card0/pcm0p/sub0/hw_params";
constexpr const char* kNoRate = "STA_TarkoSampleRate\tnone\t\n";

std::string rateCode(int code)
{
    return "STA_TarkoSampleRate\tu8\t" + std::to_string(code) + "\n";
}

std::string parameters()
{
    std::ifstream file(kParameters);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Silence at this rate, straight to the sound card, which takes it as it is; until stop() or the end.
class Silence
{
public:
    explicit Silence(int rate) // Hz
        : m_player("/usr/bin/aplay",
                   {"-v", "-D", "hw:0,0", "-t", "raw", "-f", "S16_LE", "-c", "2", "-r", std::to_string(rate),
                    "/dev/zero"},
                   Program::Input::Empty)
    {
        EXPECT_TRUE(m_player.waitForError("buffer_size")) << "the card is not set up";
    }

    void stop()
    {
        m_player.signal(SIGTERM);
        m_player.wait();
    }

private:
    Program m_player;
};
} // namespace

/// A module whose player has no track, or one without resources, on a machine with a sound card.
class SoundCard : public ModuleFixture
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(parameters(), "closed\n") << "no card, or another one's sound";
        ModuleFixture::SetUp();
    }

    static std::string rate() { return host({"get", "777"}).out; }
};

TEST_F(SoundCard, ItsRateIsTheOneOfATrackWithoutResources)
{
    {
        Silence silence(44100);
        EXPECT_EQ(rate(), rateCode(2)) << "no track at all; " << parameters();
        silence.stop();
    }
    EXPECT_EQ(rate(), kNoRate);
    const ProgramResult played =
        Program::run({"node", "invoke", "VornPlayLogicPlayPath", R"({"roles": {"title": "radio"}})"});
    EXPECT_EQ(played.status, 0) << played.err;
    const Silence silence(48000);
    EXPECT_EQ(rate(), rateCode(3)) << parameters();
}
