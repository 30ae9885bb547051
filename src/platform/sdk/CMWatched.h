#pragma once

/// What an item knows of its path. The current value is always the node's; what was delivered last
/// becomes `previous` of the next signal. They differ only while a change is on its way.
template <typename T>
struct CMWatched {
    T current;
    T delivered;
    bool delivering = false; ///< a signal is being emitted; a change inside it is delivered after it
};
