#include "vm/i2c-bus/I2cBus.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <iostream>

using namespace std::chrono_literals;

I2cBus::I2cBus(BusHost& host, int address, std::size_t longest)
    : m_host(host), m_address(address), m_longest(longest), m_timeout(1s)
{
}

void I2cBus::setFault(const BusFault& fault)
{
    m_fault = fault;
    m_sinceFault = 0;
}

I2cOutcome I2cBus::transfer(const I2cTransfer& transfer)
{
    ++(transfer.isRead ? m_reads : m_writes);
    m_longestSeen = std::max(m_longestSeen, transfer.size);
    watch(transfer);
    const I2cOutcome outcome = carry(transfer, nextFault());
    if (outcome.error != 0) {
        ++m_failed;
        m_zeroDue = true;
        m_told = 0;
    } else if (transfer.isRead) {
        const std::size_t count = outcome.bytes.empty() ? 0 : outcome.bytes.front();
        m_told = count == BusHost::kNobodyDrives ? 0 : count - std::min(count, transfer.size - 1);
    } else {
        m_zeroDue = false;
    }
    return outcome;
}

void I2cBus::watch(const I2cTransfer& transfer)
{
    const std::string size = std::to_string(transfer.size);
    if (transfer.size == 0) {
        breach("a transfer without bytes");
    } else if (transfer.isRead && transfer.size > std::min(m_told + 1, m_longest)) {
        breach("a read of " + size + " bytes, where the master knew of " + std::to_string(m_told));
    } else if (!transfer.isRead && transfer.size > m_longest) {
        breach("a write of " + size + " bytes");
    } else if (!transfer.isRead && m_zeroDue && transfer.bytes.front() != 0) {
        breach("a write without a zero after a transfer that failed");
    }
}

BusFault I2cBus::nextFault()
{
    if (m_fault.kind == BusFault::Kind::None || ++m_sinceFault < m_fault.every) {
        return {};
    }
    m_sinceFault = 0;
    ++m_faults;
    return m_fault;
}

I2cOutcome I2cBus::carry(const I2cTransfer& transfer, const BusFault& fault)
{
    using Kind = BusFault::Kind;
    if (transfer.address != m_address || !m_host.isThere() || fault.kind == Kind::Refuse) {
        return {ENXIO, {}, {}};
    }
    if (transfer.size > m_longest) {
        return carryUpTo(m_longest, transfer, EREMOTEIO);
    }
    if (fault.kind == Kind::Cut && transfer.size > fault.amount) {
        return carryUpTo(fault.amount, transfer, EREMOTEIO);
    }
    if (fault.kind == Kind::Float && transfer.isRead) {
        return {0, ByteArray(transfer.size, BusHost::kNobodyDrives), {}};
    }
    if (fault.kind != Kind::Stall) {
        return carryUpTo(transfer.size, transfer, 0);
    }
    const bool tooLong = std::chrono::milliseconds(fault.amount) > m_timeout;
    I2cOutcome outcome =
        carryUpTo(tooLong ? transfer.size / 2 : transfer.size, transfer, tooLong ? ETIMEDOUT : 0);
    outcome.duration = tooLong ? m_timeout : std::chrono::milliseconds(fault.amount);
    return outcome;
}

/// The host's part is done even if the master gets an error.
I2cOutcome I2cBus::carryUpTo(std::size_t clocked, const I2cTransfer& transfer, int error)
{
    I2cOutcome outcome{error, {}, {}};
    if (transfer.isRead) {
        outcome.bytes = m_host.read(clocked);
    } else {
        m_host.write({transfer.bytes.begin(), transfer.bytes.begin() + std::ptrdiff_t(clocked)});
    }
    return outcome;
}

void I2cBus::breach(const std::string& what)
{
    std::cerr << "i2c-bus: breach: " << what << std::endl;
    m_breaches.push_back("breach: " + what);
}

std::vector<std::string> I2cBus::report() const
{
    std::vector<std::string> lines = m_breaches;
    lines.push_back(
        "reads=" + std::to_string(m_reads) + " writes=" + std::to_string(m_writes)
        + " failed=" + std::to_string(m_failed) + " faults=" + std::to_string(m_faults)
        + " longest=" + std::to_string(m_longestSeen) + " timeout="
        + std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(m_timeout).count()));
    return lines;
}
