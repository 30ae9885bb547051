#pragma once

#include "platform/hostlink/FileDescriptor.h"

/// SIGINT and SIGTERM as a readable descriptor instead of the end of the process, from construction
/// on. To be made before any other thread.
class InterruptSignals
{
public:
    InterruptSignals(); ///< throws std::system_error

    int descriptor() const { return m_descriptor.get(); }

private:
    FileDescriptor m_descriptor;
};
