#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/hostlink/ByteArray.h"
#include "platform/hostlink/HostLinkCounters.h"
#include "platform/hostlink/HostLinkPhysicalLayer.h"
#include "vocabulary/MessageIds.h"

/// Acknowledged messages over a physical layer, with a thread of its own that waits, reads and steps
/// the link. All functions are thread-safe unless they say otherwise.
class HostLinkTransportLayer
{
public:
    using MessageReceivedObserver = std::function<void(const ByteArray& message)>;

    /// `bulkReserve` as in HostLinkCore::Settings, less than the bulk queue.
    explicit HostLinkTransportLayer(std::unique_ptr<HostLinkPhysicalLayer> layer,
                                    std::size_t bulkReserve = 0);
    virtual ~HostLinkTransportLayer();

    HostLinkTransportLayer(const HostLinkTransportLayer&) = delete;
    HostLinkTransportLayer& operator=(const HostLinkTransportLayer&) = delete;

    /// Calls `observer` on the transport's thread for each received message, without holding a lock.
    /// To be called before start().
    void addMessageReceivedObserver(MessageReceivedObserver observer);

    /// Starts the thread; non-zero on success. A line that is not there yet is no failure.
    virtual int start();

    /// Sends what waits in the state class, says goodbye and ends the thread, within 250 ms and the time that
    /// an observer takes which runs. Later sends return 0. A second stop is harmless.
    virtual void stop();

    /// Queues one message; non-zero when it was taken (see HostLinkCore::send).
    virtual int send(const ByteArray& message);

    /// Reports that the next message, in the order in which an observer got them, has been handled, so that
    /// the peer may send more.
    void messageHandled();

    /// True while send() takes a message of this class and size and leaves the reserve free.
    bool writable(MessageClass messageClass, std::size_t size) const;

    /// Calls `observer` on the transport's thread each time a full bulk queue has drained to half of what
    /// is not reserved.
    void addBulkDrainedObserver(std::function<void()> observer);

    /// What it has done so far.
    HostLinkCounters counters() const;

    struct Live {
        std::string name; ///< of its line
        HostLinkCounters counters;
    };

    /// The transports of the process that run now, in the order of their starts.
    static std::vector<Live> live();

    /// Those that run and those that have stopped, as long as they are not destroyed.
    static std::vector<Live> started();

    /// Stops every transport of the process that still runs. What observers point at may be destroyed
    /// afterwards.
    static void stopAll();

private:
    struct Private;
    std::shared_ptr<Private> d; ///< shared with the thread, which may be left behind in a stuck device
};
