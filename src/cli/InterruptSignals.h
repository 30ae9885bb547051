#pragma once

#include "platform/hostlink/FileDescriptor.h"

/// SIGINT, SIGTERM and, unless it is ignored as below nohup, SIGHUP as a readable descriptor instead of the
/// end of the process, from construction on. To be made before any other thread. Output that nobody reads
/// does not keep an interrupted command.
class InterruptSignals
{
public:
    InterruptSignals(); ///< throws std::system_error
    ~InterruptSignals();
    InterruptSignals(const InterruptSignals&) = delete;
    InterruptSignals& operator=(const InterruptSignals&) = delete;

    int descriptor() const { return m_descriptor.get(); }

private:
    FileDescriptor m_descriptor;
};
