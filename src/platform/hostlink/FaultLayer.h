#pragma once

#include "platform/hostlink/FaultEngine.h"
#include "platform/hostlink/HostLinkPhysicalLayer.h"

/// A faulty line over another one. What comes from the other side passes the faults of direction `in`, what
/// is written those of direction `out`; where a direction is slow, write() takes less and unsent() tells.
/// During a cut of the whole line it is down here, and what the other side sends gets lost; that side sees
/// nothing of it.
///
/// A rate limit of direction `in` holds back what the layer below has taken from the other side already. To
/// see what a slow line does to both sides, both have to limit what they send.
class FaultLayer : public HostLinkPhysicalLayer
{
public:
    FaultLayer(std::unique_ptr<HostLinkPhysicalLayer> layer, const FaultSettings& settings);
    ~FaultLayer() override { FaultLayer::close(); }

    std::string name() const override { return m_layer->name(); }
    void open(HostLinkTime now) override;

    /// Hands over what is on its way, before the layer below is closed.
    void close() override;

    void service(HostLinkTime now) override;
    std::uint64_t lineNumber() const override { return m_up ? m_lines : 0; }
    bool refused() const override { return m_layer->refused(); }
    std::size_t read(std::uint8_t* to, std::size_t max, HostLinkTime now) override;
    std::size_t write(const std::uint8_t* from, std::size_t size, HostLinkTime now) override;
    std::size_t unsent() const override;
    void waitOn(std::vector<pollfd>& descriptors, bool writing) const override;
    HostLinkTime nextService() const override;
    bool blocks() const override { return m_layer->blocks(); }
    HostLinkDuration pollTime() const override { return m_layer->pollTime(); }

private:
    void advance(HostLinkTime now);
    void followLine();
    void goDown();
    void pull();
    void push();
    bool mayPull() const;

    std::unique_ptr<HostLinkPhysicalLayer> m_layer;
    CutSchedule m_cuts;
    FaultEngine m_in;
    FaultEngine m_out;
    HostLinkTime m_now = HostLinkTime::min(); ///< of the latest call that was told
    std::uint64_t m_cutsSeen = 0;
    bool m_up = false;
    std::uint64_t m_lines = 0;     ///< how often the line came up here
    std::uint64_t m_lineBelow = 0; ///< the layer's line that this one is on
    bool m_blocked = false;        ///< the layer below took less than has arrived for it
    bool m_awaitsRoom = false;     ///< write() took less than it was given
};
