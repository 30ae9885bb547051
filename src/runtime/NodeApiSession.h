#pragma once

#include <QHash>
#include <QObject>
#include <QVariantHash>

#include "platform/sdk/CMError.h"
#include "platform/sdk/CMItem.h"
#include "platform/sdk/CMPath.h"
#include "platform/sdk/CMReply.h"
#include "runtime/JsonRpc.h"

/// The node API's methods for one client:
///     list {prefix}        sorted paths of all nodes that begin with prefix (optional)
///     get {path}           the node's value
///     set {path, value}    value: JSON form, or a bare scalar for a node that holds a plain value
///     invoke {path, data}  the answer of the node's owner; data: an object (optional)
///     watch {path}         the value now, null where there is no node, then a notification
///                          "changed" {path, value, previous} at each change
/// Values are in VornValue's JSON form. A path may be given as the name of its accessor; a notification
/// names it as the client did. Refusals of nodes have the codes of nodeApiErrorCode.
class NodeApiSession : public QObject
{
    Q_OBJECT
public:
    static constexpr int kMostWatches = 1000;
    static constexpr int kLongestWatch = 4096; ///< characters of a watched path, which is kept

    using QObject::QObject;

    /// Serves one request. Requests are to be handed over one by one: only while not busy().
    void handle(const QByteArray& line);

    /// True while a request waits for a node.
    bool busy() const { return m_busy; }

signals:
    /// A line for the client: an answer or a notification.
    void line(const QByteArray& line);

    /// The request is served; the next one may come.
    void finished();

private:
    void list();
    void get();
    void set();
    void invoke();
    void watch();

    bool checkParams(const QStringList& known);
    bool readText(const QString& key, QString* text);
    bool readPath(CMPath* path);
    bool readValue(const CMPath& path, VornValue* value);
    void attach(const CMReply<QVariant>& reply);

    void succeed(const QVariant& value);
    void finish(const QByteArray& answer);
    void fail(const JsonRpc::Error& error);
    void fail(CMError::Code code, const QString& message);
    void failParams(const QString& message);

    JsonRpc::Request m_request;
    QVariantHash m_params;
    bool m_busy = false;
    QHash<QString, CMValueItem*> m_watches; ///< by the name that the client gave
};
