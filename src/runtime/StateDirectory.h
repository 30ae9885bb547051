#pragma once

#include <QString>

/// The directory of what outlasts a module. One module has it at a time, however that one ends.
class StateDirectory
{
public:
    StateDirectory() = default;
    ~StateDirectory();
    StateDirectory(const StateDirectory&) = delete;
    StateDirectory& operator=(const StateDirectory&) = delete;

    /// To be called once. Creates the directory for its owner only where it is missing; otherwise *error
    /// says why not or who has it.
    bool open(const QString& path, QString* error);

    QString file(const QString& name) const { return m_path + '/' + name; }

private:
    QString m_path;
    int m_descriptor = -1; ///< locked: that needs no file, so an unwritable directory has a lock too
};
