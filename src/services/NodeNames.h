#pragma once

#include "platform/sdk/CMPath.h"

/// The path that a user means by `name`: a path ("/player/mute") or the name of its accessor
/// ("VornPlayerMutePath"). Empty where it is neither.
CMPath resolveNodeName(const QString& name);
