#pragma once

#include <memory>
#include <string>

#include "platform/hostlink/ByteArray.h"
#include "platform/hostlink/Gpio.h"
#include "platform/hostlink/HostLinkPhysicalLayer.h"
#include "platform/hostlink/I2cDevice.h"
#include "platform/hostlink/Retry.h"

/// The module's end of an I2C bus, of which it is the only master; the host is a slave and has to be asked
/// whether it has something to say. Properties, with their defaults: Device; Address (0x77); BusTimeout
/// (1000 ms); MaxTransfer (64 bytes); InterruptLine and ResetLine (none). A bus has no bit rate here: that
/// is the kernel's.
///
/// The line is up from the first answer of the host until it has failed to answer for a while. A transfer
/// that fails is not done again: the link repairs what got lost.
///
/// The host is asked on each read(), and again when nextService() has come: by a falling edge of the
/// interrupt line where there is one, else after 5 to 40 ms.
class I2cLayer : public HostLinkPhysicalLayer
{
public:
    static constexpr HostLinkDuration kShortestPoll = std::chrono::milliseconds(5);
    static constexpr HostLinkDuration kLongestPoll = std::chrono::milliseconds(40);

    explicit I2cLayer(const Properties& properties,
                      std::shared_ptr<DeviceCalls> calls = DeviceCalls::system(),
                      std::shared_ptr<Gpio> gpio = Gpio::system());

    std::string name() const override { return m_retry.name(); }
    void open(HostLinkTime now) override;
    void close() override;
    void service(HostLinkTime now) override;
    std::uint64_t lineNumber() const override { return m_up ? m_lines : 0; }
    std::size_t read(std::uint8_t* to, std::size_t max, HostLinkTime now) override;
    std::size_t write(const std::uint8_t* from, std::size_t size, HostLinkTime now) override;
    void waitOn(std::vector<pollfd>& descriptors, bool writing) const override;
    HostLinkTime nextService() const override;
    bool blocks() const override { return true; }
    HostLinkDuration pollTime() const override { return kLongestPoll; }

private:
    bool resetIsOver(HostLinkTime now);
    void takeInterruptLine();
    void recover(HostLinkTime now);
    bool poll(HostLinkTime now);
    bool readTransfer(HostLinkTime now);
    void schedulePoll(HostLinkTime now);
    void noteTraffic(std::size_t bytes, HostLinkTime now);
    void fail(const std::string& problem, HostLinkTime now);

    const std::size_t m_maxTransfer;
    const int m_interruptNumber; ///< of the GPIO line, -1 for none
    const int m_resetNumber;     ///< likewise
    const std::string m_misuse;  ///< what is wrong with the properties, empty for nothing
    const std::shared_ptr<Gpio> m_gpio;
    I2cDevice m_device;
    Retry m_retry;

    std::unique_ptr<GpioInterrupt> m_interrupt;
    bool m_interruptTried = false;
    std::unique_ptr<GpioReset> m_reset;
    bool m_resetDue = false;

    bool m_up = false;
    std::uint64_t m_lines = 0;  ///< how often the line came up
    bool m_answers = false;     ///< the last transfer succeeded
    HostLinkTime m_silentSince; ///< the first of the transfers in a row that did not
    bool m_zeroDue = false;     ///< the next write begins with a zero byte
    std::size_t m_ready = 0;    ///< bytes that the host said it has, beyond those that were read
    HostLinkTime m_pollAt = HostLinkTime::max();
    HostLinkDuration m_pollPause = kShortestPoll;
    HostLinkTime m_trafficAt; ///< when more than a keep-alive went over the bus
    ByteArray m_transfer;     ///< the bytes of one
};
