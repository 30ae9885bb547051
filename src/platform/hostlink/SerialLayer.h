#pragma once

#include <memory>
#include <string>

#include "platform/hostlink/DeviceCalls.h"
#include "platform/hostlink/HostLinkPhysicalLayer.h"
#include "platform/hostlink/Retry.h"
#include "platform/hostlink/SerialSettings.h"

/// A serial device, held by this layer alone. Properties, with their defaults: Device; BitRate (115200
/// bit/s), Parity ("none") and StopBits (1). Nobody sees whether there is a peer at the other end: the line
/// is up while the device is there. One that is missing, held by another program or unplugged is waited for.
class SerialLayer : public HostLinkPhysicalLayer
{
public:
    explicit SerialLayer(const Properties& properties,
                         std::shared_ptr<DeviceCalls> calls = DeviceCalls::system());
    ~SerialLayer() override { SerialLayer::close(); }

    std::string name() const override { return m_retry.name(); }
    void open(HostLinkTime now) override;
    void close() override;
    void service(HostLinkTime now) override;
    std::uint64_t lineNumber() const override { return m_device ? m_lines : 0; }
    std::size_t read(std::uint8_t* to, std::size_t max, HostLinkTime now) override;
    std::size_t write(const std::uint8_t* from, std::size_t size, HostLinkTime now) override;
    std::size_t unsent() const override;
    void waitOn(std::vector<pollfd>& descriptors, bool writing) const override;
    HostLinkTime nextService() const override;

private:
    std::string tryOpen();
    bool lock();
    bool isPseudoTerminal();
    void linger();
    void release();
    void drop(HostLinkTime now);
    void scheduleDrain(HostLinkTime now);
    std::size_t queued() const;

    const std::string m_path;
    std::string m_misuse; ///< what is wrong with the properties, empty for nothing
    const SerialSettings m_settings;
    DeviceNode m_device;
    Retry m_retry;
    std::uint64_t m_lines = 0; ///< how often the line came up
    HostLinkTime m_upSince;
    bool m_broken = false; ///< a write failed: the line goes down once it is read to its end
    HostLinkTime m_drainAt = HostLinkTime::max(); ///< when what was written should be on the wire
};
