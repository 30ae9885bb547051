#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QSet>
#include <QVariantHash>

#include "modules/hostlink/HostLinkMessageHandler.h"
#include "platform/hostlink/HostLinkMessage.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMWorker.h"
#include "vocabulary/States.h"

class CMSetDataRequest;
class HostLinkTransportLayer;
class HostLinkUInt16Message;
class HostStateValueNode;
class ValueProxy;
class VornValue;

/// Serves the module's node tree to the host. All of it runs on the thread that created it; the transport
/// only queues calls of on_message_received().
///
/// Its end sends nothing and leaves the transport as it is: whoever destroys the worker stops all transports
/// first.
class CMHostLinkWorker : public CMNodesWorker, public HostLinkMessageHandler
{
    Q_OBJECT
public:
    /// Opens the host link with its fixed settings, restores the Dirac filter, registers all proxies and
    /// announces the module to the host. A link that is not there yet is no failure. No key of `config` is
    /// read here.
    explicit CMHostLinkWorker(const QVariantHash& config);

    /// Sends one message; non-zero when the transport took it.
    int sendMessage(const HostLinkMessageSerializable& message);

    bool handleMessage(MessageId id, const ByteArray& bytes) override;
    void shutdown() override {}

    /// Adds a state to those whose changes the host gets, and to `reply` when it is new there. Always true.
    bool subscribeStateChange(State state, HostLinkUInt16Message* reply);

    /// Removes a state from them, and adds it to `reply` when it was there. Always true.
    bool unsubscribeStateChange(State state, HostLinkUInt16Message* reply);

    /// Subscribes, or unsubscribes, this module at the host; the result of the send.
    bool configureSubscriptions(bool subscribe);

    /// Asks the host for the values of all states that it pushes.
    void queryHostStates();

public slots:
    /// Ends the link; nothing starts it again.
    void on_shutdown();
    void on_powerManagerItem_changed(const VornValue& value, const VornValue& oldValue);
    void on_proxy_changed(const QList<State>& statesChanged);
    void on_message_received(const QByteArray& data);
    void on_tarkoFactoryReset();
    void on_tarkoSendSoftwareUpgradeAvailable_invoked(const CMSetDataRequest& request);
    void on_tarkoSendSoftwareUpgradeInProgress_invoked(const CMSetDataRequest& request);
    void on_tarkoSendDiracStimuliOutputChannelIndex_invoked(const CMSetDataRequest& request);

protected:
    /// Makes `proxy` the owner of its states and listens to its changes. A state that has an owner keeps it.
    void addProxy(ValueProxy* proxy);

    HostLinkTransportLayer* m_transport = nullptr; ///< shared with the handlers that send
    QHash<State, ValueProxy*> m_proxies;           ///< children of the worker; one may own several states
    QHash<State, HostStateValueNode*> m_hostStateNodes; ///< children of the worker
    QSet<State> m_subscribedStates;                     ///< those whose changes the host gets
    QList<HostLinkMessageHandler*> m_handlers;          ///< in the order in which they are asked

private:
    void startTransport();
    void watchPowerManager();
    void restoreDiracFilter();
    void registerProxies();
    void registerHostStateValueNodes();
    void createHandlers();
    void createActivateNodes();
    void createValueNodes();
    void notifySystemUp();
    void notifyPowerUp();
    void sendUpgradeStatus(VornKestalPrimeSomUpgradeStatus::Enum status);
    void sendApart(const HostLinkValueMessage& event);
    void dispatch(const ByteArray& bytes);

    void answerGetState(const ByteArray& bytes);
    void answerSetState(const ByteArray& bytes);
    void answerSubscribe(const ByteArray& bytes);
    void answerUnsubscribe(const ByteArray& bytes);
    void takeHostStates(const ByteArray& bytes);
    void noteSubscribed(const ByteArray& bytes);
    void noteUnsubscribed(const ByteArray& bytes);

    // One is dealt with after another, in memory that is there already.
    HostLinkValueMessage m_request{MessageId(0)};
    HostLinkValueMessage m_reply{MessageId(0)};
    HostLinkValueMessage m_event{MSG_StateChanged};
};
