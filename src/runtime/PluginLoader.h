#pragma once

#include <QString>
#include <QVariantHash>
#include <memory>

#include "platform/sdk/CMWorker.h"

/// Loads a worker plug-in. The plug-in stays loaded until the process ends, since timers, loggers and
/// threads may still run its code.
class PluginLoader
{
public:
    /// Loads `file` and looks up its worker_create. Without success *error says what is missing.
    bool load(const QString& file, QString* error);

    /// A new worker of the loaded plug-in, or nullptr and *error when it could not be constructed.
    std::unique_ptr<CMNodesWorker> createWorker(const QVariantHash& config, QString* error) const;

private:
    using WorkerCreate = void* (*)(void* ignored, const QVariantHash& config);

    QString m_file;
    WorkerCreate m_create = nullptr;
};
