#pragma once

#include <QObject>

#include "platform/sdk/CMPath.h"
#include "platform/sdk/CMWatched.h"
#include "platform/sdk/VornRoles.h"
#include "platform/sdk/VornValue.h"

/// Watches a path before, while and after a value node exists there. Made on an existing node it has
/// the value at once and emits nothing; a node that appears later emits (value, empty), one that goes
/// away (empty, value).
///
/// Handlers may do anything to the tree. All items of a path have the new value before the first of
/// them emits; a change made inside an item's signal reaches that item once the signal has reached all
/// its handlers, so that each handler's last value is the newest.
class CMValueItem : public QObject
{
    Q_OBJECT
public:
    CMValueItem(QObject* parent, const CMPath& path);
    ~CMValueItem() override;

    const CMPath& path() const { return m_path; }
    const VornValue& value() const { return m_watched.current; }

signals:
    void changed(const VornValue& value, const VornValue& previous);

private:
    friend class CMTree;
    CMPath m_path;
    CMWatched<VornValue> m_watched;
};

/// Watches the roles of a path: as CMValueItem, on any change of the value or the other roles.
class CMItem : public QObject
{
    Q_OBJECT
public:
    CMItem(QObject* parent, const CMPath& path);
    ~CMItem() override;

    const CMPath& path() const { return m_path; }
    const VornRoles& roles() const { return m_watched.current; }

signals:
    void changed(const VornRoles& roles, const VornRoles& previous);

private:
    friend class CMTree;
    CMPath m_path;
    CMWatched<VornRoles> m_watched;
};
