#pragma once

#include <QObject>
#include <QVariantHash>

#include "platform/sdk/CMPath.h"
#include "platform/sdk/CMReply.h"
#include "platform/sdk/VornValue.h"

class CMNodes;

/// What every worker offers: the node tree's operations.
class CMAbstractWorker : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    /// The hash of a node's value (a QVariantHash), at once; invalid where there is no value node.
    virtual QVariant getValue(const CMPath& path) = 0;

    /// Asks for a value node to be set. Completes through the event loop, never inside the call; a
    /// missing node, a read-only node or a value of another type is an error in the reply.
    virtual void setValue(const CMPath& path, const VornValue& value, const CMReply<QVariant>& reply) = 0;

    /// Invokes an activate node with `data`; the reply carries what the node's owner answers.
    virtual void invoke(const CMPath& path, const VornHash& data, const CMReply<QVariant>& reply) = 0;
};

/// The root worker: reaches every node of the process.
class CMRootWorker : public CMAbstractWorker
{
    Q_OBJECT
public:
    using CMAbstractWorker::CMAbstractWorker;

signals:
    /// Emitted by the player for the volume node at `path`; `event` is the hash of a value whose
    /// volumeChangeEvent() tells what happened.
    void volumeChangeEvent(const CMPath& path, const QVariant& event);
};

/// The one root worker of the process.
CMRootWorker* CMRoot();

/// Base of workers that own nodes. Its nodes go with it.
class CMNodesWorker : public CMAbstractWorker
{
    Q_OBJECT
public:
    CMNodesWorker(const QVariantHash& config, const QString& name, QObject* parent = nullptr);
    ~CMNodesWorker() override;

    const QVariantHash& config() const { return m_config; }

    /// Owner of the nodes that this worker creates.
    CMNodes* nodes() const { return m_nodes; }

    QVariant getValue(const CMPath& path) override;
    void setValue(const CMPath& path, const VornValue& value, const CMReply<QVariant>& reply) override;
    void invoke(const CMPath& path, const VornHash& data, const CMReply<QVariant>& reply) override;

private:
    QVariantHash m_config;
    CMNodes* m_nodes;
};
