#pragma once

#include "modules/hostlink/proxy/ValueProxy.h"

class CMPath;
class CMValueItem;
class VornValue;

/// One state that is the number of a node which holds the host's input state.
class InputItemProxy : public ValueProxy
{
    Q_OBJECT
public:
    InputItemProxy(State state, const CMPath& path, QObject* parent);

    /// Answers unsigned byte 1 when the value is a byte and the node was asked to take it, else 0.
    void setValue(State state, const HostLinkValueMessage& request, int index,
                  HostLinkValueMessage* reply) override;

    /// Appends the low 8 bits of the node's number.
    void getValue(State state, HostLinkValueMessage* reply) override;
    QList<State> states() const override { return {m_state}; }

private slots:
    void on_cmValueItem_changed(const VornValue& value);

private:
    State m_state;
    CMValueItem* m_item;
};
