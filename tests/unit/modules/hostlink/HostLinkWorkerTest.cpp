#include <QMetaMethod>
#include <QTcpServer>
#include <QTcpSocket>

#include "modules/hostlink/DataTransfer.h"
#include "modules/hostlink/TcpTunneling.h"
#include "modules/hostlink/UInputHandler.h"
#include "platform/hostlink/HostLinkCore.h"
#include "platform/sdk/VornHostLinkTcpTunnelingConf.h"
#include "support/WorkerFixture.h"
#include "vocabulary/Proxies.h"

namespace
{

using Layer = HostLinkPhysicalLayer;

TEST_F(WorkerFixture, OpensTheLinkWithItsFixedSettings)
{
    ASSERT_TRUE(m_linkProperties);
    EXPECT_EQ(m_linkProperties->string(Layer::Device), "/dev/i2c-3");
    EXPECT_EQ(m_linkProperties->integer(Layer::InterruptLine), 7);
    EXPECT_EQ(m_linkProperties->integer(Layer::Address), 0x77);
    EXPECT_EQ(m_linkProperties->integer(Layer::BusTimeout), 1000);
    EXPECT_EQ(m_linkProperties->integer(Layer::BitRate), 115200);
    EXPECT_EQ(m_linkProperties->string(Layer::Parity), "none");
    EXPECT_EQ(m_linkProperties->integer(Layer::StopBits), 1);
    EXPECT_EQ(m_linkProperties->integer(Layer::MaxTransfer), 64);
}

TEST_F(WorkerFixture, LeavesTheResetLineAtTheDefaultOfTheLayer)
{
    EXPECT_FALSE(m_linkProperties->integer(Layer::ResetLine));
    EXPECT_FALSE(m_linkProperties->string(Layer::ResetLine));
    EXPECT_FALSE(m_linkProperties->integer(Layer::Listen));
}

TEST_F(LinkFixture, NoKeyOfTheConfigurationChangesTheLink)
{
    const QVariantHash config{{"device", "/dev/other"}, {"address", 1}, {"", QVariant()}};
    {
        const CMHostLinkWorker worker(config);
        EXPECT_EQ(worker.config(), config);
        HostLinkTransportLayer::stopAll();
    }
    EXPECT_EQ(m_linkProperties->string(Layer::Device), "/dev/i2c-3");
    EXPECT_EQ(m_linkProperties->integer(Layer::Address), 119);
}

TEST_F(WorkerFixture, TracesItsConstruction)
{
    const std::string node = "HostStateValueNode::HostStateValueNode(CMNodesWorker*, const CMPath&, "
                             "CMValueItemProxyConvert)";
    const std::string changed = "void CMHostLinkWorker::on_proxy_changed(const QList<State>&)";
    const std::string enterChanged = "Enter " + changed + ": ";
    const std::string leaveChanged = "Leave " + changed;
    const std::string enterNode = "Enter " + node;
    const std::string leaveNode = "Leave " + node;
    const std::vector<std::string> traces = m_log.traces();
    const std::vector<std::string> expected{
        "Enter CMHostLinkWorker::CMHostLinkWorker(const QVariantHash&): Initialising worker",
        "Enter void CMHostLinkWorker::registerProxies()",
        "Leave void CMHostLinkWorker::registerProxies()",
        "Enter void CMHostLinkWorker::registerHostStateValueNodes()",
        enterNode,
        leaveNode,
        enterNode,
        leaveNode,
        enterNode,
        leaveNode,
        "Leave void CMHostLinkWorker::registerHostStateValueNodes()",
        "Enter void CMHostLinkWorker::notifySystemUp()",
        "Leave void CMHostLinkWorker::notifySystemUp()",
        "Enter void CMHostLinkWorker::notifyPowerUp()",
        "Leave void CMHostLinkWorker::notifyPowerUp()",
        // Proxies watch two of the nodes that are created last.
        enterChanged + "STA_BtConnectionState",
        leaveChanged,
        enterChanged + "STA_BtFirmwareVersion",
        leaveChanged,
        "Leave CMHostLinkWorker::CMHostLinkWorker(const QVariantHash&)",
    };
    EXPECT_EQ(traces, expected);
}

TEST_F(WorkerFixture, NoStateIsClaimedTwice)
{
    for (const std::string& error : m_log.errors()) {
        EXPECT_EQ(error.find("Uinput not available"), 0U) << error;
    }
    EXPECT_EQ(m_worker->m_proxies.size(), static_cast<int>(servedStateCount()));
}

/// A worker that finds its tunnel configured when it starts.
class TunnelWorker : public LinkFixture
{
protected:
    ~TunnelWorker() override { HostLinkTransportLayer::stopAll(); }

    OpenWorker& make(const VornHash& conf)
    {
        CMValueNode::create(&m_nodes, VornHostLinkTcpTunnelingConfPath())->setValue(conf);
        m_worker = std::make_unique<OpenWorker>(QVariantHash());
        return *m_worker;
    }

    std::unique_ptr<OpenWorker> m_worker;
};

template <typename Handler>
bool is(HostLinkMessageHandler* handler)
{
    const auto* object = dynamic_cast<Handler*>(handler);
    return object != nullptr && object->metaObject() == &Handler::staticMetaObject;
}

TEST_F(WorkerFixture, WithoutATunnelKeysComeBeforeDataTransferBeforeItself)
{
    const auto& handlers = m_worker->m_handlers;
    ASSERT_EQ(handlers.size(), 3);
    EXPECT_TRUE(is<UInputHandler>(handlers[0]));
    EXPECT_TRUE(is<DataTransfer>(handlers[1]));
    EXPECT_EQ(handlers[2], static_cast<HostLinkMessageHandler*>(m_worker.get()));
    EXPECT_EQ(dynamic_cast<QObject*>(handlers[0])->parent(), m_worker.get());
    EXPECT_EQ(dynamic_cast<QObject*>(handlers[1])->parent(), m_worker.get());
}

TEST_F(TunnelWorker, ATunnelComesSecond)
{
    const OpenWorker& worker = make(VornHostLinkTcpTunnelingConf().setPort(34571).setMaxOpenConnections(50));
    ASSERT_EQ(worker.m_handlers.size(), 4);
    EXPECT_TRUE(is<UInputHandler>(worker.m_handlers[0]));
    EXPECT_TRUE(is<TcpTunneling>(worker.m_handlers[1]));
    EXPECT_TRUE(is<DataTransfer>(worker.m_handlers[2]));
    EXPECT_EQ(dynamic_cast<QObject*>(worker.m_handlers[1])->parent(), &worker);
    EXPECT_EQ(m_log.count(log4cplus::DEBUG_LOG_LEVEL,
                          "Starting TCP tunneling server at port: 34571, max allowed connections: 50"),
              1U);
}

TEST_F(TunnelWorker, ClientsDataLeavesRoomForTheAnswersToAllThatAHostMayAsk)
{
    QTcpServer probe;
    ASSERT_TRUE(probe.listen(QHostAddress::Any, 0));
    const int port = probe.serverPort();
    probe.close();
    stopHost();
    HostEnd host(MemoryLine::makeEnd(m_line, 1), HostEnd::Handling::WhenTold);
    const HostLinkTransportLayer& module = *make(VornHostLinkTcpTunnelingConf().setPort(port)).m_transport;
    ASSERT_TRUE(waitFor([&] { return host.hasReceived(); }));
    QTcpSocket client;
    client.connectToHost(QHostAddress::LocalHost, quint16(port));
    client.write(QByteArray(1024 * 1024, 'x'));
    ASSERT_TRUE(waitFor([&] { return !module.writable(MessageClass::Bulk, 8200); }));

    m_log.clear();
    m_log.setLevel(log4cplus::ERROR_LOG_LEVEL);
    const HostLinkValueMessage request(MSG_TcpTunnel);
    HostLinkValueMessage last(MSG_TcpTunnel); // its handling is logged
    last.addValueNil(77);
    const std::size_t credit = HostLinkCore::Settings().creditBytes[std::size_t(MessageClass::Bulk)];
    const int requests = int((credit - last.serialize().size()) / request.serialize().size());
    for (int i = 0; i < requests; ++i) {
        ASSERT_NE(host.send(request), 0) << i;
    }
    ASSERT_NE(host.send(last), 0);
    ASSERT_TRUE(waitFor([&] { return !m_log.errors().empty(); }));
    ASSERT_EQ(module.counters().messagesRefused, 0U);

    int replies = 0;
    EXPECT_TRUE(waitFor([&] {
        while (host.hasReceived()) {
            replies += HostLinkMessage::messageId(host.receive()) == MSG_TcpTunnelReply ? 1 : 0;
            host.transport().messageHandled();
        }
        return replies == requests + 1;
    })) << replies;
}

TEST_F(TunnelWorker, APortOf0IsNoTunnel)
{
    EXPECT_EQ(make(VornHostLinkTcpTunnelingConf().setPort(0)).m_handlers.size(), 3);
}

TEST_F(TunnelWorker, ANegativePortIsNoTunnel)
{
    EXPECT_EQ(make(VornHostLinkTcpTunnelingConf().setPort(-1)).m_handlers.size(), 3);
}

TEST_F(TunnelWorker, AnEmptyConfigurationIsNoTunnel)
{
    EXPECT_EQ(make({}).m_handlers.size(), 3);
}

TEST_F(WorkerFixture, ItsSlotsStandInTheirOrder)
{
    const QMetaObject& meta = CMHostLinkWorker::staticMetaObject;
    std::vector<std::string> methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        EXPECT_EQ(meta.method(i).methodType(), QMetaMethod::Slot);
        methods.push_back(meta.method(i).methodSignature().toStdString());
    }
    const std::vector<std::string> expected{
        "on_shutdown()",
        "on_powerManagerItem_changed(VornValue,VornValue)",
        "on_proxy_changed(QList<State>)",
        "on_message_received(QByteArray)",
        "on_tarkoFactoryReset()",
        "on_tarkoSendSoftwareUpgradeAvailable_invoked(CMSetDataRequest)",
        "on_tarkoSendSoftwareUpgradeInProgress_invoked(CMSetDataRequest)",
        "on_tarkoSendDiracStimuliOutputChannelIndex_invoked(CMSetDataRequest)",
    };
    EXPECT_EQ(methods, expected);
}

TEST_F(LinkFixture, AMessageThatWaitsForTheWorkerIsAnsweredOnceItIsComplete)
{
    ASSERT_NE(m_host->send(numbers(MSG_GetState, {STA_ProcModeSubMode, 0x7777})), 0);
    const CMHostLinkWorker worker{QVariantHash()};
    receiveAnnouncement();
    EXPECT_EQ(receive(), "MSG_GetStateResponse STA_ProcModeSubMode=u8:0 0x7777=nil");
    HostLinkTransportLayer::stopAll();
}

TEST_F(WorkerFixture, SendMessageGivesTheResultOfTheTransport)
{
    const HostLinkValueMessage message(MSG_StateChanged);
    EXPECT_NE(m_worker->sendMessage(message), 0);
    EXPECT_EQ(receive(), "MSG_StateChanged");
    m_worker->m_transport->stop();
    EXPECT_EQ(m_worker->sendMessage(message), 0);
}

TEST_F(WorkerFixture, ItsOwnShutdownDoesNothing)
{
    m_worker->shutdown();
    EXPECT_TRUE(nothingSent());
}

TEST_F(WorkerFixture, DestructionSendsNothingThoughItsNodesGoAway)
{
    CMValueNode::create(m_worker->nodes(), VornPlayerMutePath())->setValue(VornValue().setBool(true));
    EXPECT_EQ(ask(numbers(MSG_Subscribe, {STA_Mute})), "MSG_SubscribeResponse STA_Mute");
    EXPECT_EQ(receive(), "MSG_StateChanged STA_Mute=u8:1");
    m_log.clear();

    HostLinkTransportLayer* transport = m_worker->m_transport;
    m_worker.reset();

    EXPECT_TRUE(m_log.lines().empty());
    const HostLinkUInt16Message last(MSG_GetState);
    ASSERT_NE(transport->send(last.serialize()), 0);
    EXPECT_EQ(receive(), "MSG_GetState");
}

} // namespace
