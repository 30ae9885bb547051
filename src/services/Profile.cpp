#include "services/Profile.h"

#include "platform/sdk/VornJson.h"
#include "services/NodeNames.h"
#include "services/Resources.h"
#include "services/Utf8.h"

namespace
{
const QString kSettings = QStringLiteral("settings");

bool isTypedField(const QString& key)
{
#define FIELD(type, getter, setter, Key) VornValue::Key(),
    static const QStringList keys{VORN_VALUE_FIELDS(FIELD)};
#undef FIELD
    return keys.contains(key);
}

/// What is wrong with the JSON form of a value; empty when nothing is.
QString flaw(const QVariant& json)
{
    if (json.userType() != QMetaType::QVariantHash) {
        return R"(a value is an object such as {"i32_": 30}, not )" + VornJson::print(json);
    }
    const QVariantHash form = json.toHash();
    for (auto field = form.begin(); field != form.end(); ++field) {
        const VornValue alone{{field.key(), field.value()}};
        if (isTypedField(field.key()) && alone.type() == VornValue::Type::Hash) {
            return field.key() + " cannot hold " + VornJson::print(field.value());
        }
    }
    return {};
}

bool resolve(const QString& name, CMPath* path, QString* error)
{
    *path = resolveNodeName(name);
    if (path->isEmpty()) {
        *error = name + " is neither a path nor the name of one";
        return false;
    }
    return true;
}

bool addEntry(const QString& name, const QVariant& json, Profile* profile, QString* error)
{
    CMPath path;
    if (!resolve(name, &path, error)) {
        return false;
    }
    if (profile->values().contains(path)) {
        *error = path.toString() + " has two entries, by its path and by its accessor";
        return false;
    }
    if (const QString problem = flaw(json); !problem.isEmpty()) {
        *error = name + ": " + problem;
        return false;
    }
    profile->set(path, VornHash(json.toHash()));
    return true;
}

bool addSettings(const QVariant& json, Profile* profile, QString* error)
{
    if (json.userType() != QMetaType::QVariantList) {
        *error = R"("settings" is a list of nodes, not )" + VornJson::print(json);
        return false;
    }
    QVector<CMPath> paths;
    for (const QVariant& name : json.toList()) {
        CMPath path;
        if (name.userType() != QMetaType::QString) {
            *error = "settings: " + VornJson::print(name) + " is no name of a node";
            return false;
        }
        if (!resolve(name.toString(), &path, error)) {
            error->prepend("settings: ");
            return false;
        }
        if (paths.contains(path)) {
            *error = "settings: " + path.toString() + " is named twice";
            return false;
        }
        paths.append(path);
    }
    profile->setSettings(paths);
    return true;
}
} // namespace

Profile Profile::standard()
{
    initServiceResources();
    QString error;
    const std::optional<Profile> profile = load(":/DefaultProfile.json", &error);
    if (!profile) {
        qFatal("%s", qPrintable(error));
    }
    return *profile;
}

QVector<CMPath> Profile::settings() const
{
    return m_settings ? *m_settings : standard().m_settings.value_or(QVector<CMPath>());
}

std::optional<Profile> Profile::parse(const QString& text, QString* error)
{
    VornJson::Error syntax;
    const QVariant json = VornJson::parse(text, &syntax);
    if (!syntax.isEmpty()) {
        *error = syntax.toString();
        return std::nullopt;
    }
    if (json.userType() != QMetaType::QVariantHash) {
        *error = "a profile is a JSON object of nodes and their values";
        return std::nullopt;
    }
    Profile profile;
    QVariantHash entries = json.toHash();
    if (entries.contains(kSettings) && !addSettings(entries.take(kSettings), &profile, error)) {
        return std::nullopt;
    }
    QStringList names = entries.keys();
    names.sort();
    for (const QString& name : names) {
        if (!addEntry(name, entries[name], &profile, error)) {
            return std::nullopt;
        }
    }
    return profile;
}

std::optional<Profile> Profile::load(const QString& file, QString* error)
{
    const std::optional<QString> text = readUtf8File(file, error);
    if (!text) {
        return std::nullopt;
    }
    QString problem;
    std::optional<Profile> profile = parse(*text, &problem);
    if (!profile) {
        *error = file + ": " + problem;
    }
    return profile;
}
