#pragma once

#include <QString>

/// File of a worker plug-in that was built with these tests.
inline QString pluginFile(const QString& name)
{
    return QString(PLUGIN_DIRECTORY) + '/' + name + ".so";
}
