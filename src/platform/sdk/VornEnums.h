#pragma once

#include <QString>

// Enumerations of the module. VORN_ENUM declares a holder with `Enum` and `toString(Enum)`; a number
// without an enumerator prints as itself.
