#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>
#include <iostream>
#include <limits>
#include <memory>

#include "cli/AttendedHost.h"
#include "cli/Commands.h"
#include "cli/FileReception.h"
#include "cli/HostRequest.h"
#include "cli/InterruptSignals.h"
#include "cli/LinkReport.h"
#include "cli/LinkUrl.h"
#include "cli/Output.h"
#include "cli/StateWatch.h"
#include "cli/TunnelEnd.h"
#include "cli/ValueText.h"
#include "host/HostSession.h"
#include "platform/hostlink/HexText.h"
#include "platform/hostlink/HostLinkUInt16Message.h"

namespace
{
struct HostOptions {
    std::string link = "emulated";
    unsigned timeout = 2000; ///< milliseconds
    bool json = false;
    bool stats = false;
    bool trace = false;
    std::vector<std::string> arguments;                  ///< of the chosen command
    std::optional<unsigned> count;                       ///< of watch and receive
    std::optional<double> period;                        ///< of watch, seconds
    std::string directory;                               ///< of receive
    std::uint64_t largest = FileReceiver::kUsualLargest; ///< of receive
    std::vector<std::string> failures;                   ///< of receive
    bool echo = false;                                   ///< of tunnel
};

/// A command that sends one request, made from its arguments before the link is touched.
struct Command {
    const HostRequest& request;
    const char* footer;
    ExitStatus (*work)(HostSession& session, const ByteArray& message, const HostOptions& options);
    void (*addOptions)(CLI::App& app, HostOptions& options); ///< null: none of its own
};

void putValue(const HostLinkValueMessage& message, int index, bool json)
{
    putLine(json ? valueJson(message, index) : valueLine(message, index));
}

void putNone(State state, bool json)
{
    putLine(json ? noneJson(state) : noneLine(state));
}

void putMessage(const ByteArray& message, bool json)
{
    putLine(json ? "{\"message\":\"" + hexText(message) + "\"}" : hexText(message));
}

/// Prints a reply's values in their order, then a `none` for each of `asked` without one. Returns how
/// many those were.
std::size_t putReply(const HostLinkValueMessage& reply, std::vector<State> asked, bool json)
{
    for (int i = 0; i < reply.size(); ++i) {
        putValue(reply, i, json);
        const auto answered = std::find(asked.begin(), asked.end(), reply.getTag(i));
        if (answered != asked.end()) {
            asked.erase(answered);
        }
    }
    for (const State state : asked) {
        putNone(state, json);
    }
    return asked.size();
}

std::vector<State> tagsOf(const HostLinkValueMessage& message)
{
    std::vector<State> states;
    states.reserve(std::size_t(message.size()));
    for (int i = 0; i < message.size(); ++i) {
        states.push_back(State(message.getTag(i)));
    }
    return states;
}

std::vector<State> numbersOf(const HostLinkUInt16Message& message)
{
    std::vector<State> states;
    states.reserve(std::size_t(message.size()));
    for (int i = 0; i < message.size(); ++i) {
        states.push_back(State(message.get(i)));
    }
    return states;
}

ExitStatus get(HostSession& session, const ByteArray& message, const HostOptions& options)
{
    const HostLinkValueMessage reply(session.request(message, HostSession::Repeat::Once));
    putReply(reply, numbersOf(HostLinkUInt16Message(message)), options.json);
    return Done;
}

bool isAccepted(const HostLinkValueMessage& reply, int index)
{
    return reply.getUint8(index) == 1;
}

ExitStatus set(HostSession& session, const ByteArray& message, const HostOptions& options)
{
    const HostLinkValueMessage reply(session.request(message, HostSession::Repeat::Never));
    bool accepted = putReply(reply, tagsOf(HostLinkValueMessage(message)), options.json) == 0;
    for (int i = 0; i < reply.size(); ++i) {
        accepted = accepted && isAccepted(reply, i);
    }
    return accepted ? Done : Refused;
}

ExitStatus watch(HostSession& session, const ByteArray& message, const HostOptions& options)
{
    StateWatch::Limits limits;
    limits.events = options.count;
    if (options.period) {
        limits.period =
            std::chrono::duration_cast<HostLinkDuration>(std::chrono::duration<double>(*options.period));
    }
    return StateWatch(session, message, options.json).run(limits);
}

/// Sends what is never answered. The reply to the empty request says that the module has handled it.
ExitStatus push(HostSession& session, const ByteArray& message, const HostOptions&)
{
    session.send(message);
    session.request(HostSession::emptyRequest(), HostSession::Repeat::Never);
    return Done;
}

ExitStatus delivered(HostSession& session)
{
    if (!session.waitAcknowledged()) {
        throw HostError(HostError::Cause::NoReply,
                        "the module's end of the link did not confirm the message");
    }
    return Done;
}

/// Prints what comes until the time-out; what the link lost cannot come any more. The link carries no
/// empty message, which nobody would answer either.
ExitStatus sendAndListen(HostSession& session, const ByteArray& bytes, const HostOptions& options)
{
    if (!bytes.empty()) {
        session.send(bytes);
    }
    const HostLinkTime deadline = session.now() + session.timeout();
    ByteArray message;
    for (;;) {
        switch (session.receive(&message, deadline)) {
        case Host::Event::Message: putMessage(message, options.json); break;
        case Host::Event::NewSession:
        case Host::Event::Ended:
            throw HostError(HostError::Cause::SessionLost,
                            "the session ended; whether the message was handled is unknown");
        case Host::Event::TimedOut:
            if (!session.isLineUp()) {
                throw HostError(HostError::Cause::SessionLost, "the module went away");
            }
            return delivered(session);
        case Host::Event::Interrupted: throw HostError(HostError::Cause::Interrupted, "interrupted");
        default: break;
        }
    }
}

constexpr double kLongestPeriod = 1e6; // seconds

CLI::Range positive()
{
    return {std::int64_t{1}, std::numeric_limits<std::int64_t>::max()};
}

/// Unlike a CLI::Range this refuses nan.
std::string checkPeriod(const std::string& text)
{
    double seconds = 0;
    const bool isPeriod =
        CLI::detail::lexical_cast(text, seconds) && seconds >= 0 && seconds <= kLongestPeriod;
    return isPeriod ? "" : "'" + text + "' is no number of seconds from 0 to 1000000";
}

void addWatchOptions(CLI::App& app, HostOptions& options)
{
    app.add_option("--count", options.count, "End after N events behind the current values")
        ->type_name("N")
        ->check(positive());
    app.add_option("--for", options.period, "End so long after the current values")
        ->type_name("SECONDS")
        ->check(CLI::Validator(checkPeriod, ""));
}

constexpr const char* kGetHelp =
    R"(Prints NAME<TAB>TYPE<TAB>VALUE for each value of the reply, in the order answered. A type of nil
means that the module does not know the state; after the answers, none is the type of a state for
which the reply holds no value.

Examples:
  hostlink host get STA_Volume STA_Mute
  hostlink host get Mute 7 0x7777
  hostlink host get SystemVersion --json

Exit status: 0 a reply came, 2 wrong usage, 3 no link or no reply in time.)";

constexpr const char* kSetHelp =
    R"(VALUE is taken as the type that the state is written with, or as the type in front of it: u8: u16:
u32: i8: i32: i64: str: bin: (hexadecimal digits), or is the word nil. Prints the reply as get does;
the module answers u8 1 for a value that it took.

Examples:
  hostlink host set STA_Volume=30
  hostlink host set Mute=u8:1 DeviceName=str:Kitchen

Exit status: 0 all were taken, 1 some were not, 2 wrong usage, 3 no link or no reply in time.)";

constexpr const char* kWatchHelp =
    R"(Prints the values that the states have now, as get does, and then those of every event. Subscribes again
in every new session of the link, so a module that restarts is watched on, and unsubscribes at the end.

Examples:
  hostlink host watch STA_Volume STA_Mute
  hostlink host watch STA_Volume --count 1 --for 10

Exit status: 0 done or interrupted, 2 wrong usage, 3 no link, no reply in time, or the end of --for or an
interrupt came before --count was reached.)";

constexpr const char* kPushHelp =
    R"(Sends a state-changed event, as the host that owns the states does when they change, and waits until the
module has handled it. VALUE is as for set. The module does not answer: it takes the states that it mirrors in
its nodes and logs the others.

Example:
  hostlink host push HostMicMute=u8:1 HostFirmwareVersion=2.7.1

Exit status: 0 handled, 2 wrong usage, 3 no link or no reply in time.)";

constexpr const char* kKeyHelp =
    R"(Sends key events, which the module's virtual keyboard hands to its software, and waits until the module has
handled them. All of one command are one message, and so one frame of events. CODE is a name as Linux calls the
key, with or without KEY_, or its number.

Examples:
  hostlink host key KEY_VOLUMEUP:press KEY_VOLUMEUP:release
  hostlink host key mute:press 115:release

Exit status: 0 handled, 2 wrong usage, 3 no link or no reply in time.)";

constexpr const char* kReceiveHelp =
    R"(Takes the files that the module pushes (hostlink node invoke VornHostLinkDataTransferPath) and prints
NAME<TAB>BYTES for each that is whole. A file appears in DIR when it is whole, in place of an older one of its name,
and never elsewhere. What cannot be taken, an order or a name that is wrong, too many bytes or a full disk, ends its
transfer. Says on standard error when it is ready.

--fail-chunk gives the chunk with index I the answer CODE, once, in place of its index: -1 ends the transfer, -2
asks for the chunk again, other numbers try the module, and none is no answer at all. It may be repeated.

Examples:
  hostlink host receive /tmp/files
  hostlink host receive . --count 1 --fail-chunk 3:-2

Exit status: 0 every transfer was received, 1 some were not, 2 wrong usage, 3 no link, or an interrupt came before
--count was reached.)";

constexpr const char* kTunnelHelp =
    R"(Acts for the TCP clients of the module (hostlink module --tunnel-port N). Prints ID<TAB>data<TAB>HEX for
what a client sends, and ID<TAB>closed<TAB> when its connection is gone. Closes all connections at the end. Says
on standard error when it is ready.

Commands are read from standard input, a line each: write ID HEX, close ID. The end of the input ends nothing.

Examples:
  hostlink host tunnel
  hostlink host tunnel --echo

Exit status: 0 ended by SIGINT or SIGTERM, 2 wrong usage, 3 no link.)";

constexpr const char* kAttendHelp =
    R"(Stays on the link, however often the module comes and goes, and prints every message with the time and
its sender. The host owns the states given: it pushes them at the start of every session, behind
STA_HostResubscribe, and answers the module's requests for them; it owns no others.

Commands are read from standard input from the first session on, a line each: those of 'hostlink host' that send
messages, without their options, unwatch, stats (the counters of the link so far), help and quit. Double quotes keep
blanks together. The end of the input ends nothing.

Examples:
  hostlink host attend
  hostlink host attend HostMicMute=0 HostFirmwareVersion=2.7.1
  echo get STA_Volume | hostlink host attend

Exit status: 0 ended by quit, SIGINT or SIGTERM, 2 wrong usage, 3 another host holds the link.)";

constexpr const char* kSendHelp =
    R"(HEX is the whole message, its id first. Prints every message that comes back within the time-out, a
line each; requests of the module are among them, answered as by a host that owns no states.

Examples:
  hostlink host send 00020007                 get state 7
  hostlink host send 0042 --timeout 300       a request that no module knows

Exit status: 0 the message was delivered, 2 wrong usage, 3 no link, the link was lost, or an interrupt came before
the time-out.)";

// NOLINTNEXTLINE(cppcoreguidelines-interfaces-global-init): it refers to the requests and does not read them
const Command kCommands[] = {
    {kGetRequest, kGetHelp, get, nullptr},
    {kSetRequest, kSetHelp, set, nullptr},
    {kWatchRequest, kWatchHelp, watch, addWatchOptions},
    {kPushRequest, kPushHelp, push, nullptr},
    {kKeyRequest, kKeyHelp, push, nullptr},
    {kSendRequest, kSendHelp, sendAndListen, nullptr},
};

ExitStatus statusOf(HostError::Cause cause)
{
    switch (cause) {
    case HostError::Cause::Refused: return Refused;
    case HostError::Cause::TooLong: return WrongUsage;
    default: return NoLink;
    }
}

using Work = std::function<ExitStatus(HostSession&)>;

/// Does `work`, and says why when it could not.
ExitStatus tryWork(HostSession& session, const LinkUrl& url, const Work& work)
{
    try {
        const ExitStatus status = work(session);
        session.waitAcknowledged();
        return status;
    } catch (const HostError& error) {
        std::cerr << "hostlink: " << url.text << ": " << error.what() << std::endl;
        return statusOf(error.cause());
    }
}

/// Does `work` on the link that the options name.
ExitStatus onLink(const HostOptions& options, const Work& work)
{
    const LinkUrl url = LinkUrl::parse(options.link, LinkUrl::Side::Host);
    if (options.trace) {
        printTrace();
    }
    const InterruptSignals interrupt;
    Host host(HostLinkPhysicalLayer::create(url.type, url.properties), interrupt.descriptor());
    HostSession session(host, std::chrono::milliseconds(options.timeout));
    const ExitStatus status = tryWork(session, url, work);
    host.goodbye();
    if (options.stats) {
        printStats(url.text, session.counters(), options.json);
    }
    return status;
}

CLI::App* addSubcommand(CLI::App& host, const char* name, const char* description, const char* footer)
{
    CLI::App* app = host.add_subcommand(name, description);
    app->footer(std::string(footer)
                + "\nThe options of 'hostlink host' (--link, --timeout, --json, --stats, --trace) may stand "
                  "here too.");
    app->fallthrough();
    return app;
}

void addCommand(CLI::App& host, const Command& command, const std::shared_ptr<HostOptions>& options,
                int* status)
{
    const HostRequest& request = command.request;
    CLI::App* app = addSubcommand(host, request.name, request.description, command.footer);
    app->add_option(request.argument, options->arguments, request.argumentHelp)
        ->required()
        ->type_name("")
        ->expected(1, request.repeated ? CLI::detail::expected_max_vector_size : 1);
    if (command.addOptions != nullptr) {
        command.addOptions(*app, *options);
    }
    app->callback([&command, options, status] {
        const ByteArray message = command.request.message(options->arguments);
        *status = onLink(*options, [&](HostSession& session) {
            session.open();
            return command.work(session, message, *options);
        });
    });
}

void addAttend(CLI::App& host, const std::shared_ptr<HostOptions>& options, int* status)
{
    CLI::App* app = addSubcommand(
        host, "attend", "Stay on the link as a host; print all traffic, take commands", kAttendHelp);
    app->add_option(kPushRequest.argument, options->arguments, "A state that this host owns, and its value")
        ->type_name("");
    app->callback([options, status] {
        const ByteArray states = kPushRequest.message(options->arguments);
        *status = onLink(*options, [&](HostSession& session) {
            return AttendedHost(session, STDIN_FILENO, options->json).run(states);
        });
    });
}

void addReceive(CLI::App& host, const std::shared_ptr<HostOptions>& options, int* status)
{
    CLI::App* app = addSubcommand(host, "receive", "Take the files that the module pushes", kReceiveHelp);
    app->add_option("DIR", options->directory, "Where they go")
        ->required()
        ->type_name("")
        ->check(CLI::ExistingDirectory);
    app->add_option("--count", options->count, "End after N transfers, received or failed")
        ->type_name("N")
        ->check(positive());
    app->add_option("--largest", options->largest, "Take no file of more bytes")
        ->type_name("BYTES")
        ->check(positive())
        ->capture_default_str();
    app->add_option("--fail-chunk", options->failures, "Answer chunk I with CODE, once")
        ->type_name("I:CODE")
        ->expected(1)
        ->take_all();
    app->callback([options, status] {
        std::vector<FileReception::Failure> failures;
        for (const std::string& text : options->failures) {
            failures.push_back(FileReception::parseFailure(text));
        }
        *status = onLink(*options, [&](HostSession& session) {
            FileReception reception(session, options->directory, failures, options->json);
            reception.setLargest(options->largest);
            session.open();
            return reception.run(options->count);
        });
    });
}

void addTunnel(CLI::App& host, const std::shared_ptr<HostOptions>& options, int* status)
{
    CLI::App* app =
        addSubcommand(host, "tunnel", "Act for the clients of the module's TCP tunnel", kTunnelHelp);
    app->add_flag("--echo", options->echo, "Send every client back what it sends, and print no data");
    app->callback([options, status] {
        *status = onLink(*options, [&](HostSession& session) {
            TunnelEnd tunnel(session, STDIN_FILENO, options->echo, options->json);
            session.open();
            return tunnel.run();
        });
    });
}
} // namespace

void addHostCommand(CLI::App& app, int* status)
{
    const auto options = std::make_shared<HostOptions>();
    CLI::App* host = app.add_subcommand("host", "Be the host of a module: ask it, set it, send it messages");
    host->require_subcommand(1);
    host->add_option("--link", options->link,
                     "unix:PATH, tcp:HOST:PORT, serial:DEVICE[?baud=N&parity=P&stop=N] or emulated")
        ->type_name("URL")
        ->capture_default_str();
    host->add_option("--timeout", options->timeout, "Milliseconds to wait for the link, and for each reply")
        ->type_name("MS")
        ->check(CLI::Range(1u, 86'400'000u))
        ->capture_default_str();
    host->add_flag("--json", options->json, "Print one JSON object a line");
    host->add_flag("--stats", options->stats, "At the end print the link's counters to standard error");
    host->add_flag("--trace", options->trace, "Print every frame and message of the link to standard error");
    host->footer(
        "Example:\n  hostlink host get STA_Volume\n\n'hostlink host get --help' and its like tell more.");
    for (const Command& command : kCommands) {
        addCommand(*host, command, options, status);
    }
    addReceive(*host, options, status);
    addTunnel(*host, options, status);
    addAttend(*host, options, status);
}
