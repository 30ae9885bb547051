#pragma once

#include <QHash>
#include <QMetaType>
#include <QString>

#include "vocabulary/Nodes.h"

/// Path of a node: parts separated by slashes, "/player/volume".
class CMPath
{
public:
    CMPath() = default;
    explicit CMPath(QString path);
    explicit CMPath(Node node);

    /// This path with one more part, or with the parts of a relative path, behind it.
    CMPath appendSubpath(const QString& subpath) const;

    bool isEmpty() const { return m_path.isEmpty(); }
    const QString& toString() const { return m_path; }

    friend bool operator==(const CMPath& a, const CMPath& b) { return a.m_path == b.m_path; }
    friend bool operator!=(const CMPath& a, const CMPath& b) { return !(a == b); }
    friend bool operator<(const CMPath& a, const CMPath& b) { return a.m_path < b.m_path; }
    friend uint qHash(const CMPath& path, uint seed = 0) { return qHash(path.m_path, seed); }

private:
    QString m_path;
};

Q_DECLARE_METATYPE(CMPath)
