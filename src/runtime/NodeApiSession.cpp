#include "runtime/NodeApiSession.h"

#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMWorker.h"
#include "platform/sdk/VornJson.h"
#include "runtime/NodeApiErrors.h"
#include "services/NodeNames.h"

namespace
{
const QString kPath = QStringLiteral("path");
const QString kPrefix = QStringLiteral("prefix");
const QString kValue = QStringLiteral("value");
const QString kData = QStringLiteral("data");

QVariant asJson(const VornHash& value)
{
    return QVariantHash(value);
}
} // namespace

void NodeApiSession::handle(const QByteArray& line)
{
    static const QHash<QString, void (NodeApiSession::*)()> methods{
        {"list", &NodeApiSession::list},     {"get", &NodeApiSession::get},     {"set", &NodeApiSession::set},
        {"invoke", &NodeApiSession::invoke}, {"watch", &NodeApiSession::watch},
    };
    JsonRpc::Error error;
    QVariant id;
    const std::optional<JsonRpc::Request> request = JsonRpc::parseRequest(line, &error, &id);
    m_request = request.value_or(JsonRpc::Request{id, true, {}, {}});
    m_busy = true;
    if (!request) {
        return fail(error);
    }
    const auto method = methods.find(m_request.method);
    if (method == methods.end()) {
        return fail({JsonRpc::kMethodNotFound, "no method " + m_request.method});
    }
    if (m_request.params.userType() != QMetaType::QVariantHash) {
        return failParams("parameters are given by name, as an object");
    }
    m_params = m_request.params.toHash();
    (this->**method)();
}

void NodeApiSession::list()
{
    QString prefix;
    if (!checkParams({kPrefix}) || (m_params.contains(kPrefix) && !readText(kPrefix, &prefix))) {
        return;
    }
    const CMPath named = prefix.startsWith('/') ? CMPath() : resolveNodeName(prefix);
    succeed(CMNodes::list(named.isEmpty() ? prefix : named.toString()));
}

void NodeApiSession::get()
{
    CMPath path;
    if (!checkParams({kPath}) || !readPath(&path)) {
        return;
    }
    const QVariant value = CMRoot()->getValue(path);
    if (value.isValid()) {
        return succeed(value);
    }
    if (CMNodes::exists(path)) {
        return fail(CMError::WrongType, path.toString() + " holds no value; it can be invoked");
    }
    fail(CMError::NoSuchNode, "no node at " + path.toString());
}

void NodeApiSession::set()
{
    CMPath path;
    if (!checkParams({kPath, kValue}) || !readPath(&path)) {
        return;
    }
    if (!m_params.contains(kValue)) {
        return failParams("value is missing");
    }
    VornValue value;
    if (!readValue(path, &value)) {
        return;
    }
    const CMReply<QVariant> reply;
    CMRoot()->setValue(path, value, reply);
    attach(reply);
}

void NodeApiSession::invoke()
{
    CMPath path;
    if (!checkParams({kPath, kData}) || !readPath(&path)) {
        return;
    }
    const QVariant data = m_params.value(kData, QVariantHash());
    if (data.userType() != QMetaType::QVariantHash) {
        return failParams("data must be an object");
    }
    const CMReply<QVariant> reply;
    CMRoot()->invoke(path, data.toHash(), reply);
    attach(reply);
}

void NodeApiSession::watch()
{
    CMPath path;
    if (!checkParams({kPath}) || !readPath(&path)) {
        return;
    }
    const QString name = m_params.value(kPath).toString();
    if (!m_watches.contains(name)) {
        if (m_watches.size() >= kMostWatches) {
            return fail(CMError::Refused, QString("a client has at most %1 watches").arg(kMostWatches));
        }
        if (name.size() > kLongestWatch) {
            return fail(CMError::Refused,
                        QString("a watched path has at most %1 characters").arg(kLongestWatch));
        }
        auto* item = new CMValueItem(this, path);
        connect(item, &CMValueItem::changed, this,
                [this, name](const VornValue& value, const VornValue& previous) {
                    emit line(JsonRpc::notification(
                        "changed", {{kPath, name}, {kValue, asJson(value)}, {"previous", asJson(previous)}}));
                });
        m_watches.insert(name, item);
    }
    succeed(CMRoot()->getValue(path));
}

bool NodeApiSession::checkParams(const QStringList& known)
{
    for (auto it = m_params.begin(); it != m_params.end(); ++it) {
        if (!known.contains(it.key())) {
            failParams(m_request.method + " takes " + known.join(" and ") + ", not " + it.key());
            return false;
        }
    }
    return true;
}

bool NodeApiSession::readText(const QString& key, QString* text)
{
    const QVariant json = m_params.value(key);
    if (json.userType() != QMetaType::QString) {
        failParams(m_params.contains(key) ? key + " must be a string" : key + " is missing");
        return false;
    }
    *text = json.toString();
    return true;
}

bool NodeApiSession::readPath(CMPath* path)
{
    QString name;
    if (!readText(kPath, &name)) {
        return false;
    }
    *path = resolveNodeName(name);
    if (path->isEmpty()) {
        fail(CMError::NoSuchNode, name + " is neither a path nor the name of one");
        return false;
    }
    return true;
}

bool NodeApiSession::readValue(const CMPath& path, VornValue* value)
{
    const QVariant json = m_params.value(kValue);
    const VornValue current = VornHash(CMRoot()->getValue(path).toHash());
    bool fits = false;
    *value = VornValue::fromScalar(current.type(), json, &fits);
    if (fits) {
        return true;
    }
    if (!CMNodes::exists(path)) {
        fail(CMError::NoSuchNode, "no node at " + path.toString());
    } else if (current.type() == VornValue::Type::Hash) {
        fail(CMError::WrongType, path.toString() + " takes an object, not " + VornJson::print(json));
    } else {
        fail(CMError::WrongType, path.toString() + " takes " + VornValue::typeName(current.type()) + ", not "
                                     + VornJson::print(json));
    }
    return false;
}

void NodeApiSession::attach(const CMReply<QVariant>& reply)
{
    reply.onResult(this, [this](const QVariant& value) { succeed(value); });
    reply.onError(this, [this](const CMError& error) { fail(error.code(), error.Message()); });
}

void NodeApiSession::succeed(const QVariant& value)
{
    finish(JsonRpc::result(m_request.id, value));
}

void NodeApiSession::fail(const JsonRpc::Error& error)
{
    finish(JsonRpc::error(m_request.id, error));
}

void NodeApiSession::finish(const QByteArray& answer)
{
    m_busy = false;
    if (m_request.wantsAnswer) {
        emit line(answer);
    }
    emit finished();
}

void NodeApiSession::fail(CMError::Code code, const QString& message)
{
    fail({nodeApiErrorCode(code), message});
}

void NodeApiSession::failParams(const QString& message)
{
    fail({JsonRpc::kInvalidParams, message});
}
