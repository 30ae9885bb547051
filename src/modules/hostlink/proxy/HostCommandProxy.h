#pragma once

#include "modules/hostlink/proxy/ValueProxy.h"
#include "platform/sdk/VornHash.h"
#include "vocabulary/Conversions.h"

class CMActivateNode;
class CMNodesWorker;
class CMPath;
class CMSetDataRequest;
class VornValue;

/// Commands of the module for the host. Each is handed over once, when the host reads the state or gets it as
/// a change; one that comes before that replaces the one that waits.
class HostCommandProxy : public ValueProxy
{
    Q_OBJECT
public:
    HostCommandProxy(State state, CMValueItemProxyConvert convert, QObject* parent);

    /// Creates the node of `worker` that the module invokes with a command, a hash. The invocation completes
    /// with an empty value, without waiting for the host.
    CMActivateNode* createRequestNode(CMNodesWorker* worker, const CMPath& path);

    /// Answers unsigned byte 0: the host cannot write commands.
    void setValue(State state, const HostLinkValueMessage& request, int index,
                  HostLinkValueMessage* reply) override;

    /// Hands over the command that waits; Nil when there is none, or when its kind cannot be converted.
    void getValue(State state, HostLinkValueMessage* reply) override;
    QList<State> states() const override { return {m_state}; }

    /// Appends `value` under `state`. False, and nothing appended, for other kinds than Uint8VornBool,
    /// Uint8VornI32, Int32VornI32, Int64VornI64, Bin16VornString and Bin16VornValueJson.
    static bool convertFromVorn(CMValueItemProxyConvert convert, const VornValue& value, State state,
                                HostLinkValueMessage* reply);

private slots:
    void on_requestNode_activated(const CMSetDataRequest& request);

private:
    State m_state;
    CMValueItemProxyConvert m_convert;
    CMActivateNode* m_requestNode = nullptr;
    VornHash m_value;       ///< of the command that waits
    bool m_pending = false; ///< a command waits for the host
};
