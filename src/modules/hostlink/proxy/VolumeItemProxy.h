#pragma once

#include "modules/hostlink/proxy/ValueProxy.h"

class CMItem;
class CMPath;
class QVariant;
class VornRoles;

/// The player's volume, which the host sets within the limits that the volume node declares.
class VolumeItemProxy : public ValueProxy
{
    Q_OBJECT
public:
    explicit VolumeItemProxy(QObject* parent);

    /// Answers unsigned byte 1 when the volume is a byte within the limits, both inclusive, and the node was
    /// asked to take it, else 0. Never answers the volume: the host hears of it as a change.
    void setValue(State state, const HostLinkValueMessage& request, int index,
                  HostLinkValueMessage* reply) override;

    /// Appends the low 8 bits of the volume.
    void getValue(State state, HostLinkValueMessage* reply) override;
    QList<State> states() const override;

private slots:
    void on_volumeItem_changed(const VornRoles& roles);
    void on_volumeChangeEvent_changed(const CMPath& path, const QVariant& value);

private:
    bool isWithinLimits(int volume) const;

    CMItem* m_volumeItem;
};
