#pragma once

#include "platform/sdk/VornField.h"

/// One band of the equaliser.
class VornPlayerEqualizer : public VornHash
{
    VORN_RECORD(VornPlayerEqualizer)
public:
    VORN_FIELD(double, band, setBand, Band) ///< centre frequency, Hz
    VORN_FIELD(double, min, setMin, Min)    ///< dB, as are the next three
    VORN_FIELD(double, max, setMax, Max)
    VORN_FIELD(double, step, setStep, Step)
    VORN_FIELD(double, value, setValue, Value) ///< the gain
};
