#include "runtime/LinkCounters.h"

#include "platform/hostlink/HostLinkTransportLayer.h"
#include "platform/sdk/Paths.h"

namespace
{
constexpr int kWatchInterval = 1000; ///< ms

QVariantHash counterHash(const HostLinkCounters& counters)
{
    QVariantHash hash;
    for (const HostLinkCounters::Row& row : HostLinkCounters::kRows) {
        hash.insert(row.name, qint64(counters.*row.value));
    }
    return hash;
}
} // namespace

LinkCounters::LinkCounters() : m_node(CMValueNode::create(&m_nodes, VornHostLinkLinksPath()))
{
    m_timer.setSingleShot(true);
    m_timer.setInterval(kWatchInterval);
    QObject::connect(&m_timer, &QTimer::timeout, m_node, &CMValueNode::refresh);
    m_node->setReadOnly(true);
    m_node->setSource([this] { return read(); });
    m_node->refresh();
}

/// A watch begins with a reading too, so the timer runs as long as there is one.
VornValue LinkCounters::read()
{
    QVariantList links;
    for (const HostLinkTransportLayer::Live& each : HostLinkTransportLayer::live()) {
        links.append(QVariantHash{{"name", QString::fromStdString(each.name)},
                                  {"counters", counterHash(each.counters)}});
    }
    if (m_node->isWatched()) {
        m_timer.start();
    }
    return VornHash{{"links", links}};
}
