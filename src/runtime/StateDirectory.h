#pragma once

#include <QString>

#include "platform/hostlink/FileDescriptor.h"

/// The directory of what outlasts a module. One module has it at a time, however that one ends.
class StateDirectory
{
public:
    /// To be called once. Creates the directory for its owner only where it is missing; otherwise *error
    /// says why not or who has it.
    bool open(const QString& path, QString* error);

    QString file(const QString& name) const { return m_path + '/' + name; }

private:
    QString m_path;
    FileDescriptor m_descriptor; ///< locked: that needs no file, so an unwritable directory has a lock too
};
