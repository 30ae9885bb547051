#include <gtest/gtest.h>
#include <signal.h>

#include <fstream>
#include <memory>
#include <sstream>

#include "support/ModuleFixture.h"
#include "support/Texts.h"

namespace
{
using Arguments = Program::Arguments;
using Lines = std::vector<std::string>;

constexpr const char* kPlay = "VornPlayLogicPlayPath";
constexpr const char* kData = "VornPlayLogicDataPath";
constexpr const char* kSource = "VornTarkoExternalSourcePath";
constexpr const char* kBands = "VornPlayerEqualizerConfigurationPath";

const Arguments kTen{"STA_PlayState",     "STA_TrackDuration", "STA_TrackTitle",    "STA_TrackAlbum",
                     "STA_TrackArtist",   "STA_TrackIcon",     "STA_TrackMimeType", "STA_TarkoSampleRate",
                     "STA_AudioSourceId", "STA_PlayControls"};

Arguments with(Arguments first, const Arguments& more)
{
    first.insert(first.end(), more.begin(), more.end());
    return first;
}

/// A playlist with short names.
constexpr const char* kPlaylist = R"([
    {"title": "A", "artist": "B", "album": "C", "icon": "http://d/e", "service": "Files", "duration": 5000000000,
     "uri": "file:///a", "mimeType": "audio/flac", "sampleRate": 192000},
    {"title": "Ä", "artist": "B", "service": "Qobuz", "duration": 60000, "canBeRated": true,
     "uri": "file:///b", "mimeType": "audio/mpeg", "sampleRate": 44100},
    {"title": "broken", "uri": "file:///c", "error": "no such file"}
])";

/// A module that plays a playlist of the test.
class ModulePlayer : public RuntimeDirectory
{
protected:
    std::string fileWith(const std::string& content)
    {
        const std::string path = directory() + "/file" + std::to_string(++m_files) + ".json";
        std::ofstream(path) << content;
        return path;
    }

    void startModule(const Arguments& more = {})
    {
        m_module = std::make_unique<Program>(
            with({"module", "--state-dir", directory() + "/state", "--playlist", fileWith(kPlaylist)}, more));
        ASSERT_NE(m_module->waitForLine("ready link="), "");
    }

    std::string moduleErrors()
    {
        m_module->signal(SIGTERM);
        return m_module->wait().err;
    }

    static ProgramResult node(const Arguments& arguments) { return Program::run(with({"node"}, arguments)); }
    static std::string get(const std::string& path) { return node({"get", path}).out; }
    static void set(const std::string& path, const std::string& value)
    {
        const ProgramResult end = node({"set", path, value});
        EXPECT_EQ(end.status, 0) << end.err;
    }
    static void play(const std::string& request)
    {
        const ProgramResult end = node({"invoke", kPlay, request});
        EXPECT_EQ(end.status, 0) << end.err;
    }

    static void expectLines(Program& program, const Lines& lines)
    {
        for (const std::string& line : lines) {
            EXPECT_EQ(program.nextLineWith(line), line);
        }
    }

    /// The answer to a transport key.
    static std::string press(int key)
    {
        const ProgramResult end = host({"set", "STA_PlayControl=" + std::to_string(key)});
        EXPECT_EQ(end.status, contains(end.out, "u8\t1") ? 0 : 1);
        return end.out;
    }

    static std::string pressed(int answer) { return "STA_PlayControl\tu8\t" + std::to_string(answer) + "\n"; }

    std::unique_ptr<Program> m_module;

private:
    int m_files = 0;
};
} // namespace

TEST_F(ModulePlayer, WatchTellsWhatPlaysAsItChanges)
{
    startModule();
    Program watch(with({"host", "watch"}, kTen));
    expectLines(watch, {"STA_PlayState\tu8\t0", "STA_TrackDuration\ti64\t0", "STA_TrackTitle\tstr\t",
                        "STA_TrackMimeType\tstr\t", "STA_AudioSourceId\tu8\t0", "STA_PlayControls\ti32\t2"});
    play(R"({"track": 1})");
    expectLines(watch, {"STA_AudioSourceId\tu8\t3", "STA_PlayControls\ti32\t519", "STA_PlayState\tu8\t1",
                        "STA_TrackDuration\ti64\t5000000000", "STA_TrackTitle\tstr\tA",
                        "STA_TrackIcon\tstr\thttp://d/e", "STA_TrackAlbum\tstr\tC", "STA_TrackArtist\tstr\tB",
                        "STA_TarkoSampleRate\tu8\t7", "STA_TrackMimeType\tstr\taudio/flac"});
    EXPECT_EQ(node({"invoke", "VornPlayLogicPausePath", "{}"}).status, 0);
    expectLines(watch, {"STA_PlayState\tu8\t2"});
    play(R"({"track": 2})");
    expectLines(watch, {"STA_AudioSourceId\tu8\t20", "STA_PlayControls\ti32\t575", "STA_PlayState\tu8\t1",
                        "STA_TrackDuration\ti64\t60000", "STA_TrackTitle\tstr\tÄ", "STA_TrackIcon\tstr\t",
                        "STA_TrackAlbum\tstr\t", "STA_TarkoSampleRate\tu8\t2",
                        "STA_TrackMimeType\tstr\taudio/mpeg"});
    EXPECT_EQ(node({"invoke", "VornPlayLogicStopPath", "{}"}).status, 0);
    expectLines(watch, {"STA_PlayControls\ti32\t2", "STA_PlayState\tu8\t0", "STA_TrackTitle\tstr\t"});
    watch.signal(SIGINT);
    const ProgramResult end = watch.wait();
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(count(end.out, "STA_TrackArtist"), 3U) << "the second track has the first one's";
}

TEST_F(ModulePlayer, TheHostsKeysMoveThePlayerAsFarAsItOffersThem)
{
    startModule();
    EXPECT_EQ(press(2), pressed(0)) << "nothing plays";
    EXPECT_EQ(press(1), pressed(1)) << "a stop is never refused";
    play(R"({"track": 1})");
    EXPECT_EQ(press(4), pressed(0)) << "not to be rated";
    EXPECT_EQ(press(2), pressed(1));
    EXPECT_EQ(host({"get", "STA_TrackTitle"}).out, "STA_TrackTitle\tstr\tÄ\n");
    EXPECT_EQ(press(4), pressed(1));
    EXPECT_EQ(press(4), pressed(0)) << "it is liked";
    EXPECT_EQ(press(5), pressed(1));
    EXPECT_EQ(press(0), pressed(1));
    EXPECT_EQ(host({"get", "STA_PlayState"}).out, "STA_PlayState\tu8\t2\n");
    EXPECT_EQ(press(0), pressed(1));
    EXPECT_EQ(host({"get", "STA_PlayState"}).out, "STA_PlayState\tu8\t1\n");
    EXPECT_EQ(press(3), pressed(1));
    EXPECT_EQ(host({"get", "STA_TrackTitle"}).out, "STA_TrackTitle\tstr\tA\n");
    EXPECT_EQ(press(3), pressed(0));
    EXPECT_EQ(press(6), pressed(0));
    EXPECT_EQ(press(1), pressed(1));
    EXPECT_EQ(host({"get", "STA_PlayState"}).out, "STA_PlayState\tu8\t0\n");
    EXPECT_TRUE(contains(moduleErrors(), "ERROR HostLink: playerControl control: 6 is not supported\n"));
}

TEST_F(ModulePlayer, TheLastTrackHasNoNext)
{
    startModule();
    play(R"({"roles": {"title": "radio"}})");
    EXPECT_EQ(press(2), pressed(0));
    EXPECT_EQ(host({"get", "STA_TrackTitle"}).out, "STA_TrackTitle\tstr\tradio\n");
}

TEST_F(ModulePlayer, ThePositionAdvancesAndCanBeSought)
{
    startModule();
    Program watch({"host", "watch", "STA_PlayTime"});
    expectLines(watch, {"STA_PlayTime\ti64\t73500"});
    play(R"({"track": 1})");
    expectLines(watch, {"STA_PlayTime\ti64\t0"});
    const std::string moved = watch.nextLineWith("STA_PlayTime");
    ASSERT_NE(moved, "");
    EXPECT_GE(std::stoll(moved.substr(moved.rfind('\t') + 1)), 900);
    watch.signal(SIGINT);
    watch.wait();
    EXPECT_EQ(host({"set", "STA_PlayTime=4000000000"}).status, 0);
    EXPECT_EQ(get("VornPlayLogicPlayTimePath").substr(0, 6), "400000");
}

TEST_F(ModulePlayer, ATrackThatCannotBePlayedIsSaid)
{
    startModule();
    const ProgramResult end = node({"invoke", kPlay, R"({"track": 3})"});
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(end.err, "hostlink node: /player/instance/play: no such file\n");
    EXPECT_TRUE(contains(get(kData), R"("error":"no such file")"));
    EXPECT_TRUE(contains(moduleErrors(), "WARN  Services.Player: cannot play 'broken': no such file\n"));
}

TEST_F(ModulePlayer, TheStandardPlaylistPlays)
{
    m_module = std::make_unique<Program>(Arguments{"module", "--state-dir", directory() + "/state"});
    ASSERT_NE(m_module->waitForLine("ready link="), "");
    play("{}");
    EXPECT_EQ(host({"get", "STA_TrackTitle", "STA_PlayState"}).out,
              "STA_TrackTitle\tstr\tSlow Tide\nSTA_PlayState\tu8\t1\n");
}

TEST_F(ModulePlayer, ABadPlaylistIsWrongUsage)
{
    const std::string bad = fileWith(R"([{"title": 5}])");
    const ProgramResult end =
        Program::run({"module", "--state-dir", directory() + "/state", "--playlist", bad});
    EXPECT_EQ(end.status, 2);
    EXPECT_EQ(end.out, "");
    EXPECT_EQ(end.err, "hostlink module: " + bad + ": track 1: title takes a text, not 5\n");
}

TEST_F(ModulePlayer, TheExternalSourcePlaysTheLineInDeviceOnce)
{
    startModule();
    set("VornPlayerLineInDeviceSettingsPath",
        R"({"audioDevice":{"device":"hw:1,0","sampleRate":48000,"channels":2,"format":"","bps":24,)"
        R"("periodTime":10,"bufferTime":100,"inputTsOffset":0,"useDriftComp":true}})");
    play(R"({"track": 1})");
    const std::string uri = R"("uri":"alsa://hw:1,0?rate=48000?channels=2?format=S24LE?latency-time=10000)"
                            R"(?buffer-time=100000?drift-comp=1")";
    Program watch({"node", "watch", kData});
    watch.nextLineWith("file:///a");
    set(kSource, "1");
    set(kSource, "2");
    const std::string played = watch.nextLineWith("alsa://");
    EXPECT_TRUE(contains(played, uri)) << played;
    EXPECT_EQ(host(with({"get"}, {"STA_AudioSourceId", "STA_PlayState", "STA_TarkoSampleRate",
                                  "STA_TrackMimeType", "STA_PlayControls"}))
                  .out,
              "STA_AudioSourceId\tu8\t24\nSTA_PlayState\tu8\t1\nSTA_TarkoSampleRate\tu8\t3\n"
              "STA_TrackMimeType\tstr\taudio/unknown\nSTA_PlayControls\ti32\t2\n");
    set(kSource, "3"); // the second request's time would have come long before this one's
    EXPECT_TRUE(contains(watch.nextLineWith("alsa://"), uri));
    watch.signal(SIGINT);
    std::istringstream lines(watch.wait().out);
    int plays = 0;
    for (std::string line; std::getline(lines, line);) {
        plays += contains(line, "alsa://") ? 1 : 0;
    }
    EXPECT_EQ(plays, 2);
    EXPECT_EQ(press(1), pressed(1));
    EXPECT_EQ(host({"get", "STA_AudioSourceId"}).out, "STA_AudioSourceId\tu8\t0\n");
}

TEST_F(ModulePlayer, ALineInWithoutADeviceIsAnErrorOfBoth)
{
    startModule();
    set("VornPlayerLineInDeviceSettingsPath", R"({"audioDevice":{}})");
    Program watch({"node", "watch", kData});
    set(kSource, "1");
    EXPECT_NE(watch.nextLineWith("alsa:// names no device"), "");
    const std::string errors = moduleErrors();
    EXPECT_TRUE(contains(errors, "ERROR HostLink: Unable to read/parse alsa device!\n")) << errors;
}

TEST_F(ModulePlayer, TheLabWorkerTakesTheHostsInput)
{
    startModule({"--plugin", LAB_WORKER});
    Program watch({"node", "watch", kData});
    const ProgramResult end = host({"set", "STA_TarkoAudioInput=3"});
    EXPECT_EQ(end.status, 1) << "it is not answered";
    EXPECT_EQ(end.out, "STA_TarkoAudioInput\tnone\t\n");
    EXPECT_NE(watch.nextLineWith("alsa://hw:1,0"), "");
    EXPECT_EQ(host({"get", "STA_TarkoAudioInput", "STA_DiracFilterSettings", "STA_InputState"}).out,
              "STA_TarkoAudioInput\tu8\t3\nSTA_DiracFilterSettings\tnil\t\nSTA_InputState\tu8\t0\n");
    EXPECT_EQ(host({"set", "STA_InputState=3"}).out, "STA_InputState\tu8\t1\n");
}

TEST_F(ModulePlayer, EqualizersOfAnySizeTravel)
{
    startModule();
    for (const int size : {0, 1, 5, 31}) {
        std::string bands;
        std::string layout;
        std::string gains;
        std::string written;
        for (int i = 0; i < size; ++i) {
            bands += std::string(bands.empty() ? "" : ",")
                     + R"({"band":1000,"min":-12,"max":12,"step":0.5,"value":-0.25})";
            layout += "03e8ff8800780005";
            gains += "fffe";
            written += i % 2 == 0 ? "ff9c" : "0078";
        }
        set(kBands, "{\"eqBandList\":[" + bands + "]}");
        EXPECT_EQ(host({"get", "STA_EqualizerConfiguration", "STA_EqualizerValues"}).out,
                  "STA_EqualizerConfiguration\tbin\t" + layout + "\nSTA_EqualizerValues\tbin\t" + gains
                      + "\n");
        EXPECT_EQ(host({"set", "STA_EqualizerValues=" + written}).out, "STA_EqualizerValues\tu8\t1\n");
        EXPECT_EQ(host({"get", "STA_EqualizerValues"}).out, "STA_EqualizerValues\tbin\t" + written + "\n");
        EXPECT_EQ(count(get(kBands), R"("value":-10})"), std::size_t((size + 1) / 2));
    }
}

TEST_F(ModulePlayer, GainsOfAnotherSizeOrBeyondTheirBandChangeNothing)
{
    startModule();
    const std::string before = get(kBands);
    EXPECT_EQ(host({"set", "STA_EqualizerValues=0001000200030004"}).out, "STA_EqualizerValues\tu8\t0\n");
    EXPECT_EQ(host({"set", "STA_EqualizerValues=000100020003000400050006"}).out,
              "STA_EqualizerValues\tu8\t0\n");
    EXPECT_EQ(host({"set", "STA_EqualizerValues=00010002000300047fff"}).out, "STA_EqualizerValues\tu8\t1\n")
        << "the node's own refusal is not seen";
    EXPECT_EQ(get(kBands), before);
    const std::string errors = moduleErrors();
    EXPECT_TRUE(
        contains(errors, "ERROR HostLink: Incorrect binary size: expected 10 bytes, received 8 bytes!\n"))
        << errors;
    EXPECT_TRUE(
        contains(errors, "ERROR HostLink: Incorrect binary size: expected 10 bytes, received 12 bytes!\n"))
        << errors;
}

TEST_F(ModulePlayer, TonesAreReadInTenthsAndWrittenOnOrOff)
{
    startModule();
    EXPECT_EQ(host({"get", "STA_Bass", "STA_Treble", "STA_Balance", "STA_Loudness"}).out,
              "STA_Bass\ti8\t15\nSTA_Treble\ti8\t-5\nSTA_Balance\ti8\t0\nSTA_Loudness\ti8\t0\n");
    EXPECT_EQ(host({"set", "STA_Bass=-20", "STA_Treble=0", "STA_Loudness=7"}).status, 0);
    EXPECT_EQ(get("VornPlayerBassPath"), "0.1\n");
    EXPECT_EQ(host({"get", "STA_Bass", "STA_Treble", "STA_Loudness"}).out,
              "STA_Bass\ti8\t1\nSTA_Treble\ti8\t0\nSTA_Loudness\ti8\t1\n");
}

TEST_F(ModulePlayer, RoonElementsGetTheirNodesAndOneRefuses)
{
    startModule();
    const ProgramResult end = host({"set", R"(STA_RoonSignalPath=[{"id":"dsp","value":{"on":true}},)"
                                           R"({"id":"locked","value":2},{"id":"volume","value":30}])"});
    EXPECT_EQ(end.out, "STA_RoonSignalPath\tu8\t1\n");
    EXPECT_EQ(get("/roon/signalPath/customElement/dsp"), "{\"variant\":{\"on\":true}}\n");
    EXPECT_EQ(get("/roon/signalPath/customElement/volume"), "{\"variant\":30}\n");
    EXPECT_EQ(host({"set", "STA_RoonSignalPath=[{"}).out, "STA_RoonSignalPath\tu8\t0\n");
    EXPECT_EQ(host({"get", "STA_RoonSignalPath"}).out, "STA_RoonSignalPath\tnil\t\n");
    const std::string errors = moduleErrors();
    EXPECT_TRUE(contains(errors, "ERROR HostLink: RoonSignalPathProxy could not set the value on path: "
                                 "/roon/signalPath/customElement/locked, with error msg: "))
        << errors;
    EXPECT_TRUE(contains(errors, "ERROR HostLink: Failed to parse roon signal path json: line 1 column "))
        << errors;
}

TEST_F(ModulePlayer, ThePowerManagerMovesThroughItsTargets)
{
    startModule();
    EXPECT_EQ(host({"get", "STA_PowerState", "STA_PowerNextState"}).out,
              "STA_PowerState\tu8\t10\nSTA_PowerNextState\tu8\t10\n");
    EXPECT_EQ(host({"set", "STA_PowerState=5"}).out, "STA_PowerState\tu8\t0\n");
    EXPECT_EQ(host({"set", "STA_PowerState=20"}).out, "STA_PowerState\tu8\t1\n");
    Program watch({"host", "watch", "STA_PowerState", "STA_PowerNextState"});
    expectLines(watch, {"STA_PowerState\tu8\t20", "STA_PowerNextState\tu8\t20"});
    EXPECT_EQ(node({"invoke", "VornPowerManagerTargetRequestPath", R"({"target":5})"}).status, 0);
    expectLines(watch, {"STA_PowerNextState\tu8\t50", "STA_PowerState\tu8\t50"});
}

TEST_F(ModulePlayer, TheWorkerRestoresTheSlotThatWasChosenLast)
{
    startModule();
    set("VornDiracSlotsSettingsPath", R"({"slotsList":{"activeSlot":2}})");
    EXPECT_EQ(get("VornDiracActiveFilterPath"), "2\n");
    moduleErrors();
    startModule({"--profile", fileWith(R"({"VornDiracActiveFilterPath": {"i32_": 0}})")});
    EXPECT_EQ(get("VornDiracActiveFilterPath"), "2\n");
    EXPECT_EQ(node({"set", "VornDiracSlotsSettingsPath", R"({"slotsList":{"activeSlot":-1}})"}).status, 1);
}

TEST_F(ModulePlayer, AProfileGivesItsValuesToServicesToo)
{
    startModule({"--profile", fileWith(R"({"VornPlayerVolumePath": {"i32_": 40},
        "VornPlayLogicPlayTimePath": {"i64_": 7}, "VornPlayerEqualizerConfigurationPath": {"eqBandList": []},
        "VornPowerManagerTargetPath": {"powerTarget": {"target": 2, "nextTarget": 2}}})")});
    EXPECT_EQ(
        host({"get", "STA_Volume", "STA_PlayTime", "STA_EqualizerValues", "STA_PowerState"}).out,
        "STA_Volume\tu8\t40\nSTA_PlayTime\ti64\t7\nSTA_EqualizerValues\tbin\t\nSTA_PowerState\tu8\t20\n");
}
