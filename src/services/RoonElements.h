#pragma once

#include "platform/sdk/CMWorker.h"

/// The elements that others contribute to Roon's signal path: a node for each below the custom-element node,
/// made by the first write to it, at most 64. One of them, "locked", refuses every write.
class RoonElements : public CMNodesWorker
{
    Q_OBJECT
public:
    RoonElements();

private:
    void create(const CMPath& path);

    int m_count = 0;
};
