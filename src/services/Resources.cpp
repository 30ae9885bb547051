#include "services/Resources.h"

#include <QtGlobal>

void initServiceResources()
{
    Q_INIT_RESOURCE(services);
}
