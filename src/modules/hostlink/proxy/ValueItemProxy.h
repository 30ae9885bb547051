#pragma once

#include "modules/hostlink/proxy/ValueProxy.h"
#include "vocabulary/Conversions.h"

class CMPath;
class CMValueItem;
class VornValue;

/// One state that is one module node seen through a fixed conversion.
class ValueItemProxy : public ValueProxy
{
    Q_OBJECT
public:
    ValueItemProxy(State state, const CMPath& path, CMValueItemProxyConvert convert, QObject* parent);

    /// Answers unsigned byte 1 when the value could be read and the node was asked to take it, else 0. The
    /// node's own answer is not awaited: the host hears of the new value as a change.
    void setValue(State state, const HostLinkValueMessage& request, int index,
                  HostLinkValueMessage* reply) override;

    /// Appends the node's value, Nil for a conversion that the host cannot read.
    void getValue(State state, HostLinkValueMessage* reply) override;
    QList<State> states() const override { return {m_state}; }

private slots:
    void on_cmValueItem_changed(const VornValue& value);

private:
    State m_state;
    CMValueItemProxyConvert m_convert;
    CMValueItem* m_item;
};
