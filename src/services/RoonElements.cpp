#include "services/RoonElements.h"

#include "platform/sdk/CMNode.h"
#include "platform/sdk/Paths.h"

namespace
{
constexpr int kMostElements = 64;

CMPath lockedElement()
{
    return VornRoonSignalPathCustomElement().appendSubpath(QStringLiteral("locked"));
}

/// True for a path right below the custom-element node.
bool isElement(const CMPath& path)
{
    const QString id = path.toString().mid(VornRoonSignalPathCustomElement().toString().size() + 1);
    return !id.isEmpty() && !id.contains('/');
}
} // namespace

RoonElements::RoonElements() : CMNodesWorker({}, "RoonElements")
{
    CMValueNode* locked = CMValueNode::create(nodes(), lockedElement());
    locked->setValue(VornValue().setVariant(QString()));
    locked->setReadOnly(true);
    nodes()->ownSubtree(VornRoonSignalPathCustomElement(), [this](const CMPath& path) { create(path); });
}

/// Without a node the write that asks for one fails.
void RoonElements::create(const CMPath& path)
{
    if (isElement(path) && m_count < kMostElements) {
        CMValueNode::create(nodes(), path);
        ++m_count;
    }
}
