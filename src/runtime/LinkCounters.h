#pragma once

#include <QTimer>

#include "platform/sdk/CMNode.h"

/// The counters of the process's live links in a read-only node, {"links": [{"name": ..., "counters":
/// {...}}]}, in the order of their starts. A reader gets them as they stand; who watches is told each second,
/// and nobody is woken for them otherwise.
class LinkCounters
{
public:
    LinkCounters();

private:
    VornValue read();

    CMNodes m_nodes;
    CMValueNode* m_node;
    QTimer m_timer;
};
