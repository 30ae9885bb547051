#include "platform/sdk/CMWorker.h"

#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMQueue.h"
#include "platform/sdk/CMTree.h"

namespace
{
QVariant readNode(const CMPath& path)
{
    CMValueNode* const node = CMTree::instance().valueNode(path);
    if (node == nullptr) {
        return {};
    }
    node->refresh();
    return QVariant(static_cast<const QVariantHash&>(node->value()));
}

void postWrite(const CMPath& path, const VornValue& value, const CMReply<QVariant>& reply)
{
    CMQueue::instance().post([path, value, reply] {
        const CMError error = CMTree::instance().write(path, value);
        if (error.isError()) {
            reply.fail(error);
        } else {
            reply.complete(QVariant());
        }
    });
}

void invokeNode(const CMPath& path, const VornHash& data, const CMReply<QVariant>& reply)
{
    CMNode* const node = CMTree::instance().node(path);
    if (node == nullptr) {
        reply.fail({CMError::NoSuchNode, QStringLiteral("%1: no such node").arg(path.toString())});
        return;
    }
    auto* const target = qobject_cast<CMActivateNode*>(node);
    if (target == nullptr) {
        reply.fail({CMError::NotInvocable, QStringLiteral("%1: cannot be invoked").arg(path.toString())});
        return;
    }
    target->activate(CMSetDataRequest(QVariant(static_cast<const QVariantHash&>(data)), reply));
}

void postInvoke(const CMPath& path, const VornHash& data, const CMReply<QVariant>& reply)
{
    CMQueue::instance().post([path, data, reply] { invokeNode(path, data, reply); });
}

class RootWorker : public CMRootWorker
{
public:
    RootWorker() { setObjectName(QStringLiteral("root")); }

    QVariant getValue(const CMPath& path) override { return readNode(path); }

    void setValue(const CMPath& path, const VornValue& value, const CMReply<QVariant>& reply) override
    {
        postWrite(path, value, reply);
    }

    void invoke(const CMPath& path, const VornHash& data, const CMReply<QVariant>& reply) override
    {
        postInvoke(path, data, reply);
    }
};
} // namespace

CMRootWorker* CMRoot()
{
    static auto* const root = new RootWorker; // never destroyed, as the tree
    return root;
}

CMNodesWorker::CMNodesWorker(const QVariantHash& config, const QString& name, QObject* parent)
    : CMAbstractWorker(parent), m_config(config), m_nodes(new CMNodes(this))
{
    setObjectName(name);
}

// The nodes go as the object's first child, when no signal reaches the half-destroyed worker any more.
CMNodesWorker::~CMNodesWorker() = default;

QVariant CMNodesWorker::getValue(const CMPath& path)
{
    return readNode(path);
}

void CMNodesWorker::setValue(const CMPath& path, const VornValue& value, const CMReply<QVariant>& reply)
{
    postWrite(path, value, reply);
}

void CMNodesWorker::invoke(const CMPath& path, const VornHash& data, const CMReply<QVariant>& reply)
{
    postInvoke(path, data, reply);
}
