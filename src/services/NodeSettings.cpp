#include "services/NodeSettings.h"

#include <log4cplus/loggingmacros.h>

#include "platform/sdk/CMItem.h"
#include "platform/sdk/CMWorker.h"

static log4cplus::Logger settingsLogger = log4cplus::Logger::getInstance("Services.Settings");

namespace
{
/// Writes a node as anybody would; a refusal leaves it as it is.
void write(const CMPath& path, const VornValue& value)
{
    const CMReply<QVariant> reply;
    CMRoot()->setValue(path, value, reply);
    reply.wait();
    if (reply.error().isError()) {
        LOG4CPLUS_WARN(settingsLogger, "setting not restored: " << reply.error().Message().toStdString());
    }
}
} // namespace

NodeSettings::NodeSettings(const QString& file, QVector<CMPath> paths, Delays delays)
    : m_file(file), m_paths(std::move(paths)), m_delays(delays), m_values(m_file.load())
{
    m_saveTimer.setSingleShot(true);
    connect(&m_saveTimer, &QTimer::timeout, this, &NodeSettings::on_saveTimer_timeout);
}

NodeSettings::~NodeSettings()
{
    QString error;
    if (m_saveTimer.isActive()) {
        save(&error);
    }
}

void NodeSettings::adopt()
{
    for (const CMPath& path : qAsConst(m_paths)) {
        const QVariant value = CMRoot()->getValue(path);
        if (!value.isValid() || m_firstValues.contains(path)) {
            continue;
        }
        m_firstValues.insert(path, VornHash(value.toHash()));
        restore(path);
        watch(path);
    }
}

void NodeSettings::restore(const CMPath& path)
{
    const auto value = m_values.constFind(path);
    if (value != m_values.constEnd()) {
        write(path, value.value());
    }
}

void NodeSettings::watch(const CMPath& path)
{
    auto* const item = new CMValueItem(this, path);
    connect(item, &CMValueItem::changed, this, [this, path](const VornValue& value) {
        if (CMRoot()->getValue(path).isValid()) { // the end of a node is no change
            keep(path, value);
        }
    });
}

void NodeSettings::keep(const CMPath& path, const VornValue& value)
{
    m_values[path] = value;
    if (!m_saveTimer.isActive() || m_saveTimer.remainingTimeAsDuration() > m_delays.save) {
        m_saveTimer.start(m_delays.save);
    }
}

bool NodeSettings::reset(QString* error)
{
    m_values.clear();
    for (auto first = m_firstValues.constBegin(); first != m_firstValues.constEnd(); ++first) {
        write(first.key(), first.value());
    }
    forgetFirstValues();
    return save(error);
}

/// What the reset wrote is not to be kept, only what others wrote meanwhile.
void NodeSettings::forgetFirstValues()
{
    for (auto value = m_values.begin(); value != m_values.end();) {
        value = value.value().sameAs(m_firstValues.value(value.key())) ? m_values.erase(value) : ++value;
    }
}

bool NodeSettings::save(QString* error)
{
    m_saveTimer.stop();
    if (m_file.save(m_values, error)) {
        if (!m_failure.isEmpty()) {
            LOG4CPLUS_WARN(settingsLogger, "settings can be saved again");
        }
        m_failure.clear();
        return true;
    }
    if (*error != m_failure) {
        LOG4CPLUS_ERROR(settingsLogger, "settings cannot be saved: " << error->toStdString());
    }
    m_failure = *error;
    m_saveTimer.start(m_delays.retry);
    return false;
}

void NodeSettings::on_saveTimer_timeout()
{
    QString error;
    save(&error);
}
