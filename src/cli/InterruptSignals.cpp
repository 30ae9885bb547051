#include "cli/InterruptSignals.h"

#include <sys/signalfd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

InterruptSignals::InterruptSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    m_descriptor = FileDescriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!m_descriptor) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
}
