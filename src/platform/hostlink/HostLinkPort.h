#pragma once

#include <poll.h>

#include <memory>
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

    /// Reads, steps the core and writes until nothing more moves; never blocks.
    void step(HostLinkTime now);

    /// Writes what the core has to say, without reading.
    void flush(HostLinkTime now);

    /// Descriptors to poll and the latest time to call step() again.
    void waitOn(std::vector<pollfd>& descriptors) const;
    HostLinkTime deadline() const;

    HostLinkCore& core() { return m_core; }
    const HostLinkCore& core() const { return m_core; }
    const HostLinkPhysicalLayer& layer() const { return *m_layer; }

private:
    std::unique_ptr<HostLinkPhysicalLayer> m_layer;
    HostLinkCore m_core;
    std::uint64_t m_lineNumber = 0;
    ByteArray m_frame;           ///< the frame on its way out
    std::size_t m_frameSent = 0; ///< how much of it the layer has taken
};
