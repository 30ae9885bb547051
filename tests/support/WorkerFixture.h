#pragma once

#include <QDeadlineTimer>
#include <chrono>
#include <thread>

#include "modules/hostlink/HostLinkWorker.h"
#include "modules/hostlink/proxy/ValueProxy.h"
#include "support/LinkFixture.h"

/// The worker with its tables in reach.
class OpenWorker : public CMHostLinkWorker
{
public:
    using CMHostLinkWorker::addProxy;
    using CMHostLinkWorker::CMHostLinkWorker;
    using CMHostLinkWorker::m_handlers;
    using CMHostLinkWorker::m_hostStateNodes;
    using CMHostLinkWorker::m_proxies;
    using CMHostLinkWorker::m_subscribedStates;
    using CMHostLinkWorker::m_transport;
};

/// A real worker over the real node tree, and a host at the other end of its link.
class WorkerFixture : public LinkFixture
{
protected:
    WorkerFixture()
    {
        m_worker = std::make_unique<OpenWorker>(QVariantHash());
        m_announcement = receiveAnnouncement();
    }

    /// No thread may call a worker that goes away.
    ~WorkerFixture() override { HostLinkTransportLayer::stopAll(); }

    /// The module knows on return that its host is gone.
    void stopHostAndHearOfIt()
    {
        stopHost();
        const QDeadlineTimer limit(std::chrono::seconds(10));
        while (m_worker->m_transport->writable(MessageClass::State, 1) && !limit.hasExpired()) {
            std::this_thread::yield(); // until the goodbye has come
        }
    }

    std::unique_ptr<OpenWorker> m_worker;
    std::vector<std::string> m_announcement; ///< what it sent at its start
};
