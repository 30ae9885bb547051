#pragma once

#include "modules/hostlink/proxy/ValueProxy.h"
#include "platform/sdk/VornList.h"

class CMPath;
class CMValueItem;
class VornPlayerEqualizer;
class VornValue;

/// The player's tone: balance, bass, treble, loudness, two switches and the equaliser. What the nodes hold
/// as fractions travels as tenths.
class PostprocessorItemProxy : public ValueProxy
{
    Q_OBJECT
public:
    explicit PostprocessorItemProxy(QObject* parent);

    /// Answers unsigned byte 1 when the value is one for the state and the node was asked to take it, else 0.
    ///
    /// Balance, bass and treble take a signed byte: 0.1 for any but zero, 0.0 for zero, whatever its size.
    /// Loudness and the switches take a byte: on for any but zero. The gains take two bytes for each of the
    /// equaliser's bands, a signed number of tenths, the high byte first. The layout takes nothing.
    void setValue(State state, const HostLinkValueMessage& request, int index,
                  HostLinkValueMessage* reply) override;

    /// Appends tenths, truncated toward zero, in the number's low 8 or 16 bits; loudness and switches as they
    /// are. For each band the layout is frequency, minimum, maximum and step, the gains are the gain, 16 bits
    /// each with the high byte first.
    void getValue(State state, HostLinkValueMessage* reply) override;
    QList<State> states() const override;

private slots:
    void on_balance_changed(const VornValue& value);
    void on_bass_changed(const VornValue& value);
    void on_treble_changed(const VornValue& value);
    void on_loudness_changed(const VornValue& value);
    void on_postprocessingOnOff_changed(const VornValue& value);
    void on_equalizerOnOff_changed(const VornValue& value);
    void on_equalizer_changed(const VornValue& value);

private:
    using Slot = void (PostprocessorItemProxy::*)(const VornValue& value);
    CMValueItem* watch(const CMPath& path, Slot slot);

    static bool writeTone(const CMValueItem* item, const HostLinkValueMessage& request, int index);
    static bool writeLoudness(const CMValueItem* item, const HostLinkValueMessage& request, int index);
    static bool writeSwitch(const CMValueItem* item, const HostLinkValueMessage& request, int index);
    static bool writeGains(const CMValueItem* item, const HostLinkValueMessage& request, int index);

    CMValueItem* m_bass;
    CMValueItem* m_treble;
    CMValueItem* m_loudness;
    CMValueItem* m_balance;
    CMValueItem* m_equalizerOnOff;
    CMValueItem* m_postprocessingOnOff;
    CMValueItem* m_equalizer;
};
