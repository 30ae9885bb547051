#pragma once

#include <QMap>
#include <QString>

#include "platform/sdk/CMPath.h"
#include "platform/sdk/VornValue.h"

/// Values of nodes in one file, as UTF-8 JSON with the values in VornValue's form:
///     {"hostlinkSettings":1,"nodes":{"/player/volume":{"i32_":30}}}
/// The first number is the version of this form. A program has the file for itself.
class SettingsFile
{
public:
    using Values = QMap<CMPath, VornValue>;

    explicit SettingsFile(QString path) : m_path(std::move(path)) {}

    /// What was saved last, nothing where there is no file. Anything else at the path, a damaged file or
    /// one of another program, is kept under another name beside it (PATH.bad, PATH.bad-2, ...), which the
    /// log tells; then there are no values either.
    Values load();

    /// Replaces the file as replaceFile() does. Never replaces one that load() could not read.
    bool save(const Values& values, QString* error);

private:
    /// The name under which what is at the path is kept now; empty, and *error set, when it cannot be.
    QString setAside(QString* error);

    QString m_path;
    bool m_isInTheWay = false; ///< something that is no settings file is still at the path
};
