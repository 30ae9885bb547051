#pragma once

#include <string>
#include <vector>

#include "vm/i2c-bus/BusFault.h"
#include "vm/i2c-bus/BusHost.h"

/// One message between a start and a stop condition, as the master wants it.
struct I2cTransfer {
    int address; ///< 7 bits
    bool isRead;
    std::size_t size; ///< bytes
    ByteArray bytes;  ///< of a write
};

/// What the master gets for it.
struct I2cOutcome {
    int error = 0;   ///< errno, 0 for none
    ByteArray bytes; ///< of a read
    HostLinkDuration duration = HostLinkDuration::zero();
};

/// A bus with one slave on it, the host. It watches the master: what breaks the rules of the host's link over
/// I2C is a breach.
class I2cBus
{
public:
    /// `longest`: bytes of the longest transfer that the host has room for.
    I2cBus(BusHost& host, int address, std::size_t longest);

    void setFault(const BusFault& fault);

    /// A transfer that takes longer than this is given up.
    void setTimeout(HostLinkDuration timeout) { m_timeout = timeout; }

    I2cOutcome transfer(const I2cTransfer& transfer);

    /// Numbers since the start, and breaches, a line each.
    std::vector<std::string> report() const;

private:
    void watch(const I2cTransfer& transfer);
    BusFault nextFault();
    I2cOutcome carry(const I2cTransfer& transfer, const BusFault& fault);
    I2cOutcome carryUpTo(std::size_t clocked, const I2cTransfer& transfer, int error);
    void breach(const std::string& what);

    BusHost& m_host;
    const int m_address;
    const std::size_t m_longest;
    BusFault m_fault;
    unsigned m_sinceFault = 0; ///< transfers since the last that had the fault
    HostLinkDuration m_timeout;

    std::size_t m_told = 0; ///< bytes that the master knows to be ready
    bool m_zeroDue = false; ///< the last transfer failed: the next write begins with a zero
    unsigned m_reads = 0;
    unsigned m_writes = 0;
    unsigned m_failed = 0;
    unsigned m_faults = 0; ///< transfers that had one
    std::size_t m_longestSeen = 0;
    std::vector<std::string> m_breaches;
};
