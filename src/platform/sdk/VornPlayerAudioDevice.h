#pragma once

#include "platform/sdk/VornField.h"

/// The control of a sound card that tells the sample rate of its input.
class VornPlayerSampleRateSource : public VornHash
{
    VORN_RECORD(VornPlayerSampleRateSource)
public:
    VORN_FIELD(QString, soundCard, setSoundCard, SoundCard)
    VORN_FIELD(QString, sampleRateElement, setSampleRateElement, SampleRateElement)
};

/// How a sound device is opened. Numbers are 0 where the device decides.
class VornPlayerAudioDevice : public VornHash
{
    VORN_RECORD(VornPlayerAudioDevice)
public:
    VORN_FIELD(QString, device, setDevice, Device)            ///< ALSA's name, "hw:1,0"
    VORN_FIELD(qint32, sampleRate, setSampleRate, SampleRate) ///< Hz
    VORN_FIELD(qint32, channels, setChannels, Channels)
    VORN_FIELD(QString, format, setFormat, Format)            ///< ALSA's name, "S24_3LE"
    VORN_FIELD(qint32, bps, setBps, Bps)                      ///< bits per sample, where there is no format
    VORN_FIELD(qint32, periodTime, setPeriodTime, PeriodTime) ///< milliseconds
    VORN_FIELD(qint32, bufferTime, setBufferTime, BufferTime) ///< milliseconds
    VORN_FIELD(qint32, inputTsOffset, setInputTsOffset, InputTsOffset) ///< milliseconds
    VORN_FIELD(bool, useDriftComp, setUseDriftComp, UseDriftComp)
    VORN_FIELD(VornPlayerSampleRateSource, sampleRateSource, setSampleRateSource, SampleRateSource)
};
