#include <unistd.h>

#include <CLI/CLI.hpp>

#include <QFile>
#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <system_error>

#include "cli/Commands.h"
#include "cli/InterruptSignals.h"
#include "cli/LinkUrl.h"
#include "cli/Output.h"
#include "cli/ProgressLine.h"
#include "cli/Suggestions.h"
#include "platform/sdk/VornHostLinkDataTransfer.h"
#include "platform/sdk/VornJson.h"
#include "platform/sdk/VornValue.h"
#include "runtime/NodeApiErrors.h"
#include "runtime/NodeClient.h"
#include "vocabulary/Nodes.h"

namespace
{
struct NodeOptions {
    std::string api;
    unsigned timeout = 10'000; ///< milliseconds
    bool json = false;
    std::string path;
    std::string text;
    bool progress = false; ///< of watch
};

constexpr const char* kProgressNode = "VornHostLinkDataTransferStatusPath";

int complain(int status, const QString& text)
{
    std::cerr << "hostlink node: " << text.toStdString() << std::endl;
    return status;
}

/// The value of a node as a user reads it: a scalar bare, anything else as JSON.
QString readable(const QVariant& value)
{
    const QVariant bare = VornValue(VornHash(value.toHash())).scalar();
    return bare.userType() == QMetaType::QString ? bare.toString() : VornJson::print(bare);
}

void put(const QString& line)
{
    putLine(line.toStdString());
}

/// How far a file transfer is: on a terminal a bar, otherwise a line for each whole percent.
class TransferProgress
{
public:
    void show(const VornHostLinkDataTransferStatus& status)
    {
        const qint64 total = std::max<qint64>(status.bytesTotal(), 1);
        const qint64 sent = std::clamp<qint64>(status.bytesSent(), 0, total);
        if (m_line.isShown()) {
            const std::string bar =
                ProgressLine::bar(static_cast<std::uint64_t>(sent), static_cast<std::uint64_t>(total));
            m_line.show(status.params().fileName().toStdString() + ' ' + bar);
        } else if (const qint64 percent = sent * 100 / total; percent != m_percent) {
            m_percent = percent;
            put(QString::number(percent) + " %");
        }
    }

    void clear() { m_line.clear(); }

private:
    ProgressLine m_line;
    qint64 m_percent = -1;
};

/// One run of the command: its options and its connection to the module.
class NodeCommand
{
public:
    /// `interrupt` and `output` as NodeClient takes them.
    explicit NodeCommand(const NodeOptions& options, int interrupt = -1, int output = -1)
        : m_options(options), m_path(QString::fromStdString(options.path)), m_client(interrupt, output)
    {
    }

    int list();
    int get();
    int set();
    int invoke();
    int watch();

    /// Shows the file transfer that runs, or the next one, and ends with it.
    int watchProgress();

private:
    /// The result of a call; nothing, and m_status, when there is none.
    std::optional<QVariant> call(const QString& method, const QVariantHash& params);
    bool connect();
    int watchEnded(const QString& error) const;
    int unanswered(const QString& error) const;
    std::chrono::milliseconds timeout() const { return std::chrono::milliseconds(m_options.timeout); }
    std::string similarNodes();
    void putRecord(QVariantHash fields) const;
    void putValue(const QVariant& value, QVariantHash more = {}) const;

    const NodeOptions& m_options;
    const QString m_path;
    NodeClient m_client;
    bool m_connected = false;
    int m_status = Done;
};

bool NodeCommand::connect()
{
    if (m_connected) {
        return true;
    }
    const std::string socket = m_options.api.empty() ? userFile("api.socket") : m_options.api;
    QString error;
    m_connected = m_client.connect(QFile::decodeName(socket.c_str()), timeout(), &error);
    if (!m_connected) {
        m_status = unanswered(error);
    }
    return m_connected;
}

std::optional<QVariant> NodeCommand::call(const QString& method, const QVariantHash& params)
{
    QString error;
    if (!connect()) {
        return std::nullopt;
    }
    const std::optional<NodeClient::Answer> answer = m_client.call(method, params, timeout(), &error);
    if (!answer) {
        m_status = unanswered(error);
        return std::nullopt;
    }
    if (answer->error.code == 0) {
        return answer->result;
    }
    const bool noSuchNode = answer->error.code == nodeApiErrorCode(CMError::NoSuchNode);
    m_status = complain(Refused, answer->error.message
                                     + (noSuchNode ? QString::fromStdString(similarNodes()) : QString()));
    return std::nullopt;
}

std::string NodeCommand::similarNodes()
{
    std::vector<std::string> names;
    if (m_path.startsWith('/')) {
        QString error;
        const auto paths = m_client.call("list", {}, timeout(), &error);
        for (const QString& path : paths ? paths->result.toStringList() : QStringList()) {
            names.push_back(path.toStdString());
        }
    } else {
        for (const NodeRow& row : kNodes) {
            names.emplace_back(row.accessor);
        }
    }
    return suggestions(m_options.path, {names.begin(), names.end()});
}

void NodeCommand::putRecord(QVariantHash fields) const
{
    fields["path"] = m_path;
    put(VornJson::print(fields));
}

void NodeCommand::putValue(const QVariant& value, QVariantHash more) const
{
    if (!m_options.json) {
        return put(readable(value));
    }
    more["value"] = value;
    putRecord(more);
}

int NodeCommand::list()
{
    const auto paths = call("list", {{"prefix", m_path}});
    for (const QString& path : paths ? paths->toStringList() : QStringList()) {
        put(m_options.json ? VornJson::print(QVariantHash{{"path", path}}) : path);
    }
    return m_status;
}

int NodeCommand::get()
{
    if (const auto value = call("get", {{"path", m_path}})) {
        putValue(*value);
    }
    return m_status;
}

int NodeCommand::set()
{
    const QString text = QString::fromStdString(m_options.text);
    VornJson::Error syntax;
    QVariant value = VornJson::parse(text, &syntax);
    // A node that holds text takes a bare word, 42 and true among them, as text.
    if (value.userType() != QMetaType::QVariantHash && value.userType() != QMetaType::QString) {
        const auto current = call("get", {{"path", m_path}});
        if (!current) {
            return m_status;
        }
        if (VornValue(VornHash(current->toHash())).type() == VornValue::Type::String) {
            value = text;
        } else if (!syntax.isEmpty()) {
            return complain(WrongUsage, text + " is no JSON: " + syntax.toString());
        }
    }
    if (call("set", {{"path", m_path}, {"value", value}}) && m_options.json) {
        putRecord({{"value", value}});
    }
    return m_status;
}

int NodeCommand::invoke()
{
    const QString text = QString::fromStdString(m_options.text);
    VornJson::Error syntax;
    const QVariant data = VornJson::parse(text, &syntax);
    if (!syntax.isEmpty()) {
        return complain(WrongUsage, text + " is no JSON: " + syntax.toString());
    }
    if (data.userType() != QMetaType::QVariantHash) {
        return complain(WrongUsage, R"(a node is invoked with an object such as {"i32_": 3}, not )" + text);
    }
    const auto result = call("invoke", {{"path", m_path}, {"data", data}});
    if (result && m_options.json) {
        putRecord({{"result", *result}});
    } else if (result && result->isValid() && result->userType() != QMetaType::Nullptr) {
        put(VornJson::print(*result));
    }
    return m_status;
}

int NodeCommand::watch()
{
    const auto now = call("watch", {{"path", m_path}});
    if (!now) {
        return m_status;
    }
    if (now->userType() == QMetaType::QVariantHash) {
        putValue(*now);
    } else {
        std::cerr << "hostlink node: no node at " << m_options.path << " yet" << std::endl;
    }
    QString error;
    while (const auto change = m_client.nextNotification(&error)) {
        putValue(change->value("value"), {{"previous", change->value("previous")}});
    }
    return watchEnded(error);
}

/// Without a reader it ends as it would with the next line.
int NodeCommand::watchEnded(const QString& error) const
{
    if (m_client.outputGone()) {
        throw std::system_error(EPIPE, std::generic_category(), "standard output");
    }
    return unanswered(error);
}

/// The status where the module does not answer, or an interrupt came before that.
int NodeCommand::unanswered(const QString& error) const
{
    return m_client.interrupted() ? static_cast<int>(Done) : complain(NoLink, error);
}

int NodeCommand::watchProgress()
{
    const auto now = call("watch", {{"path", m_path}});
    if (!now) {
        return m_status;
    }
    VornHostLinkDataTransferStatus status = VornHash(now->toHash());
    TransferProgress progress;
    for (bool begun = false; !begun || status.active();) {
        begun = status.active();
        if (begun) {
            progress.show(status);
        }
        QString error;
        const auto change = m_client.nextNotification(&error);
        if (!change) {
            return watchEnded(error);
        }
        status = VornHash(change->value("value").toHash());
    }
    progress.clear();
    if (status.contains(VornHostLinkDataTransferStatus::Error())) {
        return complain(Refused, status.error());
    }
    put(status.params().fileName() + '\t' + QString::number(status.bytesTotal()));
    return Done;
}

using Run = std::function<int(const NodeOptions&)>;

CLI::App* addMethod(CLI::App* node, const std::shared_ptr<NodeOptions>& options, int* status,
                    const std::string& name, const std::string& help, const std::string& argument,
                    const std::string& example, const Run& run)
{
    CLI::App* method = node->add_subcommand(name, help)->fallthrough();
    method->footer("Example:\n  hostlink node " + name + " " + example);
    CLI::Option* path =
        method->add_option(name == "list" ? "PREFIX" : "PATH", options->path,
                           "Path of a node, or the name of its accessor (VornPlayerMutePath)");
    path->required(name != "list")->type_name("");
    if (!argument.empty()) {
        method->add_option("JSON", options->text, argument)->required()->type_name("");
    }
    method->callback([options, status, run] { *status = run(*options); });
    return method;
}

int watchNode(const NodeOptions& options)
{
    const InterruptSignals interrupts;
    NodeCommand command(options, interrupts.descriptor(), STDOUT_FILENO);
    return options.progress ? command.watchProgress() : command.watch();
}

/// A transfer's progress has a node of its own; any other way of watching has to be told which.
void addProgress(CLI::App* method, const std::shared_ptr<NodeOptions>& options, int* status)
{
    method->get_option("PATH")->required(false);
    method->add_flag("--progress", options->progress,
                     "Show the file transfer that runs, or the next one, and end with it");
    method->footer(
        "Examples:\n"
        "  hostlink node watch VornPlayerMutePath\n"
        "  hostlink node watch --progress\n\n"
        "Exit status of --progress: 0 the file was sent, 1 it was not, for the reason that is said.");
    method->callback([options, status] {
        if (options->path.empty() && !options->progress) {
            throw CLI::RequiredError("PATH");
        }
        options->path = options->path.empty() ? kProgressNode : options->path;
        *status = watchNode(*options);
    });
}
} // namespace

void addNodeCommand(CLI::App& app, int* status)
{
    auto options = std::make_shared<NodeOptions>();
    CLI::App* node =
        app.add_subcommand("node", "Read, write, invoke and watch the nodes of a running module");
    node->add_option("--api", options->api,
                     "Socket of the module's node API [in the user's run-time directory]")
        ->type_name("SOCKET");
    node->add_option("--timeout", options->timeout, "Milliseconds to wait for each answer of the module")
        ->type_name("MS")
        ->check(CLI::Range(1u, 86'400'000u))
        ->capture_default_str();
    node->add_flag("--json", options->json, "Print one JSON object a line, values in full");
    node->require_subcommand(1);
    addMethod(node, options, status, "list", "Print the paths of all nodes that begin with PREFIX", "",
              "/player", [](const NodeOptions& given) { return NodeCommand(given).list(); });
    addMethod(node, options, status, "get", "Print a node's value: a scalar bare, otherwise JSON", "",
              "VornPlayerMutePath", [](const NodeOptions& given) { return NodeCommand(given).get(); });
    addMethod(
        node, options, status, "set", "Set a node's value; a node that holds text takes a bare word too",
        R"(A scalar such as 30 or true, or the whole value such as {"i32_": 30})",
        "VornUIDisplayBrightnessPath 40", [](const NodeOptions& given) { return NodeCommand(given).set(); });
    addMethod(node, options, status, "invoke", "Invoke a node with an object and print what it answers",
              R"(An object such as {"i32_": 3}, or {})", "VornSystemManagerFactoryResetPath '{}'",
              [](const NodeOptions& given) { return NodeCommand(given).invoke(); });
    addProgress(addMethod(node, options, status, "watch",
                          "Print a node's value, then each new one, until SIGINT or SIGTERM", "", "",
                          watchNode),
                options, status);
    node->footer("Examples:\n"
                 "  hostlink node list /player\n"
                 "  hostlink node get VornPlayerMutePath\n"
                 "  hostlink node set VornUIDisplayBrightnessPath 40\n"
                 "  hostlink node set VornDeviceNamePath Kitchen\n"
                 "  hostlink node invoke VornSystemManagerFactoryResetPath '{}'\n"
                 "  hostlink node --json watch /player/mute\n\n"
                 "Exit status: 0 done, 1 refused by the module, 2 wrong usage, 3 no module answers.");
}
