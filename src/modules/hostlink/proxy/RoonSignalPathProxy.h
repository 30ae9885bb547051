#pragma once

#include "modules/hostlink/proxy/ValueProxy.h"

/// Takes from the host the elements that it contributes to Roon's signal path: a JSON list of objects, each
/// with an `id` and a `value`. Each value goes to the node that the id names below the custom-element node.
/// Cannot be read.
class RoonSignalPathProxy : public ValueProxy
{
    Q_OBJECT
public:
    explicit RoonSignalPathProxy(QObject* parent);

    /// Answers unsigned byte 1 when the value is a string of JSON text, else 0. The nodes' own answers are
    /// not awaited: those that refuse are errors in the log.
    void setValue(State state, const HostLinkValueMessage& request, int index,
                  HostLinkValueMessage* reply) override;
    QList<State> states() const override;

private:
    bool writeElements(const QString& json);
    void writeElement(const QVariant& element);
};
