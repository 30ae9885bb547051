#pragma once

#include <QSet>

#include "platform/sdk/CMWorker.h"
#include "services/Profile.h"

/// Owns the nodes of a profile that no other part of the module creates.
class ProfileNodes : public CMNodesWorker
{
    Q_OBJECT
public:
    explicit ProfileNodes(Profile profile);

    /// Creates what a worker's constructor reads or writes. To be called before worker_create.
    void createBeforeWorker();

    /// Creates the rest, but for paths where a node of another owner stands by now, which the log tells. To
    /// be called after worker_create.
    void createAfterWorker();

private:
    void create(const CMPath& path, const VornValue& value);

    Profile m_profile;
    QSet<CMPath> m_created;
};
