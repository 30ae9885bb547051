#include "services/NodeNames.h"

namespace
{
bool isPath(const QString& name)
{
    return name.size() > 1 && name.startsWith('/') && !name.endsWith('/') && !name.contains("//");
}

bool isAccessor(const NodeRow& row, const QString& name)
{
    return name == QLatin1String(row.accessor.data(), static_cast<int>(row.accessor.size()));
}
} // namespace

CMPath resolveNodeName(const QString& name)
{
    if (isPath(name)) {
        return CMPath(name);
    }
    for (const NodeRow& row : kNodes) {
        if (isAccessor(row, name)) {
            return CMPath(row.node);
        }
    }
    return {};
}
