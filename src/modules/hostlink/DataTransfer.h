#pragma once

#include <QFile>
#include <QObject>
#include <QTimer>
#include <cstdint>
#include <string>
#include <vector>

#include "modules/hostlink/HostLinkMessageHandler.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/VornHostLinkDataTransfer.h"

class CMNodesWorker;
class CMSetDataRequest;
class CMValueNode;
class HostLinkTransportLayer;

/// Pushes one file at a time to the host, in chunks of which the host answers each. A node starts and stops
/// it; another shows how far it is and how the last one ended.
class DataTransfer : public QObject, public HostLinkMessageHandler
{
    Q_OBJECT
public:
    /// Creates the two nodes as nodes of `worker`, which owns this too.
    DataTransfer(CMNodesWorker* worker, HostLinkTransportLayer* transport);

    bool handleMessage(MessageId id, const ByteArray& bytes) override;
    void shutdown() override;

public slots:
    void on_hostlinkDataTransfer_activated(const CMSetDataRequest& request);
    void on_dataTransferTimer_timeout();

public:
    /// Goes on as the host's answer to a chunk says: with the next chunk after 0 and more, with the end after
    /// the index of the last chunk and more, with the same chunk after -2. Any other answer is a failure.
    Q_INVOKABLE void sendFileChunk(int statusResponse);

private:
    using Parameters = VornHostLinkDataTransferParameters;
    using Status = VornHostLinkDataTransferStatus;
    enum class Next { End, Chunk, Resend };

    Status status() const;
    QString start(Parameters params, Status& status);
    void stop(Status& status);
    static Next interpret(int statusResponse, Status& status);
    void finish(Status& status);
    void sendChunk(Status& status, bool resend);
    void readChunk(qint64 chunkSize);
    void fillMessage(qint64 index, const Parameters& params, bool resend);
    void logProgress(qint64 index, qint64 last);
    void logChunk(qint64 index, qint64 last, int size, bool resend) const;
    void logUnsendable(const char* condition) const;
    void sendMessage(const HostLinkMessageSerializable& message);
    std::string fileName() const { return status().params().fileName().toStdString(); }

    HostLinkTransportLayer* m_transport;
    CMValueNode* m_statusNode; ///< of the tree; its value is the whole state of the transfer
    QTimer* m_timer;           ///< since the last chunk; it runs on when the transfer completes
    QFile m_fileToSend;
    ByteArray m_chunk;                                ///< of the file, read last
    HostLinkValueMessage m_message{MSG_DataTransfer}; ///< with it
    std::vector<std::uint32_t> m_crc32Table;
    qint32 m_loggedPercent = -1;
};
