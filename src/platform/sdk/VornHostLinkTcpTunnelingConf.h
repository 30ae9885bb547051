#pragma once

#include "platform/sdk/VornField.h"

/// How the module takes TCP clients for the host.
class VornHostLinkTcpTunnelingConf : public VornHash
{
    VORN_RECORD(VornHostLinkTcpTunnelingConf)
public:
    VORN_FIELD(qint32, port, setPort, Port) ///< 1 to 65535; less for no tunnelling
    VORN_FIELD(qint32, maxOpenConnections, setMaxOpenConnections, MaxOpenConnections)
};
