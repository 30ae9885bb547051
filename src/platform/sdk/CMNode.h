#pragma once

#include <QMutex>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <functional>
#include <optional>

#include "platform/sdk/CMPath.h"
#include "platform/sdk/CMSetDataRequest.h"
#include "platform/sdk/VornRoles.h"
#include "platform/sdk/VornValue.h"

/// The nodes of one owner, all in the process's one tree. Destroying it removes them.
class CMNodes : public QObject
{
    Q_OBJECT
public:
    using Creator = std::function<void(const CMPath& path)>;

    using QObject::QObject;
    ~CMNodes() override;

    /// Claims everything below `path`: a write from outside to a path there without a node first calls
    /// `create`, which makes a value node at the path or leaves it. The nearest claim above a path
    /// decides; a second claim of the same path is fatal.
    void ownSubtree(const CMPath& path, Creator create);

    /// Sorted paths of all nodes of the process that begin with `prefix`.
    static QStringList list(const QString& prefix = {});

    /// Whether any node of the process stands there.
    static bool exists(const CMPath& path);
};

/// A node: something at a path. A path holds one node at a time; creating a second one there is fatal.
/// Nodes belong to one thread, as everything of the tree.
class CMNode : public QObject
{
    Q_OBJECT
public:
    ~CMNode() override;

    const CMPath& path() const { return m_path; }

    /// Who may use the node; carried, not examined.
    void setPermission(VornPermission::Enum permission) { m_permission = permission; }
    VornPermission::Enum permission() const { return m_permission; }

protected:
    CMNode(CMNodes* nodes, const CMPath& path);

private:
    CMPath m_path;
    VornPermission::Enum m_permission = VornPermission::Unset;
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

    /// The owner's write, which the type does not bind: watchers get changed(new, previous) inside it.
    /// An equal value does nothing.
    void setValue(const VornValue& value);

    /// Where the value of a node that changes all the time comes from: asked each time that the node is read
    /// by its path, and what it gives is then set. It must not destroy the node.
    using Source = std::function<VornValue()>;
    void setSource(Source source) { m_source = std::move(source); }
    void refresh();

    /// True while somebody watches the node's value.
    bool isWatched() const;

    /// Hash as long as there was no value.
    VornValue::Type type() const { return m_type.value_or(VornValue::Type::Hash); }

    /// True when an outside write may set `value`: its type is the node's, or the node's is not a
    /// scalar's.
    bool accepts(const VornValue& value) const;

    /// Read-only nodes refuse writes through a worker's setValue, not their owner's.
    void setReadOnly(bool readOnly) { m_readOnly = readOnly; }
    bool isReadOnly() const { return m_readOnly; }

    /// The owner's own check of outside writes, made after the one of the type: a text that says why a value
    /// is refused, empty for none. It must leave the tree as it is.
    using Check = std::function<QString(const VornValue& value)>;
    void setCheck(Check check) { m_check = std::move(check); }
    QString objection(const VornValue& value) const { return m_check ? m_check(value) : QString(); }

    /// The media item's other roles (title, edit limits); its value role is value().
    void setRoles(const VornRoles& roles);
    VornRoles roles() const;

private:
    CMValueNode(CMNodes* nodes, const CMPath& path);

    VornValue m_value;
    std::optional<VornValue::Type> m_type;
    VornRoles m_roles;
    Check m_check;
    Source m_source;
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

    /// Delivers one request. Without a receiver, or with one that is gone, the request fails.
    void activate(const CMSetDataRequest& request);

private:
    CMActivateNode(CMNodes* nodes, const CMPath& path);
    void deliver(const CMSetDataRequest& request);

    QPointer<QObject> m_receiver;
    std::function<void(const CMSetDataRequest&)> m_handler;
    Qt::ConnectionType m_type = Qt::QueuedConnection;
};
