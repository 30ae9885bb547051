#pragma once

#include <QMutex>
#include <QObject>
#include <QStringList>
#include <functional>

#include "platform/sdk/CMPath.h"
#include "platform/sdk/CMSetDataRequest.h"
#include "platform/sdk/VornRoles.h"
#include "platform/sdk/VornValue.h"

/// The nodes of one owner, all in the process's one tree. Destroying it removes them.
class CMNodes : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    /// Sorted paths of all nodes of the process that begin with `prefix`.
    static QStringList list(const QString& prefix = {});
};

/// A node: something at a path. A path holds one node at a time; creating a second one there is fatal.
class CMNode : public QObject
{
    Q_OBJECT
public:
    ~CMNode() override;

    const CMPath& path() const { return m_path; }

protected:
    CMNode(CMNodes* nodes, const CMPath& path);

private:
    CMPath m_path;
};

/// A node that holds a value. Its type is that of the first value that is not empty: one of VornValue's
/// fields, or a plain hash, which accepts any hash.
class CMValueNode : public CMNode
{
    Q_OBJECT
public:
    /// A node without a value yet. `mutex` is for trees shared between threads; nullptr here.
    static CMValueNode* create(CMNodes* nodes, const CMPath& path, QMutex* mutex = nullptr);

    const VornValue& value() const { return m_value; }

    /// The owner's write: watchers get changed(new, previous) inside it. An equal value does nothing.
    void setValue(const VornValue& value);

    /// Read-only nodes refuse writes through a worker's setValue, not their owner's.
    void setReadOnly(bool readOnly) { m_readOnly = readOnly; }
    bool isReadOnly() const { return m_readOnly; }

    /// The media item's other roles (title, edit limits); its value role is value().
    void setRoles(const VornRoles& roles);
    VornRoles roles() const;

private:
    CMValueNode(CMNodes* nodes, const CMPath& path);

    VornValue m_value;
    VornRoles m_roles;
    bool m_readOnly = false;
};

/// A node that can be invoked.
class CMActivateNode : public CMNode
{
    Q_OBJECT
public:
    /// `slot` of `receiver` gets each request; queued delivery runs it later, from the event loop.
    template <typename Receiver>
    static CMActivateNode* create(CMNodes* nodes, const CMPath& path, Receiver* receiver,
                                  void (Receiver::*slot)(const CMSetDataRequest&),
                                  Qt::ConnectionType type = Qt::QueuedConnection)
    {
        return create(
            nodes, path, receiver,
            [receiver, slot](const CMSetDataRequest& request) { (receiver->*slot)(request); }, type);
    }

    static CMActivateNode* create(CMNodes* nodes, const CMPath& path, QObject* receiver,
                                  std::function<void(const CMSetDataRequest&)> handler,
                                  Qt::ConnectionType type);

    /// Delivers one request.
    void activate(const CMSetDataRequest& request);

private:
    CMActivateNode(CMNodes* nodes, const CMPath& path);

    QPointer<QObject> m_receiver;
    std::function<void(const CMSetDataRequest&)> m_handler;
    Qt::ConnectionType m_type = Qt::QueuedConnection;
};
