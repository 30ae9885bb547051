#pragma once

#include <poll.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/hostlink/HostLinkTime.h"

/// A layer that carries bytes between the two ends of a link: bytes may be lost, damaged or cut off,
/// which the link above repairs. Nothing here reads the clock or is called twice at a time, and but for
/// a layer that says so nothing blocks.
///
/// A layer whose transfers can fail with unknown progress takes the rest of what it was given, as if it
/// had been sent, and begins what it sends next with a zero byte: so no frame is resumed inside, and
/// the frames after it are found again.
class HostLinkPhysicalLayer
{
public:
    /// Index of a setting in Properties.
    enum DeviceProperties : int {
        Device = 0,        ///< string: device node, socket path or HOST:PORT
        InterruptLine = 1, ///< int: line of /dev/gpiochip0, active low
        Address = 2,       ///< int: bus address of the host
        ResetLine = 3,     ///< int: line that resets the host
        BusTimeout = 4,    ///< int: milliseconds
        BitRate = 5,       ///< int: bit/s
        Parity = 6,        ///< string: "none", "even" or "odd"
        StopBits = 7,      ///< int: 1 or 2
        MaxTransfer = 8,   ///< int: bytes of the largest single bus transfer
        Listen = 9,        ///< int: 1 when an emulated line (unix, tcp) listens, else it connects
        Faults = 10,       ///< string: faults of the line in the text form of FaultSettings
    };

    /// Settings of a layer; one that was not set is the layer's default.
    class Properties
    {
    public:
        void setString(int property, std::string value);
        void setInt(int property, int value);
        std::optional<std::string> string(int property) const;
        std::optional<int> integer(int property) const;

    private:
        std::map<int, std::string> m_strings;
        std::map<int, int> m_integers;
    };

    using Factory = std::function<std::unique_ptr<HostLinkPhysicalLayer>(const Properties&)>;

    /// A new layer of a registered type, with property Faults on a faulty line. An unknown type, or faults
    /// that cannot be read, give a layer whose line never comes up and says so once; never nullptr.
    static std::unique_ptr<HostLinkPhysicalLayer> create(const std::string& type,
                                                         const Properties& properties);

    /// Adds a type or replaces one (built in: "i2c", "serial", "tcp", "unix"). Thread-safe.
    static void registerType(const std::string& type, Factory factory);

    virtual ~HostLinkPhysicalLayer() = default;

    /// What logs and tools call the line, as in "unix:/run/link". Never changes.
    virtual std::string name() const { return "line"; }

    /// Begins to bring the line up; failures are retried from service() with backoff. Neither this nor
    /// close() waits for a device, but that close() may take 20 ms to see the last bytes off.
    virtual void open(HostLinkTime now) = 0;
    virtual void close() = 0;

    /// Makes progress below the bytes: connects, accepts, reopens. Called when a descriptor of
    /// waitOn() is ready and when nextService() has come.
    virtual void service(HostLinkTime now) = 0;

    /// 0 while the line is down, else a number that differs for each time the line came up.
    virtual std::uint64_t lineNumber() const = 0;

    /// True when the other side said that the line is taken by another peer.
    virtual bool refused() const { return false; }

    /// Bytes read into `to`, at most `max`; fewer when there are no more now or nextService() has come
    /// meanwhile, 0 also when the line went down. What the other side sent before it went is read before
    /// the line goes down.
    virtual std::size_t read(std::uint8_t* to, std::size_t max, HostLinkTime now) = 0;

    /// Bytes taken from `from`; fewer than `size` when the line pushes back or went down.
    virtual std::size_t write(const std::uint8_t* from, std::size_t size, HostLinkTime now) = 0;

    /// Bytes that write() is best given at a time when there are so many, for a line on which the call costs
    /// more than the bytes. What was given in one call goes before any other frame, however urgent.
    virtual std::size_t batchSize() const { return 0; }

    /// Bytes taken by write() that are not on the wire yet.
    virtual std::size_t unsent() const { return 0; }

    /// Appends the descriptors to poll, with POLLOUT only while `writing`.
    virtual void waitOn(std::vector<pollfd>& descriptors, bool writing) const = 0;

    /// When service() or read() is due, or unsent() has changed, without any descriptor becoming ready.
    virtual HostLinkTime nextService() const { return HostLinkTime::max(); }

    /// True when service(), read() and write() wait for a device. Then one thread calls them and lets go
    /// of the link's lock meanwhile.
    virtual bool blocks() const { return false; }

    /// Added to the link's smallest time-out: how long bytes may lie before a polling layer sees them.
    virtual HostLinkDuration pollTime() const { return HostLinkDuration::zero(); }
};
