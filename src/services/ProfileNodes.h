#pragma once

#include <QSet>

#include "platform/sdk/CMWorker.h"
#include "services/Profile.h"

/// Gives the nodes of a profile their first values, and owns those of them that no other part of the module
/// creates.
class ProfileNodes : public CMNodesWorker
{
    Q_OBJECT
public:
    explicit ProfileNodes(Profile profile);

    /// For what a worker's constructor reads or writes. To be called before worker_create.
    void createBeforeWorker();

    /// For the rest. To be called after worker_create and after all services.
    void createAfterWorker();

private:
    void create(const CMPath& path, const VornValue& value);
    static void write(const CMPath& path, const VornValue& value);

    Profile m_profile;
    QSet<CMPath> m_done;
};
