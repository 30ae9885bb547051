#pragma once

#include <QString>

#include "platform/sdk/VornJson.h"

/// The text of objects in each other; as many as a value may have levels, or so many more.
inline QString deepJson(int more = 0)
{
    const int levels = static_cast<int>(VornJson::kValueLevels) + more;
    return QString("{\"a\":").repeated(levels) + '1' + QString("}").repeated(levels);
}
