#pragma once

#include "platform/sdk/VornField.h"

/// An element that somebody contributes to the signal path that Roon shows.
class VornRoonSignalPathCustomElementProperties : public VornHash
{
    VORN_RECORD(VornRoonSignalPathCustomElementProperties)
public:
    VORN_FIELD(QString, id, setId, Id) ///< names the element's node
    VORN_FIELD(QVariant, value, setValue, Value)
};
