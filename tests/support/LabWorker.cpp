#include "support/LabWorker.h"

#include "modules/hostlink/CheckedConnect.h"
#include "modules/hostlink/LedApi.h"
#include "modules/hostlink/proxy/AvsItemProxy.h"
#include "modules/hostlink/proxy/GooglecastProxy.h"
#include "modules/hostlink/proxy/SystemUpProxy.h"
#include "modules/hostlink/proxy/TarkoUpgradeProxy.h"

namespace
{
/// The upgrade proxy with the state that it takes.
class UpgradeStatusProxy : public TarkoUpgradeProxy
{
public:
    using TarkoUpgradeProxy::TarkoUpgradeProxy;
    QList<State> states() const override { return {STA_HostUpgradeStatus}; }
};
} // namespace

LabWorker::LabWorker(const QVariantHash& config) : CMHostLinkWorker(config)
{
    replaceProxy(new SystemUpStateProxy(this));
    replaceProxy(new GooglecastProxy(this));
    replaceProxy(new AvsItemProxy(this));
    replaceProxy(new UpgradeStatusProxy(this));
    new LedApi(this, m_transport); // a child of this
}

void LabWorker::replaceProxy(ValueProxy* proxy)
{
    connectChecked(proxy, &ValueProxy::valueChanged, this, &CMHostLinkWorker::on_proxy_changed);
    for (const State state : proxy->states()) {
        m_proxies.insert(state, proxy);
    }
}
