#pragma once

#include <poll.h>

#include <memory>
#include <mutex>
#include <vector>

#include "platform/hostlink/HostLinkCore.h"
#include "platform/hostlink/HostLinkPhysicalLayer.h"

/// A link core on a physical layer: moves bytes between the two. It has no thread and no lock; the
/// transport steps it from its own thread, a host steps it inline.
class HostLinkPort
{
public:
    HostLinkPort(std::unique_ptr<HostLinkPhysicalLayer> layer, HostLinkCore::Settings settings = {});
    ~HostLinkPort();

    void open(HostLinkTime now);
    void close();

    /// Reads, steps the core and writes until nothing more moves; waits only where the layer blocks.
    void step(HostLinkTime now);

    /// The two halves of step(): reads without writing, and writes without reading. `released` is a held
    /// lock that they let go of while a layer that blocks does a transfer; meanwhile the core may be used.
    void receive(HostLinkTime now, std::unique_lock<std::mutex>* released = nullptr);
    void flush(HostLinkTime now, std::unique_lock<std::mutex>* released = nullptr);

    /// Descriptors to poll and the latest time to call step() again.
    void waitOn(std::vector<pollfd>& descriptors) const;
    HostLinkTime deadline() const;

    /// True while the layer pushes back inside a frame, so that waitOn() asks for room to write.
    bool writing() const { return !m_rest.empty(); }

    /// True while a frame that was begun is not on the wire yet, or another waits for it.
    bool sending() const { return writing() || m_held || m_paused || m_layer->unsent() > 0; }

    HostLinkCore& core() { return m_core; }
    const HostLinkCore& core() const { return m_core; }
    const HostLinkPhysicalLayer& layer() const { return *m_layer; }

private:
    std::size_t readAll(HostLinkTime& now, std::unique_lock<std::mutex>* released);
    bool writeFrame(HostLinkTime& now, std::unique_lock<std::mutex>* released);
    HostLinkCore::Bytes nextFrames(HostLinkTime now);
    void followLine(HostLinkTime now);

    std::unique_ptr<HostLinkPhysicalLayer> m_layer;
    HostLinkCore m_core;
    std::uint64_t m_lineNumber = 0;
    ByteArray m_rest;      ///< what the layer has not taken yet of the frames on their way out
    ByteArray m_batch;     ///< frames that the layer gets together
    bool m_held = false;   ///< a frame was held back because an earlier one is still below the link
    bool m_paused = false; ///< transfers in the other direction are due before the next frame
    HostLinkTime m_serviceAt = HostLinkTime::min(); ///< when a busy line is serviced at the latest
};
