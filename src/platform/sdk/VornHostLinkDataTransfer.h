#pragma once

#include "platform/sdk/VornField.h"

/// What is asked of the data transfer.
class VornHostLinkDataTransferParameters : public VornHash
{
    VORN_RECORD(VornHostLinkDataTransferParameters)
public:
    enum : qint32 { Start = 0, Stop = 1 };

    VORN_FIELD(qint32, action, setAction, Action)          ///< Start or Stop
    VORN_FIELD(QString, fileName, setFileName, FileName)   ///< path of the file to send
    VORN_FIELD(qint64, chunkSize, setChunkSize, ChunkSize) ///< bytes, 128 to 32768; 4096 when absent
    VORN_FIELD(qint32, timeout, setTimeout, Timeout) ///< ms for each of the host's answers; 3000 when absent
    VORN_FIELD(bool, crc, setCrc, Crc)               ///< each chunk carries its CRC-32
};

/// The data transfer that runs, or how the last one ended.
class VornHostLinkDataTransferStatus : public VornHash
{
    VORN_RECORD(VornHostLinkDataTransferStatus)
public:
    VORN_FIELD(bool, active, setActive, Active)
    VORN_FIELD(qint64, bytesTotal, setBytesTotal, BytesTotal) ///< size of the file
    VORN_FIELD(qint64, bytesSent, setBytesSent, BytesSent)    ///< offset behind the last chunk sent
    VORN_FIELD(qint64, chunksTotal, setChunksTotal, ChunksTotal)
    VORN_FIELD(qint64, chunksSent, setChunksSent, ChunksSent) ///< also the index of the next chunk
    VORN_FIELD(QString, error, setError, Error)               ///< why it ended; absent after success
    VORN_FIELD(VornHostLinkDataTransferParameters, params, setParams, Params) ///< with defaults applied
};
