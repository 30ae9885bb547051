#pragma once

#include <QSet>
#include <QTimer>
#include <chrono>

#include "platform/sdk/CMWorker.h"

class CMSetDataRequest;
class CMValueNode;

/// Shows what Bluetooth does on VornBluetoothStatePath(), and takes requests.
///
/// The module is discoverable and pairable while anyone has requested it by name, {"name":"x"}, and not
/// revoked it; with "useDefaultTimeout" the request ends by itself. Numbers, {"string_":"+495551234"}, are
/// dialled while a device is connected. Connections are made by writing the state node.
class Bluetooth : public CMNodesWorker
{
    Q_OBJECT
public:
    explicit Bluetooth(std::chrono::milliseconds defaultTimeout = std::chrono::minutes(3));

private:
    void on_requestDiscoverable_activated(const CMSetDataRequest& request);
    void on_revokeDiscoverable_activated(const CMSetDataRequest& request);
    void on_dialCall_activated(const CMSetDataRequest& request);
    void on_timeout();
    void showDiscoverable();

    CMValueNode* m_state;
    QSet<QString> m_lasting; ///< names whose requests last until they are revoked
    QSet<QString> m_timed;   ///< names whose requests end with the timer
    QTimer m_timer;
};
