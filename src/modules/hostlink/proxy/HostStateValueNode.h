#pragma once

#include <QObject>

#include "vocabulary/Conversions.h"
#include "vocabulary/States.h"

class CMNodesWorker;
class CMPath;
class CMValueNode;
class HostLinkValueMessage;

/// A value of the host as a node of the module, which module clients can read only.
class HostStateValueNode : public QObject
{
    Q_OBJECT
public:
    /// The node is one of `worker`, which also becomes the parent.
    HostStateValueNode(CMNodesWorker* worker, const CMPath& path, CMValueItemProxyConvert convert);

    /// Puts value `index` of `message` into the node; the conversion HostModel takes the message's first
    /// value instead. A value of another type leaves the node as it is, and so does a conversion that the
    /// host does not push.
    void setValue(State state, const HostLinkValueMessage& message, int index);

private:
    CMValueItemProxyConvert m_convert;
    CMValueNode* m_node;
};
