#include "modules/hostlink/proxy/RoonSignalPathProxy.h"

#include "modules/hostlink/Log.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMWorker.h"
#include "platform/sdk/Paths.h"
#include "platform/sdk/VornJson.h"
#include "platform/sdk/VornRoonSignalPathCustomElementProperties.h"

RoonSignalPathProxy::RoonSignalPathProxy(QObject* parent) : ValueProxy(parent) {}

void RoonSignalPathProxy::setValue(State state, const HostLinkValueMessage& request, int index,
                                   HostLinkValueMessage* reply)
{
    HOSTLINK_TRACE_FUNCTION();
    bool ok = false;
    const std::string text = request.getString(index, &ok);
    if (!ok) {
        LOG4CPLUS_ERROR(hostLinkLogger, "Could not get the string from incomming msg!");
        reply->addValueUint8(state, 0);
        return;
    }
    // The text ends at its first zero byte.
    reply->addValueUint8(state, writeElements(QString::fromUtf8(text.c_str())) ? 1 : 0);
}

QList<State> RoonSignalPathProxy::states() const
{
    return {STA_RoonSignalPath};
}

bool RoonSignalPathProxy::writeElements(const QString& json)
{
    VornJson::Error error;
    const QVariantList elements = VornJson::parseValue(json, &error).toList();
    if (!error.isEmpty()) {
        LOG4CPLUS_ERROR(hostLinkLogger,
                        "Failed to parse roon signal path json: " << error.toString().toStdString());
        return false;
    }
    for (const QVariant& element : elements) {
        writeElement(element);
    }
    return true;
}

void RoonSignalPathProxy::writeElement(const QVariant& element)
{
    const VornRoonSignalPathCustomElementProperties properties = VornHash(element.toHash());
    const CMPath path = VornRoonSignalPathCustomElement().appendSubpath(properties.id());
    VornValue value;
    value.setVariant(properties.value());
    const CMVoidReply reply(new CMReplyData<QVariant>);
    reply.onError(this, [path](const CMError& error) {
        LOG4CPLUS_ERROR(hostLinkLogger, "RoonSignalPathProxy could not set the value on path: "
                                            << path.toString().toStdString()
                                            << ", with error msg: " << error.Message().toStdString());
    });
    CMRoot()->setValue(path, value, reply);
}
