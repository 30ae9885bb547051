#pragma once

#include "platform/sdk/CMWorker.h"

class CMSetDataRequest;

/// The system manager: takes requests for a factory reset.
class SystemManager : public CMNodesWorker
{
    Q_OBJECT
public:
    SystemManager();

private:
    void on_factoryReset_activated(const CMSetDataRequest& request);
};
