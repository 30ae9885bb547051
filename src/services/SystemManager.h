#pragma once

#include "platform/sdk/CMWorker.h"

class CMSetDataRequest;
class NodeSettings;

/// The system manager: resets the module's settings to how they left the factory.
class SystemManager : public CMNodesWorker
{
    Q_OBJECT
public:
    /// `settings` must live at least as long.
    explicit SystemManager(NodeSettings* settings);

private:
    void on_factoryReset_activated(const CMSetDataRequest& request);

    NodeSettings* m_settings;
};
