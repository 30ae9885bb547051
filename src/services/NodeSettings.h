#pragma once

#include <QMap>
#include <QObject>
#include <QTimer>
#include <QVector>
#include <chrono>

#include "platform/sdk/CMPath.h"
#include "services/SettingsFile.h"

/// Keeps the values of some nodes over restarts: gives each node the value that it had, then saves every
/// change. Changes are saved together, a little after the first of them, so that a kill may lose the
/// youngest.
///
/// A save that fails is said in the log and tried again; until it works the values are kept here.
class NodeSettings : public QObject
{
    Q_OBJECT
public:
    struct Delays {
        std::chrono::milliseconds save{200};   ///< from a change to the save
        std::chrono::milliseconds retry{5000}; ///< from a failed save to the next, changed or not
    };

    /// Loads the file. `paths` are those of the nodes; what the file holds of others stays in it.
    NodeSettings(const QString& file, QVector<CMPath> paths, Delays delays);
    NodeSettings(const QString& file, QVector<CMPath> paths) : NodeSettings(file, std::move(paths), {}) {}

    /// Saves what is not saved yet. To be destroyed before the nodes.
    ~NodeSettings() override;

    /// Takes those nodes into its care that stand by now: their values are their first values, which a
    /// saved one replaces if the node takes it. To be called again when more nodes stand.
    void adopt();

    /// Gives all nodes their first values and forgets all others. False, and *error says why, when that
    /// could not be saved.
    bool reset(QString* error);

private:
    void restore(const CMPath& path);
    void watch(const CMPath& path);
    void keep(const CMPath& path, const VornValue& value);
    void forgetFirstValues();
    bool save(QString* error);
    void on_saveTimer_timeout();

    SettingsFile m_file;
    QVector<CMPath> m_paths;
    Delays m_delays;
    SettingsFile::Values m_values;         ///< what the file holds, or will
    QMap<CMPath, VornValue> m_firstValues; ///< of every node in its care
    QTimer m_saveTimer;                    ///< runs while something is to be saved
    QString m_failure;                     ///< of the last save; empty when it worked
};
