#include <QVariantHash>

extern "C" void* worker_create(void*, const QVariantHash&)
{
    return nullptr;
}
