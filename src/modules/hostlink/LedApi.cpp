#include "modules/hostlink/LedApi.h"

#include <unistd.h>

#include "modules/hostlink/Log.h"
#include "platform/hostlink/HostLinkTransportLayer.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMSetDataRequest.h"
#include "platform/sdk/CMWorker.h"
#include "platform/sdk/Paths.h"

namespace
{

namespace LedTag
{
enum : std::uint16_t { Palette = 0, Pattern = 1 };
}

constexpr int kEntriesOfMessage = 4;

// The host takes palette messages no faster.
constexpr qint64 kPaletteIntervalMs = 20;

void refuse(const CMSetDataRequest& request, const char* message)
{
    LOG4CPLUS_ERROR(hostLinkLogger, message);
    request.fail(CMError(TrString(QString::fromLatin1(message)), QStringLiteral("Error")));
}

QByteArray decoded(const QString& hexText)
{
    return QByteArray::fromHex(hexText.toLatin1());
}

} // namespace

LedApi::LedApi(CMNodesWorker* worker, HostLinkTransportLayer* transport)
    : QObject(worker), m_transport(transport)
{
    CMActivateNode::create(worker->nodes(), VornHostLinkSetPalettePath(), this,
                           &LedApi::on_setLedPalette_activated, Qt::QueuedConnection);
    CMActivateNode::create(worker->nodes(), VornHostLinkSetPatternPath(), this,
                           &LedApi::on_setLedPattern_activated, Qt::QueuedConnection);
}

bool LedApi::handleMessage(MessageId /*id*/, const ByteArray& /*bytes*/)
{
    return false;
}

void LedApi::on_setLedPalette_activated(const CMSetDataRequest& request)
{
    if (!request.data().isValid()) {
        return;
    }
    const QStringList entries = VornValue(VornHash(request.data().toHash())).stringList();
    QByteArray bytes;
    int count = 0;
    for (int i = 0; i < entries.size(); ++i) {
        LOG4CPLUS_TRACE(hostLinkLogger, "Setting palette entry: " << entries[i].toStdString());
        bytes += decoded(entries[i]);
        ++count;
        if (count < kEntriesOfMessage && i < entries.size() - 1) {
            continue;
        }
        if (!sendPaletteMessage(bytes)) {
            refuse(request, "Unable to write SetPalette message");
            return;
        }
        bytes.clear();
        count = 0;
    }
}

bool LedApi::sendPaletteMessage(const QByteArray& bytes)
{
    const qint64 elapsed = m_sincePalette.isValid() ? m_sincePalette.elapsed() : kPaletteIntervalMs;
    if (elapsed < kPaletteIntervalMs) {
        ::usleep(static_cast<useconds_t>(kPaletteIntervalMs - elapsed) * 1000);
    }
    m_sincePalette.start();
    return send(LedTag::Palette, bytes);
}

void LedApi::on_setLedPattern_activated(const CMSetDataRequest& request)
{
    if (!request.data().isValid()) {
        return;
    }
    const QString pattern = VornValue(VornHash(request.data().toHash())).string();
    LOG4CPLUS_TRACE(hostLinkLogger, "Setting pattern to: " << pattern.toStdString());
    if (!send(LedTag::Pattern, decoded(pattern))) {
        refuse(request, "Unable to write SetPattern message");
    }
}

bool LedApi::send(std::uint16_t tag, const QByteArray& bytes)
{
    HostLinkValueMessage message(MSG_LedControl);
    const bool fits = message.addValueBin16(tag, ByteArray(bytes.begin(), bytes.end()));
    return fits && m_transport->send(message.serialize()) != 0;
}
