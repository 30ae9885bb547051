#include "services/Playlist.h"

#include <array>

#include "platform/sdk/VornJson.h"
#include "services/Resources.h"
#include "services/Utf8.h"

namespace
{
/// A track while its fields come in.
struct Draft {
    VornRoles roles;
    VornMetaData metaData;
    VornResource resource;
    QString error;
};

template <typename T>
bool take(const QVariant& json, T* field)
{
    const std::optional<T> value = VornField::read<T>(json);
    if (value) {
        *field = *value;
    }
    return value.has_value();
}

/// Takes a field of JSON; false where it is of another type.
template <typename T, typename Set>
bool set(const QVariant& json, Set setField)
{
    T value{};
    const bool taken = take(json, &value);
    if (taken) {
        setField(value);
    }
    return taken;
}

bool setNumber(const QVariant& json, VornResource* resource,
               VornResource& (VornResource::*setter)(const qint32&))
{
    return set<qint32>(json, [&](qint32 number) { (resource->*setter)(number); });
}

struct FieldRow {
    const char* name;
    const char* takes;
    bool (*apply)(const QVariant& json, Draft* draft);
};

constexpr const char* kText = "a text";
constexpr const char* kNumber = "a whole number";

const std::array kFields{
    FieldRow{"title", kText,
             [](const QVariant& json, Draft* draft) {
                 return set<QString>(json, [&](const QString& text) { draft->roles.setTitle(text); });
             }},
    FieldRow{"icon", kText,
             [](const QVariant& json, Draft* draft) {
                 return set<QString>(json, [&](const QString& text) { draft->roles.setIcon(text); });
             }},
    FieldRow{"artist", kText,
             [](const QVariant& json, Draft* draft) {
                 return set<QString>(json, [&](const QString& text) { draft->metaData.setArtist(text); });
             }},
    FieldRow{"album", kText,
             [](const QVariant& json, Draft* draft) {
                 return set<QString>(json, [&](const QString& text) { draft->metaData.setAlbum(text); });
             }},
    FieldRow{"service", kText,
             [](const QVariant& json, Draft* draft) {
                 return set<QString>(json, [&](const QString& text) { draft->metaData.setServiceID(text); });
             }},
    FieldRow{"canBeRated", "true or false",
             [](const QVariant& json, Draft* draft) {
                 return set<bool>(json, [&](bool can) { draft->metaData.setCanBeRated(can); });
             }},
    FieldRow{"uri", kText,
             [](const QVariant& json, Draft* draft) {
                 return set<QString>(json, [&](const QString& text) { draft->resource.setUri(text); });
             }},
    FieldRow{"mimeType", kText,
             [](const QVariant& json, Draft* draft) {
                 return set<QString>(json, [&](const QString& text) { draft->resource.setMimeType(text); });
             }},
    FieldRow{"duration", kNumber,
             [](const QVariant& json, Draft* draft) {
                 return set<qint64>(json, [&](qint64 number) { draft->resource.setDuration(number); })
                        && draft->resource.duration() >= 0;
             }},
    FieldRow{"sampleRate", kNumber,
             [](const QVariant& json, Draft* draft) {
                 return setNumber(json, &draft->resource, &VornResource::setSampleFrequency);
             }},
    FieldRow{"channels", kNumber,
             [](const QVariant& json, Draft* draft) {
                 return setNumber(json, &draft->resource, &VornResource::setNrAudioChannels);
             }},
    FieldRow{"bits", kNumber,
             [](const QVariant& json, Draft* draft) {
                 return setNumber(json, &draft->resource, &VornResource::setBitsPerSample);
             }},
    FieldRow{"error", kText, [](const QVariant& json, Draft* draft) { return take(json, &draft->error); }},
};

/// What is wrong with a field; empty when nothing is.
QString addField(const QString& name, const QVariant& json, Draft* draft)
{
    for (const FieldRow& row : kFields) {
        if (name != QLatin1String(row.name)) {
            continue;
        }
        return row.apply(json, draft)
                   ? QString()
                   : QString("%1 takes %2, not %3").arg(name, row.takes, VornJson::print(json));
    }
    return name + " is no field of a track";
}

Track trackOf(const Draft& draft)
{
    VornMediaData media;
    media.setMetaData(draft.metaData).setActiveResource(draft.resource);
    if (!draft.resource.uri().isEmpty()) {
        media.setResources({draft.resource});
    }
    Track track;
    track.roles = draft.roles;
    track.roles.setMediaData(media);
    track.error = draft.error;
    return track;
}

std::optional<Track> parseTrack(const QVariant& json, QString* error)
{
    const std::optional<QVariantHash> fields = VornField::read<QVariantHash>(json);
    if (!fields) {
        *error = "a track is an object, not " + VornJson::print(json);
        return std::nullopt;
    }
    Draft draft;
    QStringList names = fields->keys();
    names.sort();
    for (const QString& name : names) {
        *error = addField(name, fields->value(name), &draft);
        if (!error->isEmpty()) {
            return std::nullopt;
        }
    }
    return trackOf(draft);
}
} // namespace

Playlist::Tracks Playlist::standard()
{
    initServiceResources();
    QString error;
    const std::optional<Tracks> tracks = load(":/DefaultPlaylist.json", &error);
    if (!tracks) {
        qFatal("%s", qPrintable(error));
    }
    return *tracks;
}

std::optional<Playlist::Tracks> Playlist::parse(const QString& text, QString* error)
{
    VornJson::Error syntax;
    const std::optional<QVariantList> list = VornField::read<QVariantList>(VornJson::parse(text, &syntax));
    if (!syntax.isEmpty() || !list) {
        *error = syntax.isEmpty() ? "a playlist is a JSON list of tracks" : syntax.toString();
        return std::nullopt;
    }
    Tracks tracks;
    for (const QVariant& json : *list) {
        const std::optional<Track> track = parseTrack(json, error);
        if (!track) {
            error->prepend(QString("track %1: ").arg(tracks.size() + 1));
            return std::nullopt;
        }
        tracks.append(*track);
    }
    return tracks;
}

std::optional<Playlist::Tracks> Playlist::load(const QString& file, QString* error)
{
    const std::optional<QString> text = readUtf8File(file, error);
    if (!text) {
        return std::nullopt;
    }
    QString problem;
    std::optional<Tracks> tracks = parse(*text, &problem);
    if (!tracks) {
        *error = file + ": " + problem;
    }
    return tracks;
}
