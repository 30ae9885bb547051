#pragma once

#include "modules/hostlink/proxy/ValueProxy.h"

class CMValueItem;
class VornValue;

/// What the module's cast receiver does, in three bytes. The host cannot write them.
class GooglecastProxy : public ValueProxy
{
    Q_OBJECT
public:
    explicit GooglecastProxy(QObject* parent);

    /// An unsigned byte for each state of states(); nothing for any other.
    void getValue(State state, HostLinkValueMessage* reply) override;
    QList<State> states() const override;

private slots:
    void on_assistantState_changed(const VornValue& value);
    void on_channelSelection_changed(const VornValue& value);
    void on_multichannelStatus_changed(const VornValue& value);

private:
    CMValueItem* m_assistantStateItem;
    CMValueItem* m_channelSelectionItem;
    CMValueItem* m_multichannelStatusItem;
};
