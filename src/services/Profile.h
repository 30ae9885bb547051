#pragma once

#include <QMap>
#include <QString>
#include <QVector>
#include <optional>

#include "platform/sdk/CMPath.h"
#include "platform/sdk/VornValue.h"

/// Nodes and their first values. Its text form is a JSON object: the key is a node's path or the name
/// of its accessor, the value is in VornValue's JSON form:
///     {"VornPlayerMutePath": {"bool_": false}, "/my/node": {"string_": "text"}}
/// The key "settings" holds the names of the nodes that keep their values over a restart:
///     {"VornPlayerMutePath": {"bool_": false}, "settings": ["VornPlayerMutePath"]}
class Profile
{
public:
    /// The profile that comes with the program (DefaultProfile.json).
    static Profile standard();

    /// Without a result *error says what is wrong and, for JSON that does not parse, at which line and
    /// column.
    static std::optional<Profile> parse(const QString& text, QString* error);

    /// The profile in a file of UTF-8 text; *error names the file.
    static std::optional<Profile> load(const QString& file, QString* error);

    /// Adds a node or replaces its first value.
    void set(const CMPath& path, const VornValue& value) { m_values[path] = value; }

    const QMap<CMPath, VornValue>& values() const { return m_values; }

    /// The nodes that keep their values over a restart, of the profile or not; those of the standard
    /// profile where this one does not say.
    QVector<CMPath> settings() const;
    void setSettings(QVector<CMPath> paths) { m_settings = std::move(paths); }

private:
    QMap<CMPath, VornValue> m_values;
    std::optional<QVector<CMPath>> m_settings;
};
