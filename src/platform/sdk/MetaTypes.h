#pragma once

/// Registers the types that queued calls and signals of the node tree carry. Harmless to repeat.
void registerSdkMetaTypes();
