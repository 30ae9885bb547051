#include "services/SettingsFile.h"

#include <log4cplus/loggingmacros.h>

#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>

#include "platform/sdk/VornJson.h"
#include "services/ReplaceFile.h"
#include "services/Utf8.h"

static log4cplus::Logger settingsFileLogger = log4cplus::Logger::getInstance("Services.Settings");

namespace
{
constexpr qint32 kVersion = 1;
const QString kVersionKey = QStringLiteral("hostlinkSettings");
const QString kNodesKey = QStringLiteral("nodes");

std::optional<SettingsFile::Values> invalid(const QString& text, QString* error)
{
    *error = text;
    return std::nullopt;
}

std::optional<SettingsFile::Values> parse(const QString& text, QString* error)
{
    VornJson::Error syntax;
    const VornHash form(VornJson::parse(text, &syntax).toHash());
    if (!syntax.isEmpty()) {
        return invalid(syntax.toString(), error);
    }
    if (VornField::get<qint32>(form, kVersionKey) != kVersion) {
        return invalid(QString("no settings of version %1").arg(kVersion), error);
    }
    const auto nodes = VornField::read<QVariantHash>(form.value(kNodesKey));
    if (!nodes) {
        return invalid("no nodes", error);
    }
    SettingsFile::Values values;
    for (auto node = nodes->begin(); node != nodes->end(); ++node) {
        const auto value = VornField::read<QVariantHash>(node.value());
        if (!value || !node.key().startsWith('/')) {
            return invalid(node.key() + " is no node with a value", error);
        }
        values.insert(CMPath(node.key()), VornHash(*value));
    }
    return values;
}

std::optional<SettingsFile::Values> read(const QString& path, QString* error)
{
    if (!QFileInfo(path).isFile()) {
        return invalid("no plain file", error);
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return invalid(file.errorString(), error);
    }
    if (file.size() > kMostFileBytes) {
        return invalid(QString("more than %1 bytes").arg(kMostFileBytes), error);
    }
    const std::optional<QString> text = fromUtf8(file.readAll());
    return text ? parse(*text, error) : invalid("not UTF-8", error);
}

bool isTaken(const QString& path)
{
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
}
} // namespace

SettingsFile::Values SettingsFile::load()
{
    if (!isTaken(m_path)) {
        return {};
    }
    QString problem;
    const std::optional<Values> values = read(m_path, &problem);
    if (values) {
        return *values;
    }
    QString error;
    const QString name = setAside(&error);
    const QString outcome =
        name.isEmpty()
            ? "; settings have their first values and are not saved as long as it is there: " + error
            : ", kept as " + name + "; settings have their first values";
    LOG4CPLUS_ERROR(settingsFileLogger, m_path.toStdString() << " cannot be used (" << problem.toStdString()
                                                             << ")" << outcome.toStdString());
    return {};
}

bool SettingsFile::save(const Values& values, QString* error)
{
    if (m_isInTheWay && setAside(error).isEmpty()) {
        return false;
    }
    QVariantHash nodes;
    for (auto value = values.begin(); value != values.end(); ++value) {
        nodes.insert(value.key().toString(), QVariantHash(value.value()));
    }
    const VornHash form{{kVersionKey, kVersion}, {kNodesKey, nodes}};
    return replaceFile(m_path, form.toJsonString().toUtf8() + '\n', error);
}

QString SettingsFile::setAside(QString* error)
{
    QString name = m_path + ".bad";
    for (int number = 2; isTaken(name); ++number) {
        name = m_path + QString(".bad-%1").arg(number);
    }
    m_isInTheWay =
        isTaken(m_path)
        && std::rename(QFile::encodeName(m_path).constData(), QFile::encodeName(name).constData()) != 0;
    if (m_isInTheWay) {
        *error = m_path + ": " + QString::fromLocal8Bit(std::strerror(errno));
        return {};
    }
    return name;
}
