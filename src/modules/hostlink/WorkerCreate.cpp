#include "modules/hostlink/HostLinkWorker.h"

/// The plug-in's entry: a new worker, which the caller owns. The first argument is ignored.
extern "C" __attribute__((visibility("default"))) void* worker_create(void* /*ignored*/,
                                                                      const QVariantHash& config)
{
    return new CMHostLinkWorker(config);
}
