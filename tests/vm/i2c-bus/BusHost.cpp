#include "vm/i2c-bus/BusHost.h"

#include <algorithm>
#include <array>

BusHost::BusHost(const std::string& socket)
{
    HostLinkPhysicalLayer::Properties properties;
    properties.setString(HostLinkPhysicalLayer::Device, socket);
    properties.setInt(HostLinkPhysicalLayer::Listen, 1);
    m_socket = HostLinkPhysicalLayer::create("unix", properties);
    m_socket->open(HostLinkClock::now());
}

void BusHost::service(HostLinkTime now)
{
    readSocket(now);
    m_socket->service(now);
    if (m_line != m_socket->lineNumber()) {
        m_line = m_socket->lineNumber();
        m_toHost.clear();
    }
    readSocket(now);
    writeSocket(now);
}

void BusHost::readSocket(HostLinkTime now)
{
    std::array<std::uint8_t, kMostKept> bytes;
    while (m_toModule.size() < kMostKept) {
        const std::size_t size = m_socket->read(bytes.data(), kMostKept - m_toModule.size(), now);
        if (size == 0) {
            break;
        }
        m_toModule.insert(m_toModule.end(), bytes.begin(), bytes.begin() + size);
    }
}

void BusHost::writeSocket(HostLinkTime now)
{
    if (!m_toHost.empty()) {
        const std::size_t taken = m_socket->write(m_toHost.data(), m_toHost.size(), now);
        m_toHost.erase(m_toHost.begin(), m_toHost.begin() + std::ptrdiff_t(taken));
    }
}

void BusHost::waitOn(std::vector<pollfd>& descriptors) const
{
    if (m_toModule.size() < kMostKept) {
        m_socket->waitOn(descriptors, !m_toHost.empty());
    }
}

HostLinkTime BusHost::nextService() const
{
    return m_socket->nextService();
}

ByteArray BusHost::read(std::size_t clocked)
{
    if (clocked == 0) {
        return {};
    }
    const std::size_t count = std::min(kMostReady, m_toModule.size());
    const auto end = m_toModule.begin() + std::ptrdiff_t(std::min(count, clocked - 1));
    ByteArray bytes{std::uint8_t(count)};
    bytes.insert(bytes.end(), m_toModule.begin(), end);
    m_toModule.erase(m_toModule.begin(), end);
    bytes.resize(clocked, kNobodyDrives);
    return bytes;
}

void BusHost::write(const ByteArray& bytes)
{
    if (m_line != 0) {
        m_toHost.insert(m_toHost.end(), bytes.begin(), bytes.end());
    }
}
