#include "modules/hostlink/HostLinkWorker.h"

#include <QFile>
#include <QMetaMethod>
#include <QTimer>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "modules/hostlink/CheckedConnect.h"
#include "modules/hostlink/DataTransfer.h"
#include "modules/hostlink/Log.h"
#include "modules/hostlink/TcpTunneling.h"
#include "modules/hostlink/UInputHandler.h"
#include "modules/hostlink/proxy/BluetoothItemProxy.h"
#include "modules/hostlink/proxy/HostCommandProxy.h"
#include "modules/hostlink/proxy/HostStateValueNode.h"
#include "modules/hostlink/proxy/NetworkItemProxy.h"
#include "modules/hostlink/proxy/PlayControlProxy.h"
#include "modules/hostlink/proxy/PlaybackItemProxy.h"
#include "modules/hostlink/proxy/PostprocessorItemProxy.h"
#include "modules/hostlink/proxy/PowerItemProxy.h"
#include "modules/hostlink/proxy/RoonSignalPathProxy.h"
#include "modules/hostlink/proxy/ValueItemProxy.h"
#include "modules/hostlink/proxy/VolumeItemProxy.h"
#include "platform/hostlink/HostLinkCore.h"
#include "platform/hostlink/HostLinkPhysicalLayer.h"
#include "platform/hostlink/HostLinkPrinter.h"
#include "platform/hostlink/HostLinkTransportLayer.h"
#include "platform/hostlink/HostLinkUInt16Message.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMItem.h"
#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMSetDataRequest.h"
#include "platform/sdk/Paths.h"
#include "platform/sdk/VornDiracSlotsSettings.h"
#include "platform/sdk/VornHostLinkTcpTunnelingConf.h"
#include "vocabulary/HostNodes.h"
#include "vocabulary/Proxies.h"

namespace
{

using namespace std::chrono_literals;

// Long enough for the answer to leave before the module goes down.
constexpr auto kFactoryResetDelay = 500ms;

// Between a power target on which the module goes down and the end of the link.
constexpr auto kShutdownDelay = 100ms;

// Says across restarts that the host was told of an upgrade under way.
constexpr const char* kUpgradeFlagFile = "/media/settings/settings/sentOmbrelUpgradeInProgress";

// The channel of the Dirac stimuli goes out under the id of the halo brightness.
constexpr State kStimuliChannelState = STA_HaloBrightness;

constexpr std::uint8_t kSystemIsUp = 1;
constexpr std::uint8_t kModuleIsOn = 5; ///< as the power state's code

// The link's settings as the build gives them; an empty text leaves the library's default.
constexpr const char* kPhysicalLayer = "i2c";
constexpr const char* kDevice = "/dev/i2c-3";
constexpr const char* kInterruptLine = "7";
constexpr const char* kResetLine = "";
constexpr const char* kAddress = "119";
constexpr const char* kBusTimeout = "1000";
constexpr const char* kBitRate = "115200";
constexpr const char* kParity = "none";
constexpr const char* kStopBits = "1";
constexpr const char* kMaxTransfer = "64";

void setInteger(HostLinkPhysicalLayer::Properties& properties, int property, const std::string& text)
{
    if (!text.empty()) {
        properties.setInt(property, std::stoi(text));
    }
}

HostLinkPhysicalLayer::Properties linkProperties()
{
    using Layer = HostLinkPhysicalLayer;
    Layer::Properties properties;
    properties.setString(Layer::Device, kDevice);
    setInteger(properties, Layer::InterruptLine, kInterruptLine);
    setInteger(properties, Layer::ResetLine, kResetLine);
    setInteger(properties, Layer::Address, kAddress);
    setInteger(properties, Layer::BusTimeout, kBusTimeout);
    setInteger(properties, Layer::BitRate, kBitRate);
    properties.setString(Layer::Parity, kParity);
    setInteger(properties, Layer::StopBits, kStopBits);
    setInteger(properties, Layer::MaxTransfer, kMaxTransfer);
    return properties;
}

/// What the bulk queue keeps free for messages that are sent without a look at its room: the answers to all
/// tunnel requests for which the peer has credit, a chunk of a file, and notices of closed connections. The
/// smallest request, of 2 bytes, has the largest answer for its size: 2 bytes, and 4 that the queue adds.
std::size_t bulkReserve()
{
    constexpr std::size_t kMostAnswerPerByte = 3;
    constexpr std::size_t kChunkAndNotices = 36 * 1024;
    const HostLinkCore::Settings settings;
    return kMostAnswerPerByte * settings.creditBytes[static_cast<std::size_t>(MessageClass::Bulk)]
           + kChunkAndNotices;
}

/// A transport on the fixed link. It is never released, but stays in reach to the end of the process.
HostLinkTransportLayer* createTransport()
{
    static auto& transports = *new std::vector<std::unique_ptr<HostLinkTransportLayer>>;
    transports.push_back(std::make_unique<HostLinkTransportLayer>(
        HostLinkPhysicalLayer::create(kPhysicalLayer, linkProperties()), bulkReserve()));
    return transports.back().get();
}

ValueProxy* createCommandProxy(const ProxyRow& row, CMNodesWorker* worker)
{
    auto* proxy = new HostCommandProxy(row.states.front(), *row.convert, worker);
    proxy->createRequestNode(worker, CMPath(*row.node));
    return proxy;
}

ValueProxy* createProxy(const ProxyRow& row, CMNodesWorker* worker)
{
    switch (row.proxy) {
    case ProxyClass::ValueItemProxy:
        return new ValueItemProxy(row.states.front(), CMPath(*row.node), *row.convert, worker);
    case ProxyClass::HostCommandProxy: return createCommandProxy(row, worker);
    case ProxyClass::VolumeItemProxy: return new VolumeItemProxy(worker);
    case ProxyClass::PowerItemProxy: return new PowerItemProxy(worker);
    case ProxyClass::PlayControlProxy: return new PlayControlProxy(worker);
    case ProxyClass::PlaybackItemProxy: return new PlaybackItemProxy(worker);
    case ProxyClass::NetworkItemProxy: return new NetworkItemProxy(worker);
    case ProxyClass::RoonSignalPathProxy: return new RoonSignalPathProxy(worker);
    case ProxyClass::BluetoothItemProxy: return new BluetoothItemProxy(worker);
    case ProxyClass::PostprocessorItemProxy: return new PostprocessorItemProxy(worker);
    }
    return nullptr;
}

bool isShutdown(VornPowerManagerTargets::Enum target)
{
    return target == VornPowerManagerTargets::Shutdown || target == VornPowerManagerTargets::Restart;
}

std::string stateNames(const QList<State>& states)
{
    std::string names;
    for (const State state : states) {
        names += names.empty() ? "" : ", ";
        names += HostLinkPrinter::printHostLinkState(state);
    }
    return names;
}

State stateAt(const HostLinkUInt16Message& message, int index)
{
    return static_cast<State>(message.get(index));
}

State stateAt(const HostLinkValueMessage& message, int index)
{
    return static_cast<State>(message.getTag(index));
}

} // namespace

CMHostLinkWorker::CMHostLinkWorker(const QVariantHash& config) : CMNodesWorker(config, "CMHostLinkWorker")
{
    HOSTLINK_TRACE_FUNCTION_WITH("Initialising worker");
    startTransport();
    watchPowerManager();
    restoreDiracFilter();
    registerProxies();
    registerHostStateValueNodes();
    createHandlers();
    notifySystemUp();
    configureSubscriptions(true);
    notifyPowerUp();
    queryHostStates();
    createActivateNodes();
    createValueNodes();
}

void CMHostLinkWorker::startTransport()
{
    m_transport = createTransport();
    // Found by its name once: to look for it takes longer than to queue the call.
    const QMetaMethod intake =
        staticMetaObject.method(staticMetaObject.indexOfSlot("on_message_received(QByteArray)"));
    m_transport->addMessageReceivedObserver([this, intake](const ByteArray& message) {
        const QByteArray data(reinterpret_cast<const char*>(message.data()),
                              static_cast<int>(message.size()));
        intake.invoke(this, Qt::QueuedConnection, Q_ARG(QByteArray, data));
    });
    m_transport->start();
}

void CMHostLinkWorker::watchPowerManager()
{
    auto* item = new CMValueItem(this, VornPowerManagerTargetPath());
    connect(item, &CMValueItem::changed, this, &CMHostLinkWorker::on_powerManagerItem_changed);
}

void CMHostLinkWorker::restoreDiracFilter()
{
    const VornDiracSlotsSettings settings =
        VornHash(CMRoot()->getValue(VornDiracSlotsSettingsPath()).toHash());
    VornValue filter;
    filter.setI32(settings.slotsList().activeSlot());
    CMRoot()->setValue(VornDiracActiveFilterPath(), filter, CMVoidReply(new CMReplyData<QVariant>));
}

void CMHostLinkWorker::registerProxies()
{
    HOSTLINK_TRACE_FUNCTION();
    for (const ProxyRow& row : kProxies) {
        addProxy(createProxy(row, this));
    }
}

void CMHostLinkWorker::registerHostStateValueNodes()
{
    HOSTLINK_TRACE_FUNCTION();
    for (const HostNodeRow& row : kHostNodes) {
        m_hostStateNodes.insert(row.state, new HostStateValueNode(this, CMPath(row.node), row.convert));
    }
}

void CMHostLinkWorker::createHandlers()
{
    const VornHostLinkTcpTunnelingConf tunneling =
        VornHash(CMRoot()->getValue(VornHostLinkTcpTunnelingConfPath()).toHash());
    m_handlers.append(new UInputHandler(this));
    if (tunneling.port() >= 1) {
        m_handlers.append(
            new TcpTunneling(this, m_transport, tunneling.port(), tunneling.maxOpenConnections()));
    }
    m_handlers.append(new DataTransfer(this, m_transport));
    m_handlers.append(this);
}

void CMHostLinkWorker::createActivateNodes()
{
    using Worker = CMHostLinkWorker;
    const auto create = [this](const CMPath& path, void (Worker::*slot)(const CMSetDataRequest&)) {
        CMActivateNode::create(nodes(), path, this, slot, Qt::QueuedConnection);
    };
    create(VornHostLinkSendSoftwareUpgradeAvailablePath(),
           &Worker::on_tarkoSendSoftwareUpgradeAvailable_invoked);
    create(VornHostLinkSendSoftwareUpgradeInProgressPath(),
           &Worker::on_tarkoSendSoftwareUpgradeInProgress_invoked);
    create(VornHostLinkSendDiracStimuliOutputChannelIndexPath(),
           &Worker::on_tarkoSendDiracStimuliOutputChannelIndex_invoked);
}

/// Nodes that the host's states fill later.
void CMHostLinkWorker::createValueNodes()
{
    const auto create = [this](const CMPath& path, const VornValue& value) {
        CMValueNode::create(nodes(), path)->setValue(value);
    };
    create(VornHostLinkHeadphonesConnectedPath(), VornValue().setBool(false));
    create(VornHostLinkAudioBalancePath(), VornValue().setI32(0));
    create(VornHostLinkKestalPrimeBtConnectionStatePath(), VornValue().setI32(0));
    create(VornHostLinkKestalPrimeBtFirmwareVersion(), VornValue().setString(QString()));
}

void CMHostLinkWorker::addProxy(ValueProxy* proxy)
{
    connectChecked(proxy, &ValueProxy::valueChanged, this, &CMHostLinkWorker::on_proxy_changed);
    for (const State state : proxy->states()) {
        if (m_proxies.contains(state)) {
            LOG4CPLUS_ERROR(hostLinkLogger, "State: " << state << " is already handled");
            continue;
        }
        m_proxies.insert(state, proxy);
    }
}

int CMHostLinkWorker::sendMessage(const HostLinkMessageSerializable& message)
{
    return m_transport->send(message.serialize());
}

void CMHostLinkWorker::on_message_received(const QByteArray& data)
{
    const auto* first = reinterpret_cast<const std::uint8_t*>(data.constData());
    const ByteArray bytes(first, first + data.size());
    dispatch(bytes);
    m_transport->messageHandled();
}

void CMHostLinkWorker::dispatch(const ByteArray& bytes)
{
    const MessageId id = HostLinkMessage::messageId(bytes);
    if (id == 0) {
        LOG4CPLUS_ERROR(hostLinkLogger, "Message is invalid, cannot read message Id");
        return;
    }
    LOG4CPLUS_DEBUG(hostLinkLogger, "Incoming message id: " << id);
    const QList<HostLinkMessageHandler*> handlers = m_handlers;
    for (HostLinkMessageHandler* handler : handlers) {
        if (handler->handleMessage(id, bytes)) {
            return;
        }
    }
    if (HostLinkMessage::isResponseMessageId(id)) {
        LOG4CPLUS_TRACE(hostLinkLogger, "Response message arrived");
        return;
    }
    LOG4CPLUS_ERROR(hostLinkLogger, "Unhandled message id:" << id);
    HostLinkValueMessage refusal(MSG_ErrorResponse);
    refusal.addValueNil(id);
    sendMessage(refusal);
}

bool CMHostLinkWorker::handleMessage(MessageId id, const ByteArray& bytes)
{
    switch (id) {
    case MSG_GetState: answerGetState(bytes); return true;
    case MSG_SetState: answerSetState(bytes); return true;
    case MSG_Subscribe: answerSubscribe(bytes); return true;
    case MSG_Unsubscribe: answerUnsubscribe(bytes); return true;
    case MSG_StateChanged:
    case MSG_GetStateResponse: takeHostStates(bytes); return true;
    case MSG_SubscribeResponse: noteSubscribed(bytes); return true;
    case MSG_UnsubscribeResponse: noteUnsubscribed(bytes); return true;
    default: return false;
    }
}

void CMHostLinkWorker::answerGetState(const ByteArray& bytes)
{
    LOG4CPLUS_DEBUG(hostLinkLogger, "received getStateMessage");
    const HostLinkUInt16Message request(bytes);
    m_reply.restart(MSG_GetStateResponse);
    for (int i = 0; i < request.size() && !m_reply.isBeyondAnyLink(); ++i) {
        const State state = stateAt(request, i);
        if (ValueProxy* proxy = m_proxies.value(state)) {
            proxy->getValue(state, &m_reply);
        } else {
            m_reply.addValueNil(state);
        }
    }
    sendMessage(m_reply);
}

void CMHostLinkWorker::answerSetState(const ByteArray& bytes)
{
    LOG4CPLUS_DEBUG(hostLinkLogger, "received setStateMessage");
    m_request.restart(bytes);
    m_reply.restart(MSG_SetStateResponse);
    for (int i = 0; i < m_request.size(); ++i) {
        const State state = stateAt(m_request, i);
        if (state == STA_TarkoFactoryReset) {
            LOG4CPLUS_DEBUG(hostLinkLogger, "TarkoFactoryReset received");
            QTimer::singleShot(kFactoryResetDelay, Qt::PreciseTimer, this,
                               &CMHostLinkWorker::on_tarkoFactoryReset);
            m_reply.addValueUint8(state, 1);
        } else if (ValueProxy* proxy = m_proxies.value(state)) {
            proxy->setValue(state, m_request, i, &m_reply);
        } else {
            m_reply.addValueNil(state);
        }
    }
    sendMessage(m_reply);
}

void CMHostLinkWorker::answerSubscribe(const ByteArray& bytes)
{
    LOG4CPLUS_DEBUG(hostLinkLogger, "received subscribe event");
    const HostLinkUInt16Message request(bytes);
    HostLinkUInt16Message reply(MSG_SubscribeResponse);
    QList<State> states;
    for (int i = 0; i < request.size(); ++i) {
        const State state = stateAt(request, i);
        subscribeStateChange(state, &reply);
        states.append(state);
    }
    sendMessage(reply);
    on_proxy_changed(states);
}

void CMHostLinkWorker::answerUnsubscribe(const ByteArray& bytes)
{
    LOG4CPLUS_DEBUG(hostLinkLogger, "received unsubscribe event");
    const HostLinkUInt16Message request(bytes);
    HostLinkUInt16Message reply(MSG_UnsubscribeResponse);
    for (int i = 0; i < request.size(); ++i) {
        unsubscribeStateChange(stateAt(request, i), &reply);
    }
    sendMessage(reply);
}

void CMHostLinkWorker::takeHostStates(const ByteArray& bytes)
{
    LOG4CPLUS_DEBUG(hostLinkLogger, "received state changed event, size " << bytes.size());
    m_request.restart(bytes);
    for (int i = 0; i < m_request.size(); ++i) {
        const State state = stateAt(m_request, i);
        if (HostStateValueNode* node = m_hostStateNodes.value(state)) {
            node->setValue(state, m_request, i);
        } else if (state == STA_HostResubscribe) {
            configureSubscriptions(true);
        } else {
            LOG4CPLUS_INFO(hostLinkLogger, "Unsupported state " << state);
        }
    }
}

void CMHostLinkWorker::noteSubscribed(const ByteArray& bytes)
{
    LOG4CPLUS_DEBUG(hostLinkLogger, "received response to subscribe event");
    const HostLinkUInt16Message response(bytes);
    for (int i = 0; i < response.size(); ++i) {
        LOG4CPLUS_DEBUG(hostLinkLogger, "successfully subscribed to " << stateAt(response, i));
    }
}

void CMHostLinkWorker::noteUnsubscribed(const ByteArray& bytes)
{
    LOG4CPLUS_DEBUG(hostLinkLogger, "received response to unsubscribe event");
    const HostLinkUInt16Message response(bytes);
    for (int i = 0; i < response.size(); ++i) {
        LOG4CPLUS_DEBUG(hostLinkLogger, "successfully unsubscribed from " << stateAt(response, i));
    }
}

bool CMHostLinkWorker::subscribeStateChange(State state, HostLinkUInt16Message* reply)
{
    if (!m_subscribedStates.contains(state)) {
        m_subscribedStates.insert(state);
        reply->addValue(state);
    }
    return true;
}

bool CMHostLinkWorker::unsubscribeStateChange(State state, HostLinkUInt16Message* reply)
{
    if (m_subscribedStates.remove(state)) {
        reply->addValue(state);
    }
    return true;
}

void CMHostLinkWorker::on_proxy_changed(const QList<State>& statesChanged)
{
    HOSTLINK_TRACE_FUNCTION_WITH(stateNames(statesChanged));
    m_event.restart(MSG_StateChanged);
    for (const State state : statesChanged) {
        if (!m_subscribedStates.contains(state) || m_event.isBeyondAnyLink()) {
            continue;
        }
        if (ValueProxy* proxy = m_proxies.value(state)) {
            proxy->getValue(state, &m_event);
        }
    }
    if (m_event.size() > 0 && sendMessage(m_event) == 0) {
        sendApart(m_event);
    }
}

/// An event that is only too long for the link goes value by value: a long text must not leave the host with
/// an old play state in a session that goes on. Where they find no room the session ends, as with any event.
void CMHostLinkWorker::sendApart(const HostLinkValueMessage& event)
{
    const auto fits = [this](std::size_t size) { return m_transport->writable(MessageClass::State, size); };
    if (event.size() < 2 || event.isBeyondAnyLink() || fits(event.serialize().size()) || !fits(1)) {
        return;
    }
    for (int i = 0; i < event.size(); ++i) {
        HostLinkValueMessage alone(event.id());
        alone.addValueOf(event, i);
        sendMessage(alone);
    }
}

bool CMHostLinkWorker::configureSubscriptions(bool subscribe)
{
    HostLinkUInt16Message request(subscribe ? MSG_Subscribe : MSG_Unsubscribe);
    for (const State state : {STA_HostMicMute}) {
        LOG4CPLUS_DEBUG(hostLinkLogger, (subscribe ? "Subscribing for " : "Unsubscribing from ") << state);
        request.addValue(state);
    }
    return sendMessage(request) != 0;
}

void CMHostLinkWorker::queryHostStates()
{
    HostLinkUInt16Message request(MSG_GetState);
    for (auto node = m_hostStateNodes.constBegin(); node != m_hostStateNodes.constEnd(); ++node) {
        request.addValue(node.key());
    }
    sendMessage(request);
}

void CMHostLinkWorker::notifySystemUp()
{
    HOSTLINK_TRACE_FUNCTION();
    HostLinkValueMessage notice(MSG_StateChanged);
    notice.addValueUint8(STA_SystemUp, kSystemIsUp);
    sendMessage(notice);
}

void CMHostLinkWorker::notifyPowerUp()
{
    HOSTLINK_TRACE_FUNCTION();
    HostLinkValueMessage notice(MSG_SetState);
    notice.addValueUint8(STA_ModulePower, kModuleIsOn);
    sendMessage(notice);
}

void CMHostLinkWorker::on_powerManagerItem_changed(const VornValue& value, const VornValue& oldValue)
{
    const VornPowerManagerTargets::Enum target = value.powerTarget().target();
    if (target != oldValue.powerTarget().target() && isShutdown(target)) {
        QTimer::singleShot(kShutdownDelay, Qt::PreciseTimer, this, &CMHostLinkWorker::on_shutdown);
    }
}

void CMHostLinkWorker::on_shutdown()
{
    configureSubscriptions(false);
    const QList<HostLinkMessageHandler*> handlers = m_handlers;
    for (HostLinkMessageHandler* handler : handlers) {
        handler->shutdown();
    }
    m_transport->stop();
}

void CMHostLinkWorker::on_tarkoFactoryReset()
{
    LOG4CPLUS_INFO(hostLinkLogger, "!!! Triggering Factory Reset !!!");
    CMRoot()->invoke(VornSystemManagerFactoryResetPath(), VornValue(),
                     CMVoidReply(new CMReplyData<QVariant>));
}

void CMHostLinkWorker::sendUpgradeStatus(VornKestalPrimeSomUpgradeStatus::Enum status)
{
    HostLinkValueMessage notice(MSG_SetState);
    notice.addValueUint8(STA_SomUpgradeStatus, static_cast<std::uint8_t>(status));
    sendMessage(notice);
}

void CMHostLinkWorker::on_tarkoSendSoftwareUpgradeAvailable_invoked(const CMSetDataRequest& request)
{
    HOSTLINK_TRACE_FUNCTION();
    sendUpgradeStatus(VornKestalPrimeSomUpgradeStatus::Available);
    request.complete(QVariant());
}

void CMHostLinkWorker::on_tarkoSendSoftwareUpgradeInProgress_invoked(const CMSetDataRequest& request)
{
    HOSTLINK_TRACE_FUNCTION();
    sendUpgradeStatus(VornKestalPrimeSomUpgradeStatus::InProgress);
    QFile flag(kUpgradeFlagFile);
    flag.open(QIODevice::WriteOnly);
    flag.close();
    request.complete(QVariant());
}

/// The request is answered, with an empty value, once its last handle goes away.
void CMHostLinkWorker::on_tarkoSendDiracStimuliOutputChannelIndex_invoked(const CMSetDataRequest& request)
{
    const bool hasData = request.data().isValid();
    HOSTLINK_TRACE_FUNCTION_WITH(int{hasData});
    const VornHash data = request.data().toHash();
    HostLinkValueMessage event(MSG_StateChanged);
    if (m_subscribedStates.contains(kStimuliChannelState) && data.contains(VornValue::I32())) {
        event.addValueUint8(kStimuliChannelState, static_cast<std::uint8_t>(VornValue(data).i32()));
    }
    if (event.size() > 0) {
        sendMessage(event);
    }
}
