// The texts of the files that a module reads: a profile, a playlist, saved settings.

#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>

#include <QFile>
#include <QTemporaryDir>

#include "FuzzInput.h"
#include "platform/sdk/VornJson.h"
#include "services/Playlist.h"
#include "services/Profile.h"
#include "services/SettingsFile.h"
#include "services/Utf8.h"

namespace
{

QString settingsPath()
{
    static const QTemporaryDir directory("/dev/shm/settings-fuzz-XXXXXX");
    require(directory.isValid());
    return directory.filePath("settings.json");
}

bool isOfSettings(const QByteArray& bytes)
{
    VornJson::Error error;
    const VornHash form(VornJson::parse(fromUtf8(bytes).value_or(QString()), &error).toHash());
    return error.isEmpty() && VornField::get<qint32>(form, "hostlinkSettings") == 1;
}

/// A file is read whole, or kept under another name; what was read is saved and read as the same.
void requireSettings(const QByteArray& bytes)
{
    QFile file(settingsPath());
    require(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
    file.close();
    SettingsFile settings(settingsPath());
    const SettingsFile::Values values = settings.load();
    const bool isKeptAside = QFile::remove(settingsPath() + ".bad");
    require(isKeptAside != QFile::exists(settingsPath()));
    require(isKeptAside ? values.isEmpty() : isOfSettings(bytes));
    QString error;
    require(settings.save(values, &error));
    const SettingsFile::Values again = settings.load();
    require(again.keys() == values.keys());
    for (auto value = values.begin(); value != values.end(); ++value) {
        require(again.value(value.key()).sameAs(value.value()));
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    log4cplus::Logger::getRoot().addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<int>(size));
    requireSettings(bytes);
    const std::optional<QString> text = fromUtf8(bytes);
    if (!text) {
        return 0;
    }
    QString error;
    const std::optional<Profile> profile = Profile::parse(*text, &error);
    require(profile.has_value() == error.isEmpty());
    if (profile) {
        require(profile->settings().size() >= 0);
    }
    error.clear();
    const std::optional<Playlist::Tracks> tracks = Playlist::parse(*text, &error);
    require(tracks.has_value() == error.isEmpty());
    return 0;
}
