#include "support/LabWorker.h"

extern "C" __attribute__((visibility("default"))) void* worker_create(void* /*ignored*/,
                                                                      const QVariantHash& config)
{
    return new LabWorker(config);
}
