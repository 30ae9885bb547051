#include <QVariantHash>
#include <stdexcept>

extern "C" void* worker_create(void*, const QVariantHash&)
{
    throw std::runtime_error("out of order");
}
