#include "runtime/JsonRpc.h"

#include "platform/sdk/VornJson.h"
#include "services/Utf8.h"

namespace
{
bool isNull(const QVariant& json)
{
    return !json.isValid() || json.userType() == QMetaType::Nullptr;
}

bool isId(const QVariant& json)
{
    return isNull(json) || json.userType() == QMetaType::QString || json.userType() == QMetaType::LongLong
           || json.userType() == QMetaType::Double;
}

QByteArray line(QVariantHash message)
{
    message["jsonrpc"] = "2.0";
    return VornJson::print(message).toUtf8() + '\n';
}

QVariant parse(const QByteArray& bytes, JsonRpc::Error* error)
{
    const std::optional<QString> text = fromUtf8(bytes);
    if (!text) {
        *error = {JsonRpc::kParseError, "the line is not UTF-8"};
        return {};
    }
    VornJson::Error syntax;
    QVariant json = VornJson::parse(*text, &syntax);
    if (!syntax.isEmpty()) {
        *error = {JsonRpc::kParseError, syntax.toString()};
    }
    return json;
}

/// What makes an object no request; empty when it is one.
QString flaw(const QVariantHash& object)
{
    if (object["jsonrpc"].toString() != "2.0") {
        return R"("jsonrpc" must be "2.0")";
    }
    if (object["method"].userType() != QMetaType::QString) {
        return R"("method" must be a string)";
    }
    if (!isId(object["id"])) {
        return R"("id" must be a string, a number or null)";
    }
    return {};
}
} // namespace

std::optional<JsonRpc::Request> JsonRpc::parseRequest(const QByteArray& bytes, Error* error, QVariant* id)
{
    *error = {};
    *id = {};
    const QVariant json = parse(bytes, error);
    if (error->code != 0) {
        return std::nullopt;
    }
    if (json.userType() == QMetaType::QVariantList) {
        *error = {kInvalidRequest, "batches are not served; send one request a line"};
        return std::nullopt;
    }
    if (json.userType() != QMetaType::QVariantHash) {
        *error = {kInvalidRequest, "a request is an object"};
        return std::nullopt;
    }
    const QVariantHash object = json.toHash();
    if (isId(object["id"])) {
        *id = object["id"];
    }
    if (const QString problem = flaw(object); !problem.isEmpty()) {
        *error = {kInvalidRequest, problem};
        return std::nullopt;
    }
    return Request{*id, object.contains("id"), object["method"].toString(),
                   object.value("params", QVariantHash())};
}

QByteArray JsonRpc::request(int id, const QString& method, const QVariantHash& params)
{
    return line({{"id", id}, {"method", method}, {"params", params}});
}

QByteArray JsonRpc::result(const QVariant& id, const QVariant& value)
{
    return line({{"id", id}, {"result", value}});
}

QByteArray JsonRpc::error(const QVariant& id, const Error& error)
{
    const QVariantHash fields{{"code", error.code}, {"message", error.message}};
    return line({{"id", id}, {"error", fields}});
}

QByteArray JsonRpc::notification(const QString& method, const QVariantHash& params)
{
    return line({{"method", method}, {"params", params}});
}
