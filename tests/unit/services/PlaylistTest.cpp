#include "services/Playlist.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

namespace
{
std::string errorOfTracks(const QString& text)
{
    QString error;
    EXPECT_FALSE(Playlist::parse(text, &error).has_value()) << text.toStdString();
    return error.toStdString();
}

Playlist::Tracks tracksOf(const QString& text)
{
    QString error;
    const auto tracks = Playlist::parse(text, &error);
    EXPECT_TRUE(tracks.has_value()) << error.toStdString();
    return tracks.value_or(Playlist::Tracks());
}
} // namespace

TEST(Playlist, TakesEveryFieldOfATrack)
{
    const Playlist::Tracks tracks = tracksOf(
        R"([{"title":"t","artist":"a","album":"b","icon":"i","service":"Files","duration":5000000000,)"
        R"("canBeRated":true,"uri":"u","mimeType":"m","sampleRate":96000,"channels":2,"bits":24,"error":"e"}])");
    ASSERT_EQ(tracks.size(), 1);
    const Track& track = tracks.first();
    const QString resource =
        R"({"bitsPerSample":24,"duration":5000000000,"mimeType":"m","nrAudioChannels":2,)"
        R"("sampleFrequency":96000,"uri":"u"})";
    EXPECT_EQ(track.roles.toJsonString(),
              R"({"icon":"i","mediaData":{"activeResource":)" + resource
                  + R"(,"metaData":{"album":"b","artist":"a","canBeRated":true,"serviceID":"Files"},)"
                  + R"("resources":[)" + resource + R"(]},"title":"t"})");
    EXPECT_EQ(track.error, "e");
    EXPECT_EQ(track.rating, VornPlayLogicRating::None);
}

TEST(Playlist, ATrackWithoutAUriHasNoResource)
{
    const Playlist::Tracks tracks = tracksOf(R"([{"mimeType":"m","sampleRate":96000}, {}])");
    ASSERT_EQ(tracks.size(), 2);
    EXPECT_TRUE(tracks[0].roles.mediaData().resources().isEmpty());
    EXPECT_EQ(tracks[0].roles.mediaData().activeResource().mimeType(), "m");
    EXPECT_TRUE(tracks[1].error.isEmpty());
}

TEST(Playlist, CanBeEmpty)
{
    EXPECT_TRUE(tracksOf("[]").isEmpty());
}

TEST(Playlist, SaysWhatIsWrongAndWhere)
{
    EXPECT_EQ(errorOfTracks("{}"), "a playlist is a JSON list of tracks");
    EXPECT_EQ(errorOfTracks("[5]"), "track 1: a track is an object, not 5");
    EXPECT_EQ(errorOfTracks(R"([{}, {"title": 5}])"), "track 2: title takes a text, not 5");
    EXPECT_EQ(errorOfTracks(R"([{"titel": "a"}])"), "track 1: titel is no field of a track");
    EXPECT_EQ(errorOfTracks(R"([{"duration": -1}])"), "track 1: duration takes a whole number, not -1");
    EXPECT_EQ(errorOfTracks(R"([{"sampleRate": 44.1}])"),
              "track 1: sampleRate takes a whole number, not 44.1");
    EXPECT_EQ(errorOfTracks(R"([{"bits": 4294967296}])"),
              "track 1: bits takes a whole number, not 4294967296");
    EXPECT_EQ(errorOfTracks(R"([{"canBeRated": 1}])"), "track 1: canBeRated takes true or false, not 1");
    EXPECT_EQ(errorOfTracks("[\n{\"title\": }]").find("line 2 column "), 0U);
}

TEST(Playlist, ComesFromAFileOfUtf8)
{
    QTemporaryDir directory;
    const QString path = directory.filePath("list.json");
    QString error;
    EXPECT_FALSE(Playlist::load(path, &error).has_value());
    EXPECT_EQ(error, path + ": No such file or directory");
    const auto write = [&](const QByteArray& content) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
    };
    write("[{\"title\": \"\xFF\"}]");
    EXPECT_FALSE(Playlist::load(path, &error).has_value());
    EXPECT_EQ(error, path + " is not UTF-8");
    EXPECT_FALSE(Playlist::load("/dev/zero", &error).has_value());
    EXPECT_EQ(error, "/dev/zero has more than 16777216 bytes");
    write("[5]");
    EXPECT_FALSE(Playlist::load(path, &error).has_value());
    EXPECT_EQ(error, path + ": track 1: a track is an object, not 5");
    write("[{\"title\": \"Zw\xC3\xB6lf\"}]");
    const auto tracks = Playlist::load(path, &error);
    ASSERT_TRUE(tracks.has_value());
    EXPECT_EQ(tracks->first().roles.title(), QString::fromUtf8("Zw\xC3\xB6lf"));
}

TEST(Playlist, TheStandardOneHasTracksWithAndWithoutAnEnd)
{
    const Playlist::Tracks tracks = Playlist::standard();
    ASSERT_EQ(tracks.size(), 4);
    EXPECT_EQ(tracks.first().roles.mediaData().activeResource().duration(), 214000);
    EXPECT_EQ(tracks.last().roles.mediaData().activeResource().duration(), 0);
}
