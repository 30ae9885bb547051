#pragma once

#include <QList>
#include <QObject>

#include "vocabulary/States.h"

class HostLinkValueMessage;

/// Expresses values of the module as host-link states and applies what the host sends for them.
class ValueProxy : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    /// Applies value `index` of `request`, whose tag is `state`, and appends one answer for `state` to
    /// `reply`: by default unsigned byte 0, refused.
    virtual void setValue(State state, const HostLinkValueMessage& request, int index,
                          HostLinkValueMessage* reply);

    /// Appends the current value of `state` to `reply`: by default Nil.
    virtual void getValue(State state, HostLinkValueMessage* reply);

    /// The states that this proxy owns.
    virtual QList<State> states() const = 0;

signals:
    void valueChanged(const QList<State>& states);
};
