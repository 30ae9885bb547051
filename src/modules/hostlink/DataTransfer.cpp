#include "modules/hostlink/DataTransfer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QFileInfo>
#include <algorithm>
#include <sstream>

#include "modules/hostlink/CheckedConnect.h"
#include "modules/hostlink/Log.h"
#include "platform/hostlink/DataTransferCrc32.h"
#include "platform/hostlink/HostLinkTransportLayer.h"
#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMSetDataRequest.h"
#include "platform/sdk/CMWorker.h"
#include "platform/sdk/Paths.h"
#include "vocabulary/Channels.h"

namespace
{

constexpr qint64 kSmallestChunk = 128;
constexpr qint64 kLargestChunk = 32768;
constexpr qint64 kDefaultChunk = 4096;
constexpr int kDefaultTimeoutMs = 3000;

bool isChunkSize(qint64 size)
{
    return static_cast<quint64>(size) - quint64{kSmallestChunk} < quint64{kLargestChunk - kSmallestChunk + 1};
}

/// Opens plain files only, also behind links: a pipe would hold up the whole module until somebody writes to
/// it, and to open a device may already do something. It is looked at twice, because it may be exchanged in
/// between.
/// The QFile does not know the name.
bool openPlainFile(QFile& file, const QString& name)
{
    if (!QFileInfo(name).isFile()) {
        return false;
    }
    constexpr int kFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    const int descriptor = ::open(QFile::encodeName(name).constData(), kFlags);
    struct stat status {
    };
    if (descriptor >= 0 && ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)
        && file.open(descriptor, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        return true;
    }
    if (descriptor >= 0) {
        ::close(descriptor);
    }
    return false;
}

} // namespace

DataTransfer::DataTransfer(CMNodesWorker* worker, HostLinkTransportLayer* transport)
    : QObject(worker), m_transport(transport), m_timer(new QTimer(this)),
      m_crc32Table(static_cast<std::uint16_t>(dataTransferCrc32TableSize()))
{
    auto* action =
        CMActivateNode::create(worker->nodes(), VornHostLinkDataTransferPath(), this,
                               &DataTransfer::on_hostlinkDataTransfer_activated, Qt::QueuedConnection);
    action->setPermission(VornPermission::Number9999);
    m_statusNode = CMValueNode::create(worker->nodes(), VornHostLinkDataTransferStatusPath());
    m_statusNode->setReadOnly(true);
    m_statusNode->setValue(Status().setActive(false));
    m_timer->setSingleShot(true);
    m_timer->setInterval(kDefaultTimeoutMs);
    connectChecked(m_timer, &QTimer::timeout, this, &DataTransfer::on_dataTransferTimer_timeout);
    genDataTransferCrc32Table(m_crc32Table.data(), static_cast<std::uint16_t>(m_crc32Table.size()));
}

DataTransfer::Status DataTransfer::status() const
{
    return m_statusNode->value();
}

bool DataTransfer::handleMessage(MessageId id, const ByteArray& bytes)
{
    if (id != MSG_DataTransferResponse) {
        return false;
    }
    const HostLinkValueMessage response(bytes);
    LOG4CPLUS_DEBUG(hostLinkLogger, "size: " << response.size() << " tag: " << response.getTag(0));
    sendFileChunk(response.getInt32(0));
    return true;
}

void DataTransfer::on_hostlinkDataTransfer_activated(const CMSetDataRequest& request)
{
    const VornHash data = request.data().toHash();
    HOSTLINK_TRACE_FUNCTION_WITH("params: " << data.toJsonString().toStdString());
    const Parameters params = data;
    Status status = this->status();
    QString error;
    if (status.active() && params.action() != Parameters::Stop) {
        error = "Data transfer is already in progress!";
    } else if (params.action() == Parameters::Stop) {
        stop(status);
    } else if (params.action() == Parameters::Start) {
        error = start(params, status);
    } else {
        error = "Operation not implemented!";
    }
    if (!error.isEmpty()) {
        request.fail(CMError(TrString(error)));
        return;
    }
    m_statusNode->setValue(status);
    if (params.action() == Parameters::Start) {
        LOG4CPLUS_INFO(hostLinkLogger, "Starting data transfer of '" << fileName() << "' with chunk size "
                                                                     << status.params().chunkSize());
        QMetaObject::invokeMethod(this, "sendFileChunk", Qt::QueuedConnection, Q_ARG(int, 0));
    }
    request.complete(QVariant(static_cast<const QVariantHash&>(status)));
}

void DataTransfer::stop(Status& status)
{
    status.setActive(false).setError("Stopped by API request");
    m_fileToSend.close();
    m_timer->stop();
    HostLinkValueMessage message(MSG_DataTransfer);
    message.addValueNil(FileTag::Abort);
    sendMessage(message);
}

/// Returns why it does not start, or nothing. After a wrong chunk size the file stays open; the next start
/// opens another one.
QString DataTransfer::start(Parameters params, Status& status)
{
    m_fileToSend.close();
    if (!openPlainFile(m_fileToSend, params.fileName())) {
        return QStringLiteral("Failed to open file '%1'").arg(params.fileName());
    }
    if (!params.contains(Parameters::ChunkSize())) {
        params.setChunkSize(kDefaultChunk);
    } else if (!isChunkSize(params.chunkSize())) {
        return QStringLiteral("128 <= chunkSize <= 32768");
    }
    if (!params.contains(Parameters::Timeout())) {
        params.setTimeout(kDefaultTimeoutMs);
    }
    m_timer->setInterval(std::max(params.timeout(), 0)); // a timer with a negative one never ends
    const qint64 size = m_fileToSend.size();
    status = Status()
                 .setParams(params)
                 .setBytesTotal(size)
                 .setChunksTotal((size + params.chunkSize() - 1) / params.chunkSize())
                 .setActive(true);
    return {};
}

void DataTransfer::sendFileChunk(int statusResponse)
{
    HOSTLINK_TRACE_FUNCTION_WITH("statusResponse: " << statusResponse);
    Status status = this->status();
    if (!status.active()) {
        LOG4CPLUS_WARN(
            hostLinkLogger,
            "Data transfer: sendFileChunk requested but there is no active data transfer, ignoring...");
        return;
    }
    const Next next = interpret(statusResponse, status);
    if (next == Next::End) {
        finish(status);
    } else {
        sendChunk(status, next == Next::Resend);
    }
    m_statusNode->setValue(status);
}

/// The answer counts by the index of the last chunk alone, not by the chunk that was sent. So the start,
/// which comes as an answer 0, completes a file of at most one chunk.
DataTransfer::Next DataTransfer::interpret(int statusResponse, Status& status)
{
    if (statusResponse == FileAnswer::BlockFailed) {
        status.setError("Block failed");
        return Next::End;
    }
    if (statusResponse == FileAnswer::SendAgain) {
        return Next::Resend;
    }
    if (statusResponse < FileAnswer::SendAgain) {
        status.setError(QStringLiteral("Invalid response from host (%1)").arg(statusResponse));
        return Next::End;
    }
    if (statusResponse < status.chunksTotal() - 1) {
        return Next::Chunk;
    }
    LOG4CPLUS_INFO(hostLinkLogger, "Data transfer: Last chunk send OK!");
    status.setActive(false).remove(Status::Error());
    return Next::End;
}

void DataTransfer::finish(Status& status)
{
    if (status.contains(Status::Error())) {
        LOG4CPLUS_ERROR(hostLinkLogger, "Data transfer: " << status.error().toStdString());
        status.setActive(false);
    }
    m_fileToSend.close();
}

/// A chunk that is sent again begins one chunk size before the end of what was sent: a short last chunk
/// does not begin there.
void DataTransfer::sendChunk(Status& status, bool resend)
{
    const Parameters params = status.params();
    const qint64 index = resend ? status.chunksSent() - 1 : status.chunksSent();
    const qint64 offset = resend ? status.bytesSent() - params.chunkSize() : status.bytesSent();
    if (!m_fileToSend.isOpen()) {
        logUnsendable("m_fileToSend.isOpen() == true");
        return;
    }
    if (offset < 0 || !m_fileToSend.seek(offset)) {
        logUnsendable("m_fileToSend.seek(bytesSent) == true");
        return;
    }
    readChunk(params.chunkSize());
    if (!resend) {
        status.setBytesSent(offset + qint64(m_chunk.size())).setChunksSent(index + 1);
    }
    fillMessage(index, params, resend);
    logProgress(index, status.chunksTotal() - 1);
    logChunk(index, status.chunksTotal() - 1, int(m_chunk.size()), resend);
    if (m_fileToSend.atEnd()) {
        m_message.addValueNil(FileTag::LastChunk);
        LOG4CPLUS_INFO(hostLinkLogger, "Data transfer: '" << fileName() << "': This was the last chunk");
    }
    sendMessage(m_message);
    m_timer->start();
}

/// The next bytes of the file, fewer at its end.
void DataTransfer::readChunk(qint64 chunkSize)
{
    m_chunk.resize(static_cast<std::size_t>(chunkSize));
    const qint64 size = m_fileToSend.read(reinterpret_cast<char*>(m_chunk.data()), chunkSize);
    if (size < 0) {
        LOG4CPLUS_ERROR(hostLinkLogger, "Data transfer: '" << fileName() << "' cannot be read: "
                                                           << m_fileToSend.errorString().toStdString());
    }
    m_chunk.resize(static_cast<std::size_t>(std::max<qint64>(size, 0)));
}

void DataTransfer::fillMessage(qint64 index, const Parameters& params, bool resend)
{
    m_message.restart(MSG_DataTransfer);
    if (index == 0 && !resend) {
        m_message.addValueString(FileTag::Name, QFileInfo(params.fileName()).fileName().toStdString());
    }
    m_message.addValueUint32(FileTag::Index, static_cast<std::uint32_t>(index));
    m_message.addValueBin16(FileTag::Data, m_chunk);
    if (params.crc()) {
        const auto tableSize = static_cast<std::uint16_t>(m_crc32Table.size());
        const std::uint32_t crc = dataTransferCalcCrc32(m_crc32Table.data(), tableSize, m_chunk.data(),
                                                        static_cast<std::uint32_t>(m_chunk.size()));
        m_message.addValueUint32(FileTag::Crc, crc);
    }
}

void DataTransfer::logProgress(qint64 index, qint64 last)
{
    const auto percent = static_cast<qint32>(last == 0 ? 0 : index * 100 / last);
    if (percent != m_loggedPercent) {
        m_loggedPercent = percent;
        LOG4CPLUS_INFO(hostLinkLogger, "Data transfer: '" << fileName() << "': " << percent << "%");
    }
}

void DataTransfer::logChunk(qint64 index, qint64 last, int size, bool resend) const
{
    const log4cplus::LogLevel level = resend ? log4cplus::WARN_LOG_LEVEL : log4cplus::TRACE_LOG_LEVEL;
    if (hostLinkLogger.isEnabledFor(level)) {
        std::ostringstream line;
        line << "Data transfer: '" << fileName() << "': sending chunk " << index << " / " << last << ", size "
             << size;
        hostLinkLogger.log(level, line.str());
    }
}

/// A host that asks for a chunk again before there was one gets none; that ends nothing.
void DataTransfer::logUnsendable(const char* condition) const
{
    LOG4CPLUS_ERROR(hostLinkLogger,
                    "Data transfer: '" << fileName() << "': " << condition << " does not hold, ignoring...");
}

void DataTransfer::on_dataTransferTimer_timeout()
{
    HOSTLINK_TRACE_FUNCTION();
    Status status = this->status();
    if (!status.active()) {
        return;
    }
    m_fileToSend.close();
    status.setError("Timeout").setActive(false);
    m_statusNode->setValue(status);
    LOG4CPLUS_ERROR(hostLinkLogger, "Data transfer: timeout");
}

void DataTransfer::shutdown()
{
    Status status = this->status();
    status.setActive(false).setError("System is shutting down.");
    m_statusNode->setValue(status);
    m_fileToSend.close();
}

void DataTransfer::sendMessage(const HostLinkMessageSerializable& message)
{
    m_transport->send(message.serialize());
}
