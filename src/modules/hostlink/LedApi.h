#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QObject>
#include <cstdint>

#include "modules/hostlink/HostLinkMessageHandler.h"

class CMNodesWorker;
class CMSetDataRequest;
class HostLinkTransportLayer;

/// Gives software of the module the host's lights: one node loads entries of the colour palette, one
/// selects a pattern. Colours and patterns are hexadecimal text; what is no digit of it is skipped.
class LedApi : public QObject, public HostLinkMessageHandler
{
    Q_OBJECT
public:
    /// Creates the two nodes as nodes of `worker`, which owns this too.
    LedApi(CMNodesWorker* worker, HostLinkTransportLayer* transport);

    bool handleMessage(MessageId id, const ByteArray& bytes) override;
    void shutdown() override {}

    /// Sends entries of the palette, no sooner than 20 ms after the last ones: it sleeps until then. False
    /// when the transport did not take them.
    bool sendPaletteMessage(const QByteArray& bytes);

public slots:
    /// A list of entries, sent in messages of four.
    void on_setLedPalette_activated(const CMSetDataRequest& request);

    /// The bytes of a pattern.
    void on_setLedPattern_activated(const CMSetDataRequest& request);

private:
    bool send(std::uint16_t tag, const QByteArray& bytes);

    HostLinkTransportLayer* m_transport;
    QElapsedTimer m_sincePalette; ///< invalid until the first palette message
};
