#pragma once

#include <QByteArray>
#include <QVariantHash>
#include <optional>

/// Messages of JSON-RPC 2.0, one a line. Integers of up to 64 bits stay exact.
namespace JsonRpc
{
constexpr int kParseError = -32700;
constexpr int kInvalidRequest = -32600;
constexpr int kMethodNotFound = -32601;
constexpr int kInvalidParams = -32602;

struct Error {
    int code = 0;
    QString message;
};

struct Request {
    QVariant id;
    bool wantsAnswer = true; ///< false for a notification: a request without an id
    QString method;
    QVariant params; ///< an empty hash where there are none; a client may have sent anything
};

/// Reads one request. Without a result *error says why, and *id holds the id to answer with (null where
/// none could be read).
std::optional<Request> parseRequest(const QByteArray& line, Error* error, QVariant* id);

// One line each, with its line feed.
QByteArray request(int id, const QString& method, const QVariantHash& params);
QByteArray result(const QVariant& id, const QVariant& value);
QByteArray error(const QVariant& id, const Error& error);
QByteArray notification(const QString& method, const QVariantHash& params);
} // namespace JsonRpc
