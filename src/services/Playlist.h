#pragma once

#include <QString>
#include <QVector>
#include <optional>

#include "platform/sdk/VornPlayLogicData.h"

/// Something that the player can be given to play.
struct Track {
    VornRoles roles;
    QString error; ///< why it cannot be played, for tests of what happens then; empty: it can
    VornPlayLogicRating::Enum rating = VornPlayLogicRating::None;
};

/// Tracks in a file: a JSON list of objects, every field of which may be left out:
///     [{"title": "Slow Tide", "artist": "The Lanterns", "album": "Harbour Lights", "icon": "http://a/b.png",
///       "service": "Files", "duration": 214000, "canBeRated": true,
///       "uri": "file:///music/1.flac", "mimeType": "audio/flac",
///       "sampleRate": 96000, "channels": 2, "bits": 24, "error": "no such file"}]
/// The duration is in milliseconds; without one the track has no end. Without a uri the track has no
/// resource, so that its sample rate is the one of the sound card.
class Playlist
{
public:
    using Tracks = QVector<Track>;

    /// The tracks that come with the program (DefaultPlaylist.json).
    static Tracks standard();

    /// Without a result *error says what is wrong and where.
    static std::optional<Tracks> parse(const QString& text, QString* error);

    /// The tracks in a file of UTF-8 text; *error names the file.
    static std::optional<Tracks> load(const QString& file, QString* error);
};
