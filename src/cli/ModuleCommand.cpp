#include <CLI/CLI.hpp>

#include <QCoreApplication>
#include <QFile>
#include <QSocketNotifier>
#include <iostream>
#include <memory>

#include "cli/Commands.h"
#include "cli/InterruptSignals.h"
#include "cli/LinkReport.h"
#include "cli/LinkUrl.h"
#include "cli/Output.h"
#include "platform/hostlink/HostLinkTransportLayer.h"
#include "runtime/Logging.h"
#include "runtime/ModuleProcess.h"

namespace
{
struct ModuleOptions {
    std::string link = "emulated";
    std::string api;
    std::string stateDirectory;
    std::string profile;
    std::string playlist;
    std::string plugin;
    std::optional<int> tunnelPort;
    std::optional<int> tunnelConnections;
    std::string logLevel = "warn";
    bool stats = false;
    bool trace = false;
};

constexpr int kMostTunnelConnections = 1000;

std::vector<std::string> logLevels()
{
    std::vector<std::string> names;
    for (const QString& name : logLevelNames()) {
        names.push_back(name.toStdString());
    }
    return names;
}

QString fileName(const std::string& name)
{
    return QFile::decodeName(name.c_str());
}

/// As it was built, or as a package has installed it.
QString standardPlugin()
{
    const QString programs = QCoreApplication::applicationDirPath() + '/';
    const QString installed = programs + HOSTLINK_INSTALLED_PLUGIN;
    return QFile::exists(installed) ? installed : programs + "../lib/hostlinkworker.so";
}

ModuleProcess::Settings settingsOf(const ModuleOptions& options, const LinkUrl& link)
{
    ModuleProcess::Settings settings;
    settings.lineType = link.type;
    settings.lineProperties = link.properties;
    settings.apiSocket = fileName(options.api.empty() ? userFile("api.socket") : options.api);
    settings.stateDirectory =
        fileName(options.stateDirectory.empty() ? userFile("state") : options.stateDirectory);
    settings.profileFile = fileName(options.profile);
    settings.playlistFile = fileName(options.playlist);
    settings.plugin = options.plugin.empty() ? standardPlugin() : fileName(options.plugin);
    settings.tunnelPort = options.tunnelPort;
    settings.tunnelConnections = options.tunnelConnections;
    return settings;
}

/// Also of a link that a power target has stopped.
void printAllStats()
{
    for (const HostLinkTransportLayer::Live& each : HostLinkTransportLayer::started()) {
        printStats(each.name, each.counters, false);
    }
}

int run(const ModuleOptions& options)
{
    const LinkUrl link = LinkUrl::parse(options.link, LinkUrl::Side::Module);
    const InterruptSignals interrupts; // before the link's thread
    int argc = 1;
    char name[] = "hostlink";
    char* argv[] = {name, nullptr};
    qputenv("QT_NO_GLIB", "1"); // Qt's own event loop does less for each message than GLib's
    const QCoreApplication application(argc, argv);
    setUpLogging(QString::fromStdString(options.logLevel));
    if (options.trace) {
        printTrace();
    }

    const ModuleProcess::Settings settings = settingsOf(options, link);
    ModuleProcess module;
    QString error;
    const ModuleProcess::Start start = module.start(settings, &error);
    if (start != ModuleProcess::Start::Ready) {
        std::cerr << "hostlink module: " << error.toStdString() << std::endl;
        return start == ModuleProcess::Start::BadFile ? WrongUsage : NoLink;
    }
    QSocketNotifier stop(interrupts.descriptor(), QSocketNotifier::Read);
    QObject::connect(&stop, &QSocketNotifier::activated, &application, &QCoreApplication::quit);
    putLine("ready link=" + link.text + " api=" + QFile::encodeName(settings.apiSocket).toStdString());
    const int status = QCoreApplication::exec();
    if (options.stats) {
        printAllStats();
    }
    return status;
}
} // namespace

void addModuleCommand(CLI::App& app, int* status)
{
    auto options = std::make_shared<ModuleOptions>();
    CLI::App* module =
        app.add_subcommand("module", "Run a module with the host-link worker until SIGINT or SIGTERM");
    module
        ->add_option(
            "--link", options->link,
            "unix:PATH or tcp:HOST:PORT to listen on, emulated, serial:DEVICE[?baud=N], i2c:DEVICE, or "
            "native (the worker's own line)")
        ->type_name("URL")
        ->capture_default_str();
    module->add_option("--api", options->api, "Socket of the node API [in the user's run-time directory]")
        ->type_name("SOCKET");
    module
        ->add_option("--state-dir", options->stateDirectory,
                     "Keeps settings over restarts, created where missing [in the user's run-time directory]")
        ->type_name("DIR");
    module
        ->add_option("--profile", options->profile,
                     "Nodes and their first values, in place of the standard ones")
        ->type_name("FILE");
    module->add_option("--playlist", options->playlist, "Tracks of the player, in place of the standard ones")
        ->type_name("FILE");
    module
        ->add_option("--plugin", options->plugin,
                     "The worker's plug-in [hostlinkworker.so beside the program's libraries]")
        ->type_name("FILE");
    module
        ->add_option("--tunnel-port", options->tunnelPort,
                     "Port of the TCP tunnel, 0 for none [of the profile]")
        ->type_name("N")
        ->check(CLI::Range(0, 65535));
    module
        ->add_option("--tunnel-connections", options->tunnelConnections,
                     "Most connections through the tunnel [of the profile]")
        ->type_name("N")
        ->check(CLI::Range(0, kMostTunnelConnections));
    module
        ->add_option("--log-level", options->logLevel,
                     "trace, debug, info, warn, error or off, to standard error")
        ->type_name("LEVEL")
        ->check(CLI::IsMember(logLevels()))
        ->capture_default_str();
    module->add_flag("--stats", options->stats, "At the end print the link's counters to standard error");
    module->add_flag("--trace", options->trace,
                     "Print every frame and message of the link to standard error");
    module->footer(
        "Prints one line once it is up: ready link=URL api=SOCKET\n\n"
        "Examples:\n"
        "  hostlink module\n"
        "  hostlink module --link tcp:localhost:7000 --log-level info\n"
        "  hostlink module --link 'serial:/dev/ttyUSB0?baud=115200&parity=none&stop=1'\n"
        "  hostlink module --profile my.json --state-dir my-state\n\n"
        "A profile is a JSON object of nodes (path, or name of its accessor) and values:\n"
        "  {\"VornPlayerMutePath\": {\"bool_\": true}, \"/my/node\": {\"string_\": \"text\"}}\n"
        "Its key \"settings\" may list the nodes that keep their values in the state directory, where\n"
        "they go before the profile's.\n\n"
        "A playlist is a JSON list of tracks; any field may be left out, a track without a duration has\n"
        "no end, one with an error fails:\n"
        "  [{\"title\": \"A\", \"artist\": \"B\", \"album\": \"C\", \"icon\": \"http://d/e.png\", "
        "\"service\": \"Files\",\n"
        "    \"duration\": 214000, \"canBeRated\": true, \"uri\": \"file:///f.flac\", \"mimeType\": "
        "\"audio/flac\",\n"
        "    \"sampleRate\": 96000, \"channels\": 2, \"bits\": 24}, {\"title\": \"G\", \"error\": \"no such "
        "file\"}]\n\n"
        "Exit status: 0 ended by a signal, 2 wrong usage, a bad profile or playlist, 3 cannot start (link,\n"
        "socket or state directory in use, no plug-in).");
    module->callback([options, status] { *status = run(*options); });
}
