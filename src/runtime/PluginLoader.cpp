#include "runtime/PluginLoader.h"

#include <dlfcn.h>

#include <QFileInfo>
#include <exception>

bool PluginLoader::load(const QString& file, QString* error)
{
    const QFileInfo info(file);
    if (!info.isFile()) {
        *error = "no plug-in at " + file;
        return false;
    }
    // A path without a slash would be searched for in the system's library directories.
    const QByteArray path = info.absoluteFilePath().toLocal8Bit();
    void* library = dlopen(path.constData(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (library == nullptr) {
        *error = QString("cannot load the plug-in: ") + dlerror();
        return false;
    }
    m_create = reinterpret_cast<WorkerCreate>(dlsym(library, "worker_create"));
    if (m_create == nullptr) {
        *error = file + " is no worker plug-in: it has no worker_create";
        return false;
    }
    m_file = file;
    return true;
}

std::unique_ptr<CMNodesWorker> PluginLoader::createWorker(const QVariantHash& config, QString* error) const
{
    void* worker = nullptr;
    try {
        worker = m_create(nullptr, config);
    } catch (const std::exception& failure) {
        *error = m_file + ": the worker could not be constructed: " + failure.what();
        return nullptr;
    }
    if (worker == nullptr) {
        *error = m_file + ": worker_create gave no worker";
    }
    return std::unique_ptr<CMNodesWorker>(static_cast<CMNodesWorker*>(worker));
}
