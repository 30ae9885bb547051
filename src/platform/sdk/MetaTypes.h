#pragma once

#include <QList>
#include <QMetaType>

#include "vocabulary/States.h"

// QList<State> is a meta-type along with its element.
Q_DECLARE_METATYPE(State)

/// Registers the types that queued calls and signals of the node tree and of states carry, and lets
/// records in a variant read as a hash, paths as text. Harmless to repeat.
void registerSdkMetaTypes();
