#include "cli/InterruptSignals.h"

#include <sys/signalfd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

#include "cli/Output.h"

InterruptSignals::InterruptSignals()
{
    sigset_t interrupts;
    sigemptyset(&interrupts);
    sigaddset(&interrupts, SIGINT);
    sigaddset(&interrupts, SIGTERM);
    struct sigaction hangup {
    };
    sigaction(SIGHUP, nullptr, &hangup);
    if (hangup.sa_handler != SIG_IGN) {
        sigaddset(&interrupts, SIGHUP);
    }
    pthread_sigmask(SIG_BLOCK, &interrupts, nullptr);
    m_descriptor = FileDescriptor(signalfd(-1, &interrupts, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!m_descriptor) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
    setOutputInterrupt(m_descriptor.get());
}

InterruptSignals::~InterruptSignals()
{
    setOutputInterrupt(-1);
}
