#include "platform/hostlink/HostLinkPhysicalLayer.h"
#include "platform/hostlink/HostLinkTransportLayer.h"
#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMWorker.h"
#include "platform/sdk/Paths.h"

namespace
{
/// Opens the worker's line, notes what its constructor found and owns a node of its own.
class Worker : public CMNodesWorker
{
public:
    explicit Worker(const QVariantHash& config)
        : CMNodesWorker(config, "Worker"), m_transport(HostLinkPhysicalLayer::create("i2c", {}))
    {
        m_transport.start();
        VornValue found;
        found["nodes"] = CMNodes::list();
        found["tunnel"] = getValue(VornHostLinkTcpTunnelingConfPath());
        found["diracSlots"] = getValue(VornDiracSlotsSettingsPath());
        found["config"] = config;
        CMValueNode::create(nodes(), CMPath("/test/found"))->setValue(found);
        CMValueNode::create(nodes(), VornHostLinkKestalPrimeBtFirmwareVersion())
            ->setValue(VornValue().setString("of the worker"));
    }

private:
    HostLinkTransportLayer m_transport;
};
} // namespace

extern "C" void* worker_create(void*, const QVariantHash& config)
{
    return static_cast<CMNodesWorker*>(new Worker(config));
}
