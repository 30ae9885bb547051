#pragma once

#include "modules/hostlink/HostLinkWorker.h"

/// The worker with the proxies that it leaves out put over the rows that own their states, and with the
/// lights, so that a host can be shown them.
class LabWorker : public CMHostLinkWorker
{
public:
    explicit LabWorker(const QVariantHash& config);

private:
    void replaceProxy(ValueProxy* proxy);
};
