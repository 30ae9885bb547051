#include "services/Player.h"

#include <gtest/gtest.h>

#include "platform/sdk/CMItem.h"
#include "platform/sdk/Paths.h"
#include "platform/sdk/PlayLogicInterface.h"
#include "platform/sdk/VornJson.h"
#include "support/LogCapture.h"

namespace
{
using namespace std::chrono_literals;
using States = VornPlayLogicState;
using Texts = std::vector<std::string>;

constexpr const char* kQueue = R"([
    {"title": "A", "duration": 10000, "service": "Files", "uri": "a", "mimeType": "audio/flac"},
    {"title": "B", "duration": 20000, "service": "Files", "uri": "b", "canBeRated": true},
    {"title": "C", "service": "AirableRadios", "uri": "c"}
])";

/// A player whose time is the test's.
class PlayerTest : public testing::Test
{
protected:
    PlayerTest() { useQueue(kQueue); }

    void useQueue(const QString& json)
    {
        QString error;
        const auto tracks = Playlist::parse(json, &error);
        ASSERT_TRUE(tracks.has_value()) << error.toStdString();
        m_player.reset();
        m_player = std::make_unique<Player>(*tracks, [this] { return m_now; });
    }

    /// What a request fails with; empty when it is done.
    static std::string ended(const CMVoidReply& reply)
    {
        EXPECT_TRUE(reply.wait());
        return reply.error().Message().toStdString();
    }

    static std::string play(const QString& json)
    {
        VornJson::Error error;
        const CMVoidReply reply;
        CMRoot()->invoke(VornPlayLogicPlayPath(), VornHash(VornJson::parse(json, &error).toHash()), reply);
        return ended(reply);
    }

    static std::string playTrack(int number) { return play(QString(R"({"track":%1})").arg(number)); }

    static PlayLogicInterface* player() { return PlayLogicInterface::playerInstance(); }
    static VornPlayLogicData data() { return player()->data(); }
    static std::string title() { return data().trackRoles().title().toStdString(); }
    static States::Enum state() { return data().state(); }

    static qint64 position()
    {
        return VornValue(VornHash(CMRoot()->getValue(VornPlayLogicPlayTimePath()).toHash())).i64();
    }

    static std::string seek(qint64 position)
    {
        const CMVoidReply reply;
        CMRoot()->setValue(VornPlayLogicPlayTimePath(), VornValue().setI64(position), reply);
        return ended(reply);
    }

    void pass(std::chrono::milliseconds time)
    {
        m_now += time;
        m_player->catchUp();
    }

    /// The controls that are offered, by their names.
    static std::string controls()
    {
        const VornPlayLogicControls offered = data().controls();
        const std::pair<const char*, bool> all[] = {
            {"pause", offered.pause()},        {"next", offered.next_()},
            {"previous", offered.previous()},  {"like", offered.like()},
            {"dislike", offered.dislike()},    {"seekTime", offered.seekTime()},
            {"seekTrack", offered.seekTrack()}};
        std::string names;
        for (const auto& [name, isOffered] : all) {
            names += isOffered ? (names.empty() ? "" : " ") + std::string(name) : "";
        }
        return names;
    }

    LogCapture m_log{log4cplus::WARN_LOG_LEVEL, "Services.Player"};
    std::chrono::milliseconds m_now{5000000};
    std::unique_ptr<Player> m_player;
};
} // namespace

TEST_F(PlayerTest, StandsStillAtFirst)
{
    EXPECT_EQ(data().toJsonString(),
              R"({"controls":{},"state":0,"status":{"duration":0,"error":"","rating":0}})");
    pass(1h);
    EXPECT_EQ(position(), 0);
}

TEST_F(PlayerTest, PlaysATrackOfItsQueue)
{
    EXPECT_EQ(playTrack(2), "");
    EXPECT_EQ(state(), States::Playing);
    EXPECT_EQ(title(), "B");
    EXPECT_EQ(data().status().duration(), 20000);
    EXPECT_EQ(data().trackRoles().mediaData().metaData().serviceID(), "Files");
    EXPECT_EQ(data().trackRoles().mediaData().resources().size(), 1);
    EXPECT_EQ(position(), 0);
    pass(1500ms);
    EXPECT_EQ(position(), 1500);
}

TEST_F(PlayerTest, PlaysWhereTheQueueIsWhenItIsNotTold)
{
    EXPECT_EQ(play("{}"), "");
    EXPECT_EQ(title(), "A");
    EXPECT_EQ(ended(player()->next()), "");
    EXPECT_EQ(ended(player()->stop(VornPlayLogicStopReason::Unset)), "");
    EXPECT_EQ(play("{}"), "");
    EXPECT_EQ(title(), "B");
    pass(3s);
    EXPECT_EQ(play("{}"), "") << "it plays already";
    EXPECT_EQ(position(), 3000);
}

TEST_F(PlayerTest, ANumberBeyondTheQueueIsRefusedAndLeavesWhatPlays)
{
    playTrack(1);
    pass(1s);
    for (const char* track : {"0", "4", "-1", "\"2\"", "1.5"}) {
        const std::string request = "{\"track\":" + std::string(track) + "}";
        EXPECT_EQ(play(QString::fromStdString(request)),
                  R"(/player/instance/play: takes {"track":N} with N from 1 to 3, not )" + request);
    }
    EXPECT_EQ(title(), "A");
    EXPECT_EQ(position(), 1000);
}

TEST_F(PlayerTest, PausesAndGoesOn)
{
    playTrack(1);
    pass(2s);
    m_now += 500ms; // since the last tick
    EXPECT_EQ(ended(player()->pause()), "");
    EXPECT_EQ(state(), States::Paused);
    EXPECT_EQ(title(), "A");
    pass(1h);
    EXPECT_EQ(position(), 2500);
    EXPECT_EQ(ended(player()->pause()), "");
    EXPECT_EQ(state(), States::Playing);
    pass(1s);
    EXPECT_EQ(position(), 3500);
    player()->pause();
    EXPECT_EQ(play("{}"), "") << "goes on too";
    EXPECT_EQ(state(), States::Playing);
    EXPECT_EQ(position(), 3500);
}

TEST_F(PlayerTest, StopForgetsWhatPlayed)
{
    playTrack(2);
    pass(2s);
    EXPECT_EQ(ended(player()->stop(VornPlayLogicStopReason::Unset)), "");
    EXPECT_EQ(data().toJsonString(),
              R"({"controls":{},"state":0,"status":{"duration":0,"error":"","rating":0}})");
    EXPECT_EQ(position(), 0);
    EXPECT_EQ(ended(player()->stop(VornPlayLogicStopReason::Unset)), "") << "harmless to repeat";
}

TEST_F(PlayerTest, ControlsFollowWhatIsPossible)
{
    EXPECT_EQ(controls(), "");
    playTrack(1);
    EXPECT_EQ(controls(), "pause next seekTime");
    player()->next();
    EXPECT_EQ(ended(player()->like()), "");
    EXPECT_EQ(controls(), "pause next previous dislike seekTime");
    EXPECT_EQ(ended(player()->pause()), "");
    EXPECT_EQ(controls(), "pause next previous dislike seekTime");
    playTrack(3);
    EXPECT_EQ(controls(), "previous") << "a station has no end";
    EXPECT_EQ(ended(player()->stop(VornPlayLogicStopReason::Unset)), "");
    EXPECT_EQ(controls(), "");
}

TEST_F(PlayerTest, WhatIsNotPossibleIsRefused)
{
    EXPECT_EQ(ended(player()->pause()), "/player/instance/pause: nothing plays");
    EXPECT_EQ(ended(player()->next()), "/player/instance/next: there is no track behind this one");
    EXPECT_EQ(ended(player()->like()), "/player/instance/like: nothing plays");
    playTrack(1);
    EXPECT_EQ(ended(player()->previous(false)),
              "/player/instance/previous: there is no track before this one");
    EXPECT_EQ(ended(player()->dislike()), "/player/instance/dislike: this is not to be rated so");
    playTrack(3);
    EXPECT_EQ(ended(player()->pause()), "/player/instance/pause: this cannot be paused");
    EXPECT_EQ(ended(player()->next()), "/player/instance/next: there is no track behind this one");
    EXPECT_EQ(title(), "C");
}

TEST_F(PlayerTest, PreviousGoesBackOrToTheBegin)
{
    playTrack(2);
    pass(5s);
    EXPECT_EQ(ended(player()->previous(true)), "");
    EXPECT_EQ(title(), "B");
    EXPECT_EQ(position(), 0);
    EXPECT_EQ(ended(player()->previous(true)), "") << "nothing of it was played";
    EXPECT_EQ(title(), "A");
    playTrack(2);
    pass(5s);
    EXPECT_EQ(ended(player()->previous(false)), "");
    EXPECT_EQ(title(), "A");
    EXPECT_EQ(position(), 0);
}

TEST_F(PlayerTest, ATrackThatEndsIsFollowedByTheNext)
{
    playTrack(1);
    pass(9999ms);
    EXPECT_EQ(title(), "A");
    pass(2ms);
    EXPECT_EQ(title(), "B");
    EXPECT_EQ(position(), 1);
    pass(20s);
    EXPECT_EQ(title(), "C");
    EXPECT_EQ(position(), 1);
    pass(100h);
    EXPECT_EQ(title(), "C");
    EXPECT_EQ(position(), 360000001);
}

TEST_F(PlayerTest, TimeMayPassThroughSeveralTracks)
{
    playTrack(1);
    pass(35s);
    EXPECT_EQ(title(), "C");
    EXPECT_EQ(position(), 5000);
}

TEST_F(PlayerTest, BehindTheLastTrackThePlayerStopsAndTheQueueBeginsAnew)
{
    useQueue(R"([{"title":"A","duration":1000,"uri":"a"},{"title":"B","duration":1000,"uri":"b"}])");
    playTrack(2);
    pass(1s);
    EXPECT_EQ(state(), States::Stopped);
    EXPECT_EQ(position(), 0);
    EXPECT_EQ(play("{}"), "");
    EXPECT_EQ(title(), "A");
}

TEST_F(PlayerTest, WritingThePositionSeeks)
{
    playTrack(1);
    pass(1s);
    EXPECT_EQ(seek(8000), "");
    pass(1s);
    EXPECT_EQ(position(), 9000);
    m_now += 700ms;
    EXPECT_EQ(seek(0), "");
    pass(300ms);
    EXPECT_EQ(position(), 300) << "time counts from the seek";
    EXPECT_EQ(seek(10001), "/player/instance/playTime: takes 0 to 10000, not 10001");
    EXPECT_EQ(seek(-1), "/player/instance/playTime: takes 0 to 10000, not -1");
    EXPECT_EQ(seek(10000), "");
    pass(0ms);
    EXPECT_EQ(title(), "B");
    playTrack(3);
    EXPECT_EQ(seek(5), "/player/instance/playTime: what plays has no positions");
}

TEST_F(PlayerTest, WhileNothingPlaysThePositionMayBeAny)
{
    EXPECT_EQ(seek(9007199254740993), "");
    EXPECT_EQ(position(), 9007199254740993);
    playTrack(1);
    EXPECT_EQ(position(), 0);
}

TEST_F(PlayerTest, ARatingStaysWithItsTrack)
{
    playTrack(2);
    EXPECT_EQ(data().status().rating(), VornPlayLogicRating::None);
    EXPECT_EQ(ended(player()->dislike()), "");
    EXPECT_EQ(data().status().rating(), VornPlayLogicRating::Disliked);
    EXPECT_TRUE(data().controls().like());
    EXPECT_FALSE(data().controls().dislike());
    EXPECT_EQ(ended(player()->like()), "");
    EXPECT_EQ(data().status().rating(), VornPlayLogicRating::Liked);
    player()->next();
    EXPECT_EQ(ended(player()->previous(false)), "");
    EXPECT_EQ(data().status().rating(), VornPlayLogicRating::Liked);
}

TEST_F(PlayerTest, AnItemOfAnotherSourcePlaysBesideTheQueue)
{
    playTrack(2);
    const VornResource resource = VornResource().setUri("alsa://hw:1,0?rate=48000").setSampleFrequency(48000);
    const VornMediaData media =
        VornMediaData().setResources({resource}).setMetaData(VornMetaData().setServiceID("AUX"));
    EXPECT_EQ(ended(player()->play(VornRoles().setMediaData(media), false)), "");
    EXPECT_EQ(state(), States::Playing);
    EXPECT_TRUE(data().trackRoles().mediaData().activeResource().sameAs(resource));
    EXPECT_EQ(data().trackRoles().mediaData().metaData().serviceID(), "AUX");
    EXPECT_EQ(data().status().duration(), 0);
    EXPECT_EQ(controls(), "");
    pass(1h);
    EXPECT_EQ(position(), 3600000);
    EXPECT_EQ(ended(player()->stop(VornPlayLogicStopReason::Unset)), "");
    EXPECT_EQ(play("{}"), "");
    EXPECT_EQ(title(), "B") << "the queue is where it was";
}

TEST_F(PlayerTest, AnItemWithoutResourcesPlaysToo)
{
    EXPECT_EQ(play(R"({"roles":{"title":"X"}})"), "");
    EXPECT_EQ(state(), States::Playing);
    EXPECT_EQ(title(), "X");
    EXPECT_TRUE(data().trackRoles().mediaData().resources().isEmpty());
}

TEST_F(PlayerTest, AnItemWithAnEndEnds)
{
    EXPECT_EQ(play(R"({"roles":{"title":"X","mediaData":{"activeResource":{"duration":1000,"uri":"x"}}}})"),
              "");
    EXPECT_EQ(controls(), "pause seekTime");
    pass(1s);
    EXPECT_EQ(state(), States::Stopped);
    EXPECT_EQ(play("{}"), "");
    EXPECT_EQ(title(), "A");
}

TEST_F(PlayerTest, AnItemThatIsAppendedWaitsForItsTurn)
{
    playTrack(3);
    EXPECT_EQ(ended(player()->play(VornRoles().setTitle("X"), true)), "");
    EXPECT_EQ(title(), "C");
    EXPECT_EQ(controls(), "next previous");
    EXPECT_EQ(ended(player()->next()), "");
    EXPECT_EQ(title(), "X");
}

TEST_F(PlayerTest, TheQueueIsBounded)
{
    std::string answer;
    int taken = 0;
    while ((answer = play(R"({"roles":{"title":"X"},"append":true})")).empty() && taken < 2000) {
        ++taken;
    }
    EXPECT_EQ(taken, 997);
    EXPECT_EQ(answer, "/player/instance/play: the queue has 1000 tracks already");
}

TEST_F(PlayerTest, TheLengthOfWhatIsQueuedIsBounded)
{
    const auto append = [](int length) {
        const QString request = R"({"append":true,"roles":{"title":"%1"}})";
        return play(request.arg(QString(length - request.size() + 2, 'x')));
    };
    EXPECT_EQ(append(16384), "");
    EXPECT_EQ(append(16385),
              "/player/instance/play: takes at most 16384 characters for the queue, not 16385");
    EXPECT_EQ(playTrack(4), "");
    EXPECT_NE(playTrack(5), "") << "nothing of it was queued";
}

TEST_F(PlayerTest, RequestsOfWrongTypesAreRefused)
{
    for (const char* request : {R"({"roles":5})", R"({"roles":[]})", R"({"append":1,"roles":{}})"}) {
        EXPECT_EQ(play(request), std::string("/player/instance/play: takes "
                                             R"({"roles":{...},"append":false}, not )")
                                     + request);
    }
    EXPECT_EQ(state(), States::Stopped);
}

TEST_F(PlayerTest, AnEmptyQueueHasNothingToPlay)
{
    useQueue("[]");
    EXPECT_EQ(play("{}"), "/player/instance/play: the queue is empty");
    EXPECT_EQ(playTrack(1),
              R"(/player/instance/play: takes {"track":N} with N from 1 to 0, not {"track":1})");
    EXPECT_EQ(play(R"({"roles":{"title":"X"},"append":true})"), "");
    EXPECT_EQ(play("{}"), "");
    EXPECT_EQ(title(), "X");
}

TEST_F(PlayerTest, ATrackThatCannotBePlayedStopsThePlayerAndSaysWhy)
{
    useQueue(R"([{"title":"A","duration":1000,"uri":"a"},{"title":"B","error":"no such file"},)"
             R"({"title":"C","uri":"c"}])");
    playTrack(1);
    EXPECT_EQ(playTrack(2), "/player/instance/play: no such file");
    EXPECT_EQ(data().toJsonString(),
              R"({"controls":{},"state":0,"status":{"duration":0,"error":"no such file","rating":0}})");
    EXPECT_EQ(m_log.warnings(), Texts{"cannot play 'B': no such file"});
    playTrack(1);
    EXPECT_EQ(data().status().error(), "") << "of the track that was tried last";
    pass(1s);
    EXPECT_EQ(state(), States::Stopped) << "when its turn comes too";
    EXPECT_EQ(data().status().error(), "no such file");
    EXPECT_EQ(playTrack(3), "");
    EXPECT_EQ(title(), "C");
}

TEST_F(PlayerTest, AResourceNeedsAnAddressAndASoundCardADevice)
{
    const std::pair<const char*, const char*> errors[] = {
        {"", "the resource has no address"},
        {"alsa://", "alsa:// names no device"},
        {"alsa://?rate=48000", "alsa://?rate=48000 names no device"},
    };
    for (const auto& [uri, error] : errors) {
        const VornMediaData media = VornMediaData().setResources({VornResource().setUri(uri)});
        EXPECT_EQ(ended(player()->play(VornRoles().setMediaData(media), false)),
                  std::string("/player/instance/play: ") + error);
        EXPECT_EQ(data().status().error(), error);
        EXPECT_EQ(state(), States::Stopped);
    }
}

TEST_F(PlayerTest, ItsDataCanBeWrittenUntilItsNextChange)
{
    VornPlayLogicData other;
    other.setState(States::Enum(7));
    const CMVoidReply reply;
    CMRoot()->setValue(VornPlayLogicDataPath(), VornHash(other), reply);
    EXPECT_EQ(ended(reply), "");
    EXPECT_EQ(state(), States::Enum(7));
    playTrack(1);
    EXPECT_EQ(state(), States::Playing);
}

TEST_F(PlayerTest, ATickMovesThePositionAlone)
{
    playTrack(1);
    int changes = 0;
    const CMValueItem item(nullptr, VornPlayLogicDataPath());
    QObject::connect(&item, &CMValueItem::changed, [&] { ++changes; });
    pass(1s);
    pass(1s);
    EXPECT_EQ(changes, 0);
    EXPECT_EQ(ended(player()->next()), "");
    EXPECT_EQ(changes, 1) << "and a new track is one change";
}
