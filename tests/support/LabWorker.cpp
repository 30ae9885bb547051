#include "support/LabWorker.h"

#include "modules/hostlink/CheckedConnect.h"
#include "modules/hostlink/proxy/SystemUpProxy.h"

LabWorker::LabWorker(const QVariantHash& config) : CMHostLinkWorker(config)
{
    replaceProxy(new SystemUpStateProxy(this));
}

void LabWorker::replaceProxy(ValueProxy* proxy)
{
    connectChecked(proxy, &ValueProxy::valueChanged, this, &CMHostLinkWorker::on_proxy_changed);
    for (const State state : proxy->states()) {
        m_proxies.insert(state, proxy);
    }
}
