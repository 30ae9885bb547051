#pragma once

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/hostlink/ByteArray.h"
#include "platform/hostlink/DeviceCalls.h"
#include "platform/hostlink/FileDescriptor.h"
#include "platform/hostlink/Gpio.h"
#include "platform/hostlink/HostLinkPhysicalLayer.h"
#include "platform/hostlink/I2cLayer.h"

/// An I2C bus in this process, reached through i2c-dev's calls, and the one host on it, which keeps the
/// rules of its side exactly and notes each breach of the master's. Thread-safe.
class I2cBus
{
public:
    static constexpr int kAddress = 0x77;
    static constexpr std::size_t kMostReady = 254;
    static constexpr std::uint8_t kNobodyDrives = 0xff;
    static constexpr const char* kDevice = "/dev/i2c-3";

    /// One transfer as it went over the bus, the host's count among the bytes of a read.
    struct Transfer {
        bool isRead;
        ByteArray bytes;
        int error; ///< what the master got, 0 for none
    };

    /// `maxTransfer`: the most bytes that the host takes in one transfer. `capacity`: bytes that it keeps in
    /// one direction.
    explicit I2cBus(std::size_t maxTransfer = 64, std::size_t capacity = 64 * 1024)
        : m_maxTransfer(maxTransfer), m_capacity(capacity)
    {
    }

    static HostLinkPhysicalLayer::Properties properties(int maxTransfer = 64)
    {
        HostLinkPhysicalLayer::Properties properties;
        properties.setString(HostLinkPhysicalLayer::Device, kDevice);
        properties.setInt(HostLinkPhysicalLayer::Address, kAddress);
        properties.setInt(HostLinkPhysicalLayer::MaxTransfer, maxTransfer);
        return properties;
    }

    static std::shared_ptr<DeviceCalls> calls(const std::shared_ptr<I2cBus>& bus)
    {
        return std::make_shared<Calls>(bus);
    }
    static std::shared_ptr<Gpio> gpio(const std::shared_ptr<I2cBus>& bus)
    {
        return std::make_shared<Lines>(bus);
    }

    /// A module's end on this bus; with interrupt line 7 if wanted.
    static std::unique_ptr<HostLinkPhysicalLayer> moduleEnd(const std::shared_ptr<I2cBus>& bus,
                                                            bool interrupt = false)
    {
        HostLinkPhysicalLayer::Properties settings = properties(int(bus->m_maxTransfer));
        if (interrupt) {
            settings.setInt(HostLinkPhysicalLayer::InterruptLine, 7);
        }
        return std::make_unique<I2cLayer>(settings, calls(bus), gpio(bus));
    }

    /// The host's end. It answers on the bus while it is open; at most one is open at a time.
    static std::unique_ptr<HostLinkPhysicalLayer> hostEnd(const std::shared_ptr<I2cBus>& bus)
    {
        return std::make_unique<HostEnd>(bus);
    }

    /// The device node goes away, for those too who have it open, or comes back.
    void setMissing(bool missing)
    {
        const std::lock_guard lock(m_mutex);
        m_missing = missing;
        ++m_generation;
    }

    /// The host refuses so many transfers to come: it does not acknowledge its address.
    void refuse(int transfers) { set(m_refusals, transfers); }

    /// One transfer, the first that has more bytes than that, breaks off behind them.
    void breakOffAfter(std::size_t bytes) { set(m_breakAfter, std::optional(bytes)); }

    /// The host acknowledges, but drives nothing on reads and ignores what is written.
    void setUndriven(bool undriven) { set(m_undriven, undriven); }

    /// Transfers hang until they are let go of.
    void setStuck(bool stuck) { set(m_stuck, stuck); }

    /// The interrupt line is not connected to the host, but stays at this level.
    void fixInterrupt(bool low) { set(m_interruptFixed, std::optional(low)); }

    /// What the adapter says that it can do.
    void setAbilities(unsigned long abilities) { set(m_abilities, abilities); }

    /// There is no GPIO chip, or its lines are to be had (the default), or not for this reason.
    void setGpio(bool exists, std::string problem = {})
    {
        const std::lock_guard lock(m_mutex);
        m_hasGpio = exists;
        m_gpioProblem = std::move(problem);
    }

    /// Waits for a transfer that hangs.
    bool waitUntilStuck()
    {
        return waitFor([this] { return m_stuck && m_inTransfer; });
    }

    /// Waits until nobody has the device open.
    bool waitUntilClosed()
    {
        return waitFor([this] { return m_openNodes == 0; });
    }

    /// Waits for so many more failures to open the device.
    bool waitForFailedOpens(int opens)
    {
        return waitFor(
            [this, opens, before = get(m_failedOpens)] { return m_failedOpens >= before + opens; });
    }

    // What was seen.
    std::vector<Transfer> transfers() const { return get(m_transfers); }
    std::size_t transferCount() const { return transfers().size(); }
    void forgetTransfers() { set(m_transfers, std::vector<Transfer>()); }
    std::vector<std::string> breaches() const { return get(m_breaches); }
    std::vector<std::thread::id> threads() const { return get(m_threads); }
    std::vector<bool> resetLevels() const { return get(m_resetLevels); }
    std::optional<unsigned long> timeoutUnits() const { return get(m_timeoutUnits); }
    int openNodes() const { return get(m_openNodes); }

private:
    template <typename Predicate>
    bool waitFor(Predicate predicate)
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::seconds(20), predicate);
    }

    template <typename Value, typename New>
    void set(Value& member, New value)
    {
        const std::lock_guard lock(m_mutex);
        member = std::move(value);
        signal();
        m_changed.notify_all();
    }

    template <typename Value>
    Value get(const Value& member) const
    {
        const std::lock_guard lock(m_mutex);
        return member;
    }

    class Calls final : public DeviceCalls
    {
    public:
        explicit Calls(std::shared_ptr<I2cBus> bus) : m_bus(std::move(bus)) {}

        int open(const std::string& path, int flags) override
        {
            const std::lock_guard lock(m_bus->m_mutex);
            if (m_bus->m_missing || path != kDevice || (flags & O_ACCMODE) != O_RDWR) {
                ++m_bus->m_failedOpens;
                m_bus->m_changed.notify_all();
                errno = ENOENT;
                return -1;
            }
            ++m_bus->m_openNodes;
            m_bus->m_opened = m_bus->m_generation;
            return ::open("/dev/null", O_RDWR | O_CLOEXEC);
        }

        int ioctl(int descriptor, unsigned long request, std::uintptr_t argument) override
        {
            if (descriptor < 0) {
                m_bus->breach("a call without an open device");
            }
            switch (request) {
            case I2C_FUNCS:
                *reinterpret_cast<unsigned long*>(argument) = m_bus->get(m_bus->m_abilities);
                return 0;
            case I2C_TIMEOUT: m_bus->set(m_bus->m_timeoutUnits, argument); return 0;
            case I2C_RDWR: return m_bus->transfer(*reinterpret_cast<i2c_rdwr_ioctl_data*>(argument));
            default: errno = ENOTTY; return -1;
            }
        }

        void close(int descriptor) override
        {
            const std::lock_guard lock(m_bus->m_mutex);
            --m_bus->m_openNodes;
            m_bus->m_changed.notify_all();
            ::close(descriptor);
        }

    private:
        const std::shared_ptr<I2cBus> m_bus;
    };

    int transfer(const i2c_rdwr_ioctl_data& request)
    {
        std::unique_lock lock(m_mutex);
        m_threads.push_back(std::this_thread::get_id());
        m_inTransfer = true;
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return !m_stuck; });
        m_inTransfer = false;
        if (request.nmsgs != 1 || request.msgs->addr != kAddress) {
            note("not one message to the host's address");
        }
        i2c_msg& message = *request.msgs;
        Transfer done{(message.flags & I2C_M_RD) != 0, {}, 0};
        done.error = done.isRead ? read(message, done.bytes) : write(message, done.bytes);
        m_transfers.push_back(done);
        signal();
        m_changed.notify_all();
        errno = done.error;
        return done.error == 0 ? 1 : -1;
    }

    /// Whether the address is acknowledged: 0, or the error for the master.
    int address()
    {
        if (m_missing || m_opened != m_generation) {
            return ENODEV;
        }
        if (m_refusals > 0) {
            --m_refusals;
            return ENXIO;
        }
        return m_hostIsOpen ? 0 : ENXIO;
    }

    /// How many bytes of a transfer are clocked before it breaks off, all when it does not.
    std::size_t clocked(std::size_t size)
    {
        if (!m_breakAfter || *m_breakAfter >= size) {
            return size;
        }
        return *std::exchange(m_breakAfter, std::nullopt);
    }

    int read(const i2c_msg& message, ByteArray& bytes)
    {
        checkRead(message.len);
        if (const int error = address()) {
            return error;
        }
        if (m_undriven) {
            std::fill_n(message.buf, message.len, kNobodyDrives);
            bytes.assign(message.len, kNobodyDrives);
            return 0;
        }
        const std::size_t size = clocked(message.len);
        const std::size_t count = std::min(kMostReady, m_toModule.size());
        for (std::size_t i = 0; i < size; ++i) {
            std::uint8_t byte = kNobodyDrives;
            if (i == 0) {
                byte = std::uint8_t(count);
            } else if (!m_toModule.empty()) {
                byte = m_toModule.front();
                m_toModule.pop_front();
            }
            bytes.push_back(byte);
        }
        if (size < message.len) {
            m_told.reset();
            return EIO;
        }
        std::copy(bytes.begin(), bytes.end(), message.buf);
        m_told = count - std::min(count, size - 1);
        return 0;
    }

    /// A poll is one byte; any other read takes what the host said it has, as far as a transfer goes.
    void checkRead(std::size_t size)
    {
        const std::size_t expected = std::min(m_told.value_or(0) + 1, m_maxTransfer);
        if (size != 1 && (!m_told || *m_told == 0 || size != expected)) {
            note("a read of " + std::to_string(size) + " bytes where the host had told of "
                 + (m_told ? std::to_string(*m_told) : "nothing"));
        }
    }

    int write(const i2c_msg& message, ByteArray& bytes)
    {
        if (message.len == 0 || message.len > m_maxTransfer) {
            note("a write of " + std::to_string(message.len) + " bytes");
        }
        if (const int error = address()) {
            return error;
        }
        if (m_undriven) {
            return 0;
        }
        if (m_toHost.size() + message.len > m_capacity) {
            return ENXIO; // the host has no room: it does not even acknowledge its address
        }
        const std::size_t size = clocked(message.len);
        bytes.assign(message.buf, message.buf + size);
        m_toHost.insert(m_toHost.end(), bytes.begin(), bytes.end());
        return size < message.len ? EIO : 0;
    }

    void breach(const std::string& what)
    {
        const std::lock_guard lock(m_mutex);
        note(what);
    }
    void note(const std::string& what) { m_breaches.push_back(what); }

    class HostEnd final : public HostLinkPhysicalLayer
    {
    public:
        explicit HostEnd(std::shared_ptr<I2cBus> bus)
            : m_bus(std::move(bus)), m_event(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
        {
        }
        ~HostEnd() override { close(); }

        void open(HostLinkTime) override
        {
            const std::lock_guard lock(m_bus->m_mutex);
            m_bus->m_host = this;
            m_bus->m_hostIsOpen = true;
            m_bus->m_toHost.clear();
            m_bus->m_toModule.clear();
            m_number = ++m_bus->m_hosts;
            m_bus->signal();
        }

        void close() override
        {
            const std::lock_guard lock(m_bus->m_mutex);
            if (m_bus->m_host == this) {
                m_bus->m_host = nullptr;
                m_bus->m_hostIsOpen = false;
            }
            m_number = 0;
        }

        void service(HostLinkTime) override {}
        std::uint64_t lineNumber() const override { return m_number; }

        std::size_t read(std::uint8_t* to, std::size_t max, HostLinkTime) override
        {
            const std::lock_guard lock(m_bus->m_mutex);
            if (m_number == 0) {
                return 0;
            }
            const std::size_t size = std::min(max, m_bus->m_toHost.size());
            const auto end = m_bus->m_toHost.begin() + std::ptrdiff_t(size);
            std::copy(m_bus->m_toHost.begin(), end, to);
            m_bus->m_toHost.erase(m_bus->m_toHost.begin(), end);
            m_bus->signal();
            return size;
        }

        std::size_t write(const std::uint8_t* from, std::size_t size, HostLinkTime) override
        {
            const std::lock_guard lock(m_bus->m_mutex);
            if (m_number == 0) {
                return 0;
            }
            const std::size_t taken = std::min(size, m_bus->m_capacity - m_bus->m_toModule.size());
            m_bus->m_toModule.insert(m_bus->m_toModule.end(), from, from + taken);
            m_awaitsRoom = taken < size;
            m_bus->signal();
            return taken;
        }

        void waitOn(std::vector<pollfd>& descriptors, bool) const override
        {
            if (m_number != 0) {
                descriptors.push_back({m_event.get(), POLLIN, 0});
            }
        }

        /// A module without the interrupt line may look no sooner.
        HostLinkDuration pollTime() const override { return I2cLayer::kLongestPoll; }

    private:
        friend class I2cBus;

        void signal()
        {
            const bool hasRoom = m_bus->m_toModule.size() < m_bus->m_capacity;
            const bool ready = !m_bus->m_toHost.empty() || (m_awaitsRoom && hasRoom);
            eventfd_t count = 0;
            ::eventfd_read(m_event.get(), &count);
            if (ready) {
                ::eventfd_write(m_event.get(), 1);
            }
        }

        const std::shared_ptr<I2cBus> m_bus;
        const FileDescriptor m_event;
        std::uint64_t m_number = 0;
        bool m_awaitsRoom = false;
    };

    class Interrupt final : public GpioInterrupt
    {
    public:
        explicit Interrupt(std::shared_ptr<I2cBus> bus) : m_bus(std::move(bus)) {}

        int descriptor() const override { return m_bus->m_edge.get(); }
        void clear() override
        {
            eventfd_t count = 0;
            ::eventfd_read(m_bus->m_edge.get(), &count);
        }
        bool isActive() override { return m_bus->get(m_bus->m_interruptLow); }

    private:
        const std::shared_ptr<I2cBus> m_bus;
    };

    class Reset final : public GpioReset
    {
    public:
        explicit Reset(std::shared_ptr<I2cBus> bus) : m_bus(std::move(bus)) {}

        void setActive(bool active) override
        {
            const std::lock_guard lock(m_bus->m_mutex);
            m_bus->m_resetLevels.push_back(active);
        }

    private:
        const std::shared_ptr<I2cBus> m_bus;
    };

    class Lines final : public Gpio
    {
    public:
        explicit Lines(std::shared_ptr<I2cBus> bus) : m_bus(std::move(bus)) {}

        std::unique_ptr<GpioInterrupt> interrupt(int, std::string* problem) override
        {
            return take<Interrupt>(problem);
        }
        std::unique_ptr<GpioReset> reset(int, std::string* problem) override { return take<Reset>(problem); }

    private:
        template <typename Line>
        std::unique_ptr<Line> take(std::string* problem)
        {
            *problem = m_bus->get(m_bus->m_gpioProblem);
            return m_bus->get(m_bus->m_hasGpio) && problem->empty() ? std::make_unique<Line>(m_bus) : nullptr;
        }

        const std::shared_ptr<I2cBus> m_bus;
    };

    /// Shows both sides what they can see: the host its descriptor, the module the interrupt line.
    void signal()
    {
        if (m_host) {
            m_host->signal();
        }
        const bool low = m_interruptFixed.value_or(!m_toModule.empty());
        if (low && !m_interruptLow) {
            ::eventfd_write(m_edge.get(), 1);
        }
        m_interruptLow = low;
    }

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    const std::size_t m_maxTransfer;
    const std::size_t m_capacity;

    std::deque<std::uint8_t> m_toModule;
    std::deque<std::uint8_t> m_toHost;
    std::optional<std::size_t> m_told; ///< the bytes that the master knows of, nothing after a failed read
    HostEnd* m_host = nullptr;
    bool m_hostIsOpen = false;
    std::uint64_t m_hosts = 0;
    const FileDescriptor m_edge{::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)};
    bool m_interruptLow = false;
    std::optional<bool> m_interruptFixed;

    bool m_missing = false;
    int m_generation = 0; ///< of the device node
    int m_opened = 0;     ///< the generation that was opened last
    int m_refusals = 0;
    std::optional<std::size_t> m_breakAfter;
    bool m_undriven = false;
    bool m_stuck = false;
    unsigned long m_abilities = I2C_FUNC_I2C;
    bool m_hasGpio = true;
    std::string m_gpioProblem;

    bool m_inTransfer = false;
    int m_failedOpens = 0;
    int m_openNodes = 0;
    std::optional<unsigned long> m_timeoutUnits;
    std::vector<Transfer> m_transfers;
    std::vector<std::string> m_breaches;
    std::vector<std::thread::id> m_threads;
    std::vector<bool> m_resetLevels;
};
