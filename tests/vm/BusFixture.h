#pragma once

#include <memory>
#include <string>

#include "support/ModuleFixture.h"

/// "/dev/i2c-3" with a host at its address, which is whoever connects to linkSocket().
class BusFixture : public RuntimeDirectory
{
protected:
    /// `--absent` for one whose device node does not appear by itself.
    void startBus(const Program::Arguments& options = {});

    /// Has the bus obey, as its --help says, and returns when it has.
    void bus(const std::string& command);

    std::string linkSocket() const { return directory() + "/bus.socket"; }

    /// What the bus carried so far.
    struct Report {
        int reads = 0;
        int writes = 0;
        int failed = 0;
        int faults = 0;       ///< transfers that had the fault which was typed
        int longest = 0;      ///< bytes
        int timeout = 0;      ///< of the bus, ms
        std::string breaches; ///< of the link's rules, a line each
    };
    Report report();

    std::unique_ptr<Program> m_bus;
};
