#include "modules/hostlink/proxy/PlaybackItemProxy.h"

#include <QElapsedTimer>
#include <map>

#include "platform/sdk/VornServices.h"
#include "support/ProxyFixture.h"

namespace
{
using Device = VornPlayerAudioDevice;

/// The number of each service, by its id.
const std::map<QString, int> kServices = {
    {VornService_Airable_Id(), 1},
    {VornService_Multiroom_Id(), 2},
    {VornService_Files_Id(), 3},
    {VornService_Storage_Id(), 4},
    {VornService_VTuner_Id(), 6},
    {VornService_Sirius_Id(), 8},
    {VornService_SiriusPandora_Id(), 8},
    {VornService_TuneIn_Id(), 9},
    {VornService_UPnP_Id(), 10},
    {VornService_QPlay_Id(), 11},
    {VornService_Bluetooth_Id(), 12},
    {VornService_AirPlay_Id(), 13},
    {VornService_Cdrom_Id(), 14},
    {VornService_Spotify_Id(), 15},
    {VornService_GoogleCast_Id(), 16},
    {VornService_AirableRadios_Id(), 17},
    {VornService_AirablePodcasts_Id(), 18},
    {VornService_Napster_Id(), 19},
    {VornService_Qobuz_Id(), 20},
    {VornService_Deezer_Id(), 21},
    {VornService_Tidal_Id(), 22},
    {VornService_Roon_Id(), 23},
    {VornService_AUX_Id(), 24},
    {VornService_Avs_Id(), 25},
    {VornService_AmazonMusic_Id(), 26},
    {VornService_TencentDingDang_Id(), 27},
    {VornService_BluetoothHandsfree_Id(), 28},
    {VornService_Dab_Id(), 29},
    {VornService_Fm_Id(), 30},
    {VornService_SPDIF_Id(), 31},
    {VornService_UsbAudio_Id(), 32},
    {VornService_Pandora_Id(), 33},
    {VornService_TencentXiaowei_Id(), 34},
    {VornService_HDMI_Id(), 35},
    {VornService_Dante_Id(), 36},
    {VornService_HighresAudio_Id(), 37},
    {VornService_Dirac_Id(), 38},
    {VornService_Calmradio_Id(), 39},
    {VornService_JioSaavn_Id(), 40},
    {VornService_Idagio_Id(), 41},
    {VornService_SoundMachine_Id(), 42},
    {VornService_PalcoMP3_Id(), 43},
    {VornService_LautFm_Id(), 44},
    {VornService_KlassikRadio_Id(), 45},
    {VornService_PriatenFm_Id(), 46},
    {VornService_SonySelectHiResMusic_Id(), 47},
    {VornService_Spreaker_Id(), 48},
    {VornService_Soundtrack_Id(), 49},
    {VornService_QobuzConnect_Id(), 50},
};

/// Data of a player, to be changed step by step. Its track has a resource, of an unknown rate.
class Track
{
public:
    Track() { rate(0); }

    Track& state(int state)
    {
        m_data.setState(VornPlayLogicState::Enum(state));
        return *this;
    }
    Track& duration(qint64 milliseconds)
    {
        m_data.setStatus(m_data.status().setDuration(milliseconds));
        return *this;
    }
    Track& title(const QString& text)
    {
        m_data.setTrackRoles(m_data.trackRoles().setTitle(text));
        return *this;
    }
    Track& icon(const QString& text)
    {
        m_data.setTrackRoles(m_data.trackRoles().setIcon(text));
        return *this;
    }
    Track& album(const QString& text) { return meta(metaData().setAlbum(text)); }
    Track& artist(const QString& text) { return meta(metaData().setArtist(text)); }
    Track& service(const QString& id) { return meta(metaData().setServiceID(id)); }
    Track& external(const QString& id) { return meta(metaData().setExternalServiceID(id)); }
    Track& app(const QString& name) { return meta(metaData().setExternalAppName(name)); }
    Track& rate(int hertz)
    {
        return media(mediaData().setResources({VornResource().setSampleFrequency(hertz), VornResource()}));
    }
    Track& mimeType(const QString& type)
    {
        return media(mediaData().setActiveResource(VornResource().setMimeType(type)));
    }
    Track& controls(const VornPlayLogicControls& controls)
    {
        m_data.setControls(controls);
        return *this;
    }
    Track& mediaService(const QString& id)
    {
        const VornMediaData media = VornMediaData().setMetaData(VornMetaData().setServiceID(id));
        m_data.setMediaRoles(VornRoles().setMediaData(media));
        return *this;
    }

    VornValue value() const { return VornHash(m_data); }

private:
    VornMediaData mediaData() const { return m_data.trackRoles().mediaData(); }
    VornMetaData metaData() const { return mediaData().metaData(); }
    Track& media(const VornMediaData& data)
    {
        m_data.setTrackRoles(m_data.trackRoles().setMediaData(data));
        return *this;
    }
    Track& meta(const VornMetaData& data) { return media(mediaData().setMetaData(data)); }

    VornPlayLogicData m_data;
};

class PlaybackItemProxyTest : public ProxyFixture
{
protected:
    PlaybackItemProxyTest()
    {
        listenTo(m_proxy);
        const auto keep = [this](const char* name) {
            CMActivateNode::create(
                &m_nodes, CMPath(QString("/player/instance/%1").arg(name)), &m_nodes,
                [this, name](const CMSetDataRequest& request) {
                    m_asked.push_back(name);
                    m_request = VornHash(request.data().toHash());
                },
                Qt::DirectConnection);
        };
        keep("play");
        keep("stop");
    }

    void show(const Track& track) { m_data->setValue(track.value()); }

    static std::string shown(const std::string& values) { return "MSG_GetStateResponse" + values; }

    std::string sourceNow() { return read(m_proxy, {21}); }
    static std::string source(int number) { return shown(" STA_AudioSourceId=u8:" + std::to_string(number)); }

    void settings(const Device& device) { m_settings->setValue(VornValue().setAudioDevice(device)); }

    std::string writeByte(State state, int byte)
    {
        HostLinkValueMessage request(MSG_SetState);
        request.addValueUint8(state, std::uint8_t(byte));
        return write(m_proxy, request);
    }

    bool waitForAsked(std::size_t count)
    {
        return waitFor([&] { return m_asked.size() >= count; });
    }

    /// Lets the time of the last request to play come, and waits for what reaches the player.
    VornRoles playedRoles()
    {
        m_asked.clear();
        QMetaObject::invokeMethod(&m_proxy, "on_startPlaybackTimer_timeout");
        EXPECT_TRUE(waitForAsked(2));
        EXPECT_EQ(m_asked, (Texts{"stop", "play"}));
        EXPECT_FALSE(m_request.value("append").toBool());
        return VornHash(m_request.value("roles").toHash());
    }

    VornResource playedResource() { return playedRoles().mediaData().resources().value(0); }
    std::string uriOf(const Device& device)
    {
        settings(device);
        return playedResource().uri().toStdString();
    }

    /// The first device of a module with a digital input.
    static Device device()
    {
        Device device;
        return device.setDevice("hw:1,0");
    }

    CMValueNode* m_data = createNode(VornPlayLogicDataPath(), VornValue());
    CMValueNode* m_source = createNode(VornTarkoExternalSourcePath(), VornValue().setI32(0));
    CMValueNode* m_settings = createNode(VornPlayerLineInDeviceSettingsPath(), VornValue());
    PlaybackItemProxy m_proxy{nullptr};
    Texts m_asked; ///< of the player, in order
    VornHash m_request;
};
} // namespace

TEST_F(PlaybackItemProxyTest, OwnsWhatItTellsInOrder)
{
    const QList<State> states = m_proxy.states();
    EXPECT_EQ(states, (QList<State>{State(11), State(20), State(12), State(13), State(15), State(14),
                                    State(16), State(777), State(21), State(38)}));
    EXPECT_FALSE(states.contains(STA_TarkoAudioInput));
    EXPECT_FALSE(states.contains(STA_TarkoSetSampleRate));
}

TEST_F(PlaybackItemProxyTest, ReadsWhatThePlayerPlays)
{
    show(Track()
             .state(1)
             .title("Slow Tide")
             .album("Harbour Lights")
             .icon("http://a/b.png")
             .artist("The Lanterns")
             .mimeType("audio/flac")
             .duration(5000000000)
             .rate(96000)
             .service(VornService_Qobuz_Id()));
    EXPECT_EQ(read(m_proxy, {11, 20, 12, 13, 15, 14, 16, 777, 21, 38}),
              shown(R"( STA_PlayState=u8:1 STA_TrackDuration=i64:5000000000 STA_TrackTitle=str:"Slow Tide")"
                    R"( STA_TrackAlbum=str:"Harbour Lights" STA_TrackArtist=str:"The Lanterns")"
                    R"( STA_TrackIcon=str:"http://a/b.png" STA_TrackMimeType=str:"audio/flac")"
                    R"( STA_TarkoSampleRate=u8:5 STA_AudioSourceId=u8:20 STA_PlayControls=i32:2)"));
}

TEST_F(PlaybackItemProxyTest, DataThatIsNoneReadsAsNothingAndNeverFails)
{
    const VornHash values[] = {
        {},
        {{"i32_", 5}},
        {{"state", "on"}, {"trackRoles", 5}, {"status", QVariantList{1}}, {"controls", true}},
        {{"trackRoles", QVariantHash{{"title", 5}, {"mediaData", QVariantHash()}}}},
        {{"trackRoles", QVariantHash{{"mediaData", QVariantHash{{"resources", 7}}}}}}};
    for (const VornHash& value : values) {
        m_data->setValue(value);
        EXPECT_EQ(read(m_proxy, {11, 20, 12, 13, 15, 14, 16, 21, 38}),
                  shown(R"( STA_PlayState=u8:0 STA_TrackDuration=i64:0 STA_TrackTitle=str:"")"
                        R"( STA_TrackAlbum=str:"" STA_TrackArtist=str:"" STA_TrackIcon=str:"")"
                        R"( STA_TrackMimeType=str:"" STA_AudioSourceId=u8:0 STA_PlayControls=i32:2)"))
            << value.toJsonString().toStdString();
    }
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(PlaybackItemProxyTest, TextsAreSentWhole)
{
    const QString text = QString::fromUtf8("\u00e4\u20ac\U0001f3b5") + QChar(0) + "end";
    show(Track().title(text).album(text).icon(text).artist(text).mimeType(text));
    for (const State state :
         {STA_TrackTitle, STA_TrackAlbum, STA_TrackIcon, STA_TrackArtist, STA_TrackMimeType}) {
        HostLinkValueMessage reply(MSG_GetStateResponse);
        m_proxy.getValue(state, &reply);
        EXPECT_EQ(reply.getString(0), text.toStdString());
        EXPECT_EQ(reply.getString(0).size(), 13U);
    }
}

TEST_F(PlaybackItemProxyTest, EachControlHasItsBit)
{
    using Controls = VornPlayLogicControls;
    using Modes = VornPlayLogicPlayModesSupported;
    const auto mode = [](const Modes& modes) { return Controls().setPlayMode(modes); };
    const std::pair<Controls, int> bits[] = {
        {Controls().setPause(true), 0x001},        {Controls().setNext_(true), 0x004},
        {Controls().setPrevious(true), 0x008},     {Controls().setLike(true), 0x010},
        {Controls().setDislike(true), 0x020},      {mode(Modes().setShuffle(true)), 0x040},
        {mode(Modes().setRepeatOne(true)), 0x080}, {mode(Modes().setRepeatAll(true)), 0x100},
        {Controls().setSeekTime(true), 0x200},     {Controls().setSeekTrack(true), 0x400},
        {Controls().setSeekBytes(true), 0x800},
    };
    for (const auto& [controls, bit] : bits) {
        show(Track().controls(controls));
        EXPECT_EQ(read(m_proxy, {38}), shown(" STA_PlayControls=i32:" + std::to_string(bit | 0x002)));
    }
    const Modes allModes = Modes().setShuffle(true).setRepeatOne(true).setRepeatAll(true);
    show(Track().controls(mode(allModes)
                              .setPause(true)
                              .setNext_(true)
                              .setPrevious(true)
                              .setLike(true)
                              .setDislike(true)
                              .setSeekTime(true)
                              .setSeekTrack(true)
                              .setSeekBytes(true)));
    EXPECT_EQ(read(m_proxy, {38}), shown(" STA_PlayControls=i32:" + std::to_string(0xFFF)));
}

TEST_F(PlaybackItemProxyTest, SampleRatesHaveTheirCodes)
{
    const std::pair<int, int> codes[] = {{44100, 2},  {48000, 3},      {88200, 4},  {96000, 5},  {176400, 6},
                                         {192000, 7}, {352800, 8},     {384000, 9}, {384001, 9}, {705600, 9},
                                         {768000, 9}, {2147483647, 9}, {383999, 0}, {44101, 0},  {64000, 0},
                                         {50000, 0},  {352799, 0}};
    for (const auto& [rate, code] : codes) {
        show(Track().rate(rate));
        EXPECT_EQ(read(m_proxy, {777}), shown(" STA_TarkoSampleRate=u8:" + std::to_string(code))) << rate;
    }
}

TEST_F(PlaybackItemProxyTest, ALowRateIsToldAsTheLowestAndNoRateNotAtAll)
{
    for (const int rate : {1, 8000, 22050, 32000, 44099}) {
        show(Track().rate(rate));
        m_log.clear();
        EXPECT_EQ(read(m_proxy, {777}), shown(" STA_TarkoSampleRate=u8:2")) << rate;
        EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL,
                              "MCU reading STA_TarkoSampleRate to notification vector samplerate = 44100"),
                  1U);
    }
    for (const int rate : {0, -1, -48000}) {
        show(Track().rate(rate));
        EXPECT_EQ(read(m_proxy, {777}), shown("")) << rate;
    }
}

TEST_F(PlaybackItemProxyTest, EachServiceHasItsNumber)
{
    for (const auto& [id, number] : kServices) {
        show(Track().service(id));
        EXPECT_EQ(sourceNow(), source(number)) << id.toStdString();
        show(Track().external(id));
        EXPECT_EQ(sourceNow(), source(number)) << id.toStdString();
    }
    EXPECT_EQ(kServices.size(), 49U);
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(PlaybackItemProxyTest, AnUnknownServiceIsAnErrorAndNoneIsNot)
{
    show(Track().service("Gramophone"));
    m_log.clear();
    EXPECT_EQ(sourceNow(), source(0));
    EXPECT_EQ(m_log.errors(), Texts{"Unknown conversion from 'Gramophone' to Audio Source Id"});
    EXPECT_EQ(m_log.debugs(), (Texts{"Service ID: Gramophone", "Service ID: "}));
    show(Track().service(""));
    m_log.clear();
    EXPECT_EQ(sourceNow(), source(0));
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(PlaybackItemProxyTest, AnExternalServiceGoesBeforeTheService)
{
    show(Track().service(VornService_Qobuz_Id()).external(VornService_Roon_Id()));
    m_log.clear();
    EXPECT_EQ(sourceNow(), source(23));
    EXPECT_EQ(m_log.debugs(), Texts{"External service ID: Roon"});
    show(Track().service(VornService_Qobuz_Id()).external(""));
    EXPECT_EQ(sourceNow(), source(0)) << "whatever it is";
    show(Track().service(VornService_Qobuz_Id()).external(VornService_GoogleCast_Id()).app(""));
    EXPECT_EQ(sourceNow(), source(16)) << "whatever plays";
}

TEST_F(PlaybackItemProxyTest, ACastReceiverWithoutAnAppIsIdle)
{
    const Track cast = Track().service(VornService_GoogleCast_Id());
    show(cast);
    EXPECT_EQ(sourceNow(), source(16)) << "it does not say";
    show(Track(cast).app("Web Radio"));
    EXPECT_EQ(sourceNow(), source(16));
    show(Track(cast).app(""));
    m_log.clear();
    EXPECT_EQ(sourceNow(), source(0));
    EXPECT_EQ(m_log.debugs(),
              (Texts{"Service ID: GoogleCast", "GoogleCast is idle, no audio source", "Service ID: "}));
    show(Track().service(VornService_Qobuz_Id()).app(""));
    EXPECT_EQ(sourceNow(), source(20)) << "only cast receivers idle";
}

TEST_F(PlaybackItemProxyTest, WhatATrackDoesNotSayItsMediaSays)
{
    show(Track().mediaService(VornService_Tidal_Id()));
    EXPECT_EQ(sourceNow(), source(22));
    show(Track().service(VornService_Qobuz_Id()).mediaService(VornService_Tidal_Id()));
    EXPECT_EQ(sourceNow(), source(20));
    show(Track().service("Gramophone").mediaService(VornService_Tidal_Id()));
    EXPECT_EQ(sourceNow(), source(22));
    show(Track().service("Gramophone").mediaService("Phonograph"));
    m_log.clear();
    EXPECT_EQ(sourceNow(), source(0));
    EXPECT_EQ(m_log.errors().size(), 2U);
}

TEST_F(PlaybackItemProxyTest, EachFieldThatChangesIsToldAlone)
{
    Track track;
    show(track);
    told();
    const auto tells = [&](State state) {
        show(track);
        EXPECT_EQ(told(), States{{state}});
    };
    track.service(VornService_Files_Id());
    tells(STA_AudioSourceId);
    track.controls(VornPlayLogicControls().setPause(true));
    tells(STA_PlayControls);
    track.controls(VornPlayLogicControls().setPause(true).setNext_(false));
    tells(STA_PlayControls); // though no bit differs
    track.state(2);
    tells(STA_PlayState);
    track.duration(1);
    tells(STA_TrackDuration);
    track.title("t");
    tells(STA_TrackTitle);
    track.icon("i");
    tells(STA_TrackIcon);
    track.album("a");
    tells(STA_TrackAlbum);
    track.artist("a");
    tells(STA_TrackArtist);
    track.rate(48000);
    tells(STA_TarkoSampleRate);
    track.mimeType("m");
    tells(STA_TrackMimeType);
    track.rate(0);
    tells(STA_TarkoSampleRate);
}

TEST_F(PlaybackItemProxyTest, ManyChangesAreToldAtOnceInOrder)
{
    show(Track()
             .service(VornService_Files_Id())
             .controls(VornPlayLogicControls().setPause(true))
             .state(1)
             .duration(1)
             .title("t")
             .icon("i")
             .album("a")
             .artist("a")
             .rate(48000)
             .mimeType("m"));
    EXPECT_EQ(told(), (States{{State(21), State(38), State(11), State(20), State(12), State(14), State(13),
                               State(15), State(777), State(16)}}));
}

TEST_F(PlaybackItemProxyTest, AChangeOfNothingIsToldEmpty)
{
    show(Track());
    told();
    show(Track().service("").title(""));
    EXPECT_EQ(told(), (States{{}}));
}

TEST_F(PlaybackItemProxyTest, TheRateIsComparedWithTheOneToldLast)
{
    m_data->setValue(Track().rate(48000).value());
    told();
    PlaybackItemProxy late(nullptr); // sees 48000, and has told nothing
    listenTo(late);
    m_data->setValue(Track().rate(48000).title("t").value());
    const States all = told();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0], QList<State>{STA_TrackTitle});
    EXPECT_EQ(all[1], (QList<State>{STA_TrackTitle, STA_TarkoSampleRate}));
    EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL,
                          "Adding STA_TarkoSampleRate to notification vector samplerate = 48000"),
              2U);
}

TEST_F(PlaybackItemProxyTest, StatesOfOthersAreNeitherReadNorWritten)
{
    EXPECT_EQ(read(m_proxy, {STA_Mute, STA_TarkoSetSampleRate}), shown(""));
    for (const State state :
         {STA_Mute, STA_PlayState, STA_TrackTitle, STA_TarkoSampleRate, STA_PlayControls}) {
        EXPECT_EQ(writeByte(state, 1), "MSG_SetStateResponse");
    }
    EXPECT_TRUE(m_log.texts(log4cplus::TRACE_LOG_LEVEL).size() > 0);
    EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL, "Starting Playback timer"), 0U);
    settle();
    EXPECT_EQ(m_asked, Texts{}) << "of the player";
}

TEST_F(PlaybackItemProxyTest, TheDeviceOfTheSettingsIsPlayedAsWritten)
{
    settings(device()
                 .setSampleRate(48000)
                 .setChannels(2)
                 .setBps(24)
                 .setPeriodTime(10)
                 .setBufferTime(100)
                 .setUseDriftComp(true));
    const VornRoles roles = playedRoles();
    const VornResource resource = roles.mediaData().resources().value(0);
    EXPECT_EQ(resource.uri(), "alsa://hw:1,0?rate=48000?channels=2?format=S24LE?latency-time=10000"
                              "?buffer-time=100000?drift-comp=1");
    EXPECT_EQ(resource.sampleFrequency(), 48000);
    EXPECT_EQ(resource.nrAudioChannels(), 2);
    EXPECT_EQ(resource.bitsPerSample(), 24);
    EXPECT_EQ(resource.mimeType(), "audio/unknown");
    EXPECT_EQ(roles.mediaData().resources().size(), 1);
    EXPECT_EQ(roles.toJsonString(),
              R"({"audioType":2,"mediaData":{"metaData":{"maximumRetryCount":2147483647,"serviceID":"AUX"},)"
              R"("resources":[{"bitsPerSample":24,"mimeType":"audio/unknown","nrAudioChannels":2,)"
              R"("sampleFrequency":48000,"uri":"alsa://hw:1,0?rate=48000?channels=2?format=S24LE)"
              R"(?latency-time=10000?buffer-time=100000?drift-comp=1"}]},"type":3})");
    EXPECT_EQ(m_log.infos(),
              (Texts{"Playback timer in START playback", "PlaybackItemProxy - STOPPING previous playback",
                     "Starting external playback using uri: " + resource.uri().toStdString()}));
}

TEST_F(PlaybackItemProxyTest, ADeviceWithoutOptionsIsItsNameAlone)
{
    EXPECT_EQ(uriOf(device()), "alsa://hw:1,0");
    EXPECT_EQ(playedResource().toJsonString(), R"({"mimeType":"audio/unknown","uri":"alsa://hw:1,0"})");
}

TEST_F(PlaybackItemProxyTest, EachOptionStandsAlone)
{
    VornPlayerSampleRateSource card;
    card.setSoundCard("hw:2");
    VornPlayerSampleRateSource element;
    element.setSampleRateElement("SPDIF rate");
    const std::pair<Device, std::string> options[] = {
        {device().setSampleRate(44100), "?rate=44100"},
        {device().setChannels(8), "?channels=8"},
        {device().setFormat("S24_LE"), "?format=S24_32LE"},
        {device().setFormat("S24_3LE"), "?format=S24LE"},
        {device().setFormat("FLOAT64_BE"), "?format=F64BE"},
        {device().setBps(16), "?format=S16LE"},
        {device().setPeriodTime(1), "?latency-time=1000"},
        {device().setBufferTime(2), "?buffer-time=2000"},
        {device().setInputTsOffset(3), "?ts-offset=3000"},
        {device().setUseDriftComp(true), "?drift-comp=1"},
        {device().setSampleRateSource(card), "?sr-card=hw:2"},
        {device().setSampleRateSource(element), "?sr-elem=SPDIF rate"},
    };
    for (const auto& [settings, option] : options) {
        EXPECT_EQ(uriOf(settings), "alsa://hw:1,0" + option);
    }
}

TEST_F(PlaybackItemProxyTest, OptionsKeepTheirOrder)
{
    VornPlayerSampleRateSource source;
    source.setSoundCard("hw:2").setSampleRateElement("Rate");
    EXPECT_EQ(uriOf(device()
                        .setSampleRateSource(source)
                        .setUseDriftComp(true)
                        .setInputTsOffset(5)
                        .setBufferTime(4)
                        .setPeriodTime(3)
                        .setFormat("U8")
                        .setChannels(2)
                        .setSampleRate(1)),
              "alsa://hw:1,0?rate=1?channels=2?format=U8?latency-time=3000?buffer-time=4000?ts-offset=5000"
              "?drift-comp=1?sr-card=hw:2?sr-elem=Rate");
}

TEST_F(PlaybackItemProxyTest, AFormatThatIsNoneLeavesTheBitsOutToo)
{
    settings(device().setFormat("S24LE").setBps(24));
    const VornResource resource = playedResource();
    EXPECT_EQ(resource.uri(), "alsa://hw:1,0");
    EXPECT_FALSE(resource.contains(VornResource::BitsPerSample()));
    settings(device().setFormat("S16_LE").setBps(24));
    EXPECT_EQ(playedResource().uri(), "alsa://hw:1,0?format=S16LE") << "the format goes before the bits";
    EXPECT_FALSE(playedResource().contains(VornResource::BitsPerSample()));
}

TEST_F(PlaybackItemProxyTest, MicrosecondsHave32Bits)
{
    EXPECT_EQ(uriOf(device().setPeriodTime(4294967)), "alsa://hw:1,0?latency-time=4294967000");
    EXPECT_EQ(uriOf(device().setBufferTime(4294968)), "alsa://hw:1,0?buffer-time=704");
    EXPECT_EQ(uriOf(device().setInputTsOffset(-1)), "alsa://hw:1,0?ts-offset=4294966296");
    EXPECT_EQ(uriOf(device().setPeriodTime(2147483647)), "alsa://hw:1,0?latency-time=4294966296");
}

TEST_F(PlaybackItemProxyTest, ATimeThatIsSetIsAnOptionThoughItsMicrosecondsWrapToZero)
{
    constexpr int kWraps = 536870912; // times 1000 is a multiple of 2 to the 32nd
    EXPECT_EQ(uriOf(device().setPeriodTime(kWraps)), "alsa://hw:1,0?latency-time=0");
    EXPECT_EQ(uriOf(device().setBufferTime(kWraps)), "alsa://hw:1,0?buffer-time=0");
    EXPECT_EQ(uriOf(device().setInputTsOffset(-kWraps)), "alsa://hw:1,0?ts-offset=0");
}

TEST_F(PlaybackItemProxyTest, SettingsThatCannotBeReadArePlayedAllTheSame)
{
    for (const VornValue& value :
         {VornValue(), VornValue().setString("hw:1,0"), VornValue(VornHash{{"audioDevice", "hw:1,0"}}),
          VornValue().setAudioDevice({})}) {
        m_settings->setValue(value);
        m_log.clear();
        EXPECT_EQ(playedResource().uri(), "alsa://");
        EXPECT_EQ(m_log.errors(), Texts{"Unable to read/parse alsa device!"});
    }
    settings(Device().setSampleRate(48000));
    EXPECT_EQ(playedResource().uri(), "alsa://?rate=48000");
}

TEST_F(PlaybackItemProxyTest, TheInputStopsWhatPlaysAtOnceAndPlaysAQuarterOfASecondLater)
{
    settings(device());
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(writeByte(STA_TarkoAudioInput, 0xA5), "MSG_SetStateResponse") << "it is not answered";
    EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL, "STA_TarkoAudioInput: 0xa5"), 1U);
    EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL, "Starting Playback timer"), 1U);
    EXPECT_EQ(read(m_proxy, {773}), shown(" STA_TarkoAudioInput=u8:165"));
    ASSERT_TRUE(waitForAsked(1));
    EXPECT_EQ(m_asked.front(), "stop");
    ASSERT_TRUE(waitForAsked(3));
    EXPECT_GE(timer.elapsed(), 250);
    EXPECT_EQ(m_asked, (Texts{"stop", "stop", "play"}));
}

TEST_F(PlaybackItemProxyTest, TheExternalSourcePlaysAQuarterOfASecondLater)
{
    settings(device());
    QElapsedTimer timer;
    timer.start();
    m_source->setValue(VornValue().setI32(1));
    ASSERT_TRUE(waitForAsked(2));
    EXPECT_GE(timer.elapsed(), 250);
    EXPECT_EQ(m_asked, (Texts{"stop", "play"}));
}

TEST_F(PlaybackItemProxyTest, InputsInQuickSuccessionStopEachAndPlayOnce)
{
    settings(device());
    writeByte(STA_TarkoAudioInput, 1);
    QTimer second;
    second.setSingleShot(true);
    QTimer afterwards;
    afterwards.setSingleShot(true);
    QObject::connect(&second, &QTimer::timeout, [&] {
        writeByte(STA_TarkoAudioInput, 2);
        afterwards.start(550); // time for two more, if there were any
    });
    second.start(100);
    bool over = false;
    QObject::connect(&afterwards, &QTimer::timeout, [&] { over = true; });
    ASSERT_TRUE(waitFor([&] { return over; }));
    EXPECT_EQ(m_asked, (Texts{"stop", "stop", "stop", "play"}));
    EXPECT_EQ(read(m_proxy, {773}), shown(" STA_TarkoAudioInput=u8:2"));
}

TEST_F(PlaybackItemProxyTest, ARequestedRateStartsTheInputAnew)
{
    settings(device());
    EXPECT_EQ(writeByte(STA_TarkoSetSampleRate, 0x1F), "MSG_SetStateResponse");
    EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL, "STA_TarkoSetSampleRate: 0x1f"), 1U);
    ASSERT_TRUE(waitForAsked(2));
    EXPECT_EQ(m_asked, (Texts{"stop", "play"})) << "stopped only when its time has come";
}

TEST_F(PlaybackItemProxyTest, AnInputThatCannotBeReadIsInputZero)
{
    writeByte(STA_TarkoAudioInput, 5);
    HostLinkValueMessage request(MSG_SetState);
    request.addValueString(STA_TarkoAudioInput, "6");
    EXPECT_EQ(write(m_proxy, request), "MSG_SetStateResponse");
    EXPECT_EQ(read(m_proxy, {773}), shown(" STA_TarkoAudioInput=u8:0"));
    EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL, "Starting Playback timer"), 2U);
}

TEST_F(PlaybackItemProxyTest, OnlyAPositiveExternalSourcePlays)
{
    m_log.clear();
    for (const int source : {-1, 0, -2147483647, 258}) {
        m_source->setValue(VornValue().setI32(source));
        EXPECT_EQ(read(m_proxy, {773}), shown(" STA_TarkoAudioInput=u8:" + std::to_string(source & 0xFF)));
        EXPECT_EQ(m_log.infos().back(), "Test Input start name changed to:" + std::to_string(source));
        EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL, "Starting Playback timer"),
                  source == 258 ? 1U : 0U);
    }
    m_source->setValue(VornValue().setString("1"));
    EXPECT_EQ(m_log.infos().back(), "Test Input start name changed to:0");
    EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL, "Starting Playback timer"), 1U);
}
