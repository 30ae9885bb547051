#include "platform/sdk/CMNode.h"

#include "platform/sdk/CMQueue.h"
#include "platform/sdk/CMTree.h"

CMNodes::~CMNodes()
{
    CMTree::instance().removeSubtrees(this);
}

void CMNodes::ownSubtree(const CMPath& path, Creator create)
{
    CMTree::instance().addSubtree(this, path, std::move(create));
}

QStringList CMNodes::list(const QString& prefix)
{
    return CMTree::instance().list(prefix);
}

bool CMNodes::exists(const CMPath& path)
{
    return CMTree::instance().node(path) != nullptr;
}

CMNode::CMNode(CMNodes* nodes, const CMPath& path) : QObject(nodes), m_path(path)
{
    CMTree::instance().add(this);
}

CMNode::~CMNode()
{
    CMTree::instance().remove(this);
}

CMValueNode::CMValueNode(CMNodes* nodes, const CMPath& path) : CMNode(nodes, path) {}

CMValueNode* CMValueNode::create(CMNodes* nodes, const CMPath& path, QMutex* /*mutex*/)
{
    return new CMValueNode(nodes, path);
}

void CMValueNode::setValue(const VornValue& value)
{
    if (m_value.sameAs(value)) {
        return;
    }
    m_value = value;
    if (!m_type) { // the first value that is not empty, for that one would have been equal
        m_type = m_value.type();
    }
    CMTree::instance().notify(path()); // last: a handler may destroy this node
}

void CMValueNode::refresh()
{
    if (m_source) {
        setValue(m_source());
    }
}

bool CMValueNode::isWatched() const
{
    return CMTree::instance().isWatched(path());
}

bool CMValueNode::accepts(const VornValue& value) const
{
    return type() == VornValue::Type::Hash || value.type() == type();
}

void CMValueNode::setRoles(const VornRoles& roles)
{
    VornRoles others = roles;
    others.remove(VornRoles::Value());
    if (m_roles.sameAs(others)) {
        return;
    }
    m_roles = others;
    CMTree::instance().notify(path());
}

VornRoles CMValueNode::roles() const
{
    VornRoles roles = m_roles;
    if (!m_value.isEmpty()) {
        roles.setValue(m_value);
    }
    return roles;
}

CMActivateNode::CMActivateNode(CMNodes* nodes, const CMPath& path) : CMNode(nodes, path) {}

CMActivateNode* CMActivateNode::create(CMNodes* nodes, const CMPath& path, QObject* receiver,
                                       std::function<void(const CMSetDataRequest&)> handler,
                                       Qt::ConnectionType type)
{
    auto* const node = new CMActivateNode(nodes, path);
    node->m_receiver = receiver;
    node->m_handler = std::move(handler);
    node->m_type = type;
    return node;
}

void CMActivateNode::activate(const CMSetDataRequest& request)
{
    if (m_type != Qt::QueuedConnection) {
        deliver(request);
        return;
    }
    CMQueue::instance().post([node = QPointer<CMActivateNode>(this), where = path(), request] {
        if (node) {
            node->deliver(request);
        } else {
            request.fail(
                {CMError::NoSuchNode, QStringLiteral("%1: the node went away").arg(where.toString())});
        }
    });
}

void CMActivateNode::deliver(const CMSetDataRequest& request)
{
    if (m_receiver == nullptr || !m_handler) {
        request.fail({CMError::NotInvocable,
                      QStringLiteral("%1: nobody answers for this node").arg(path().toString())});
        return;
    }
    const auto handler = m_handler; // it may destroy this node
    handler(request);
}
