#include <CLI/CLI.hpp>

#include <algorithm>
#include <functional>
#include <iostream>
#include <memory>

#include "cli/Commands.h"
#include "cli/InterruptSignals.h"
#include "cli/LinkUrl.h"
#include "cli/Output.h"
#include "cli/ValueText.h"
#include "host/HostSession.h"
#include "platform/hostlink/HexText.h"
#include "platform/hostlink/HostLinkUInt16Message.h"

namespace
{
struct Options {
    std::string link = "emulated";
    unsigned timeout = 2000; ///< milliseconds
    bool json = false;
    std::vector<std::string> arguments; ///< of the chosen command
};

/// What a command does once its arguments are understood and the session is open.
using Job = std::function<ExitStatus(HostSession&)>;

struct Command {
    const char* name;
    const char* argument;     ///< as the help calls it
    const char* argumentHelp; ///< what it may be
    bool repeated;            ///< takes one or more arguments, else exactly one
    const char* description;
    const char* footer;
    Job (*prepare)(const Options&); ///< throws CLI::ValidationError before the link is touched
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

Job prepareGet(const Options& options)
{
    std::vector<State> states;
    HostLinkUInt16Message request(MSG_GetState);
    for (const std::string& argument : options.arguments) {
        states.push_back(parseState(argument));
        request.addValue(states.back());
    }
    return [=](HostSession& session) {
        const HostLinkValueMessage reply(session.request(request.serialize(), HostSession::Repeat::Once));
        putReply(reply, states, options.json);
        return Done;
    };
}

bool isAccepted(const HostLinkValueMessage& reply, int index)
{
    return reply.getUint8(index) == 1;
}

Job prepareSet(const Options& options)
{
    std::vector<State> states;
    HostLinkValueMessage request(MSG_SetState);
    for (const std::string& argument : options.arguments) {
        states.push_back(appendAssignment(argument, &request));
    }
    return [=](HostSession& session) {
        const HostLinkValueMessage reply(session.request(request.serialize(), HostSession::Repeat::Never));
        bool accepted = putReply(reply, states, options.json) == 0;
        for (int i = 0; i < reply.size(); ++i) {
            accepted = accepted && isAccepted(reply, i);
        }
        return accepted ? Done : Refused;
    };
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
ExitStatus sendAndListen(HostSession& session, const ByteArray& bytes, bool json)
{
    if (!bytes.empty()) {
        session.send(bytes);
    }
    const HostLinkTime deadline = session.now() + session.timeout();
    ByteArray message;
    for (;;) {
        switch (session.receive(&message, deadline)) {
        case Host::Event::Message: putMessage(message, json); break;
        case Host::Event::NewSession:
        case Host::Event::Ended:
            throw HostError(HostError::Cause::SessionLost,
                            "the session ended; whether the message was handled is unknown");
        case Host::Event::TimedOut:
            if (!session.isLineUp()) {
                throw HostError(HostError::Cause::SessionLost, "the module went away");
            }
            return delivered(session);
        default: return delivered(session);
        }
    }
}

Job prepareSend(const Options& options)
{
    const std::string& text = options.arguments.front();
    const std::optional<ByteArray> bytes = parseHex(text);
    if (!bytes) {
        throw CLI::ValidationError("HEX", "'" + text + "' is no pairs of hexadecimal digits");
    }
    return [bytes = *bytes, json = options.json](HostSession& session) {
        return sendAndListen(session, bytes, json);
    };
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

constexpr const char* kSendHelp =
    R"(HEX is the whole message, its id first. Prints every message that comes back within the time-out, a
line each; requests of the module are among them, answered as by a host that owns no states.

Examples:
  hostlink host send 00020007                 get state 7
  hostlink host send 0042 --timeout 300       a request that no module knows

Exit status: 0 the message was delivered, 2 wrong usage, 3 no link, or the link was lost.)";

constexpr Command kCommands[] = {
    {"get", "STATE", "Name with or without STA_, decimal, or 0x and hexadecimal digits", true,
     "Ask the module for states", kGetHelp, prepareGet},
    {"set", "STATE=VALUE", "A state as for get, and its new value", true, "Set states of the module",
     kSetHelp, prepareSet},
    {"send", "HEX", "Pairs of hexadecimal digits; '' is the empty message", false, "Send one raw message",
     kSendHelp, prepareSend},
};

ExitStatus statusOf(HostError::Cause cause)
{
    switch (cause) {
    case HostError::Cause::Refused: return Refused;
    case HostError::Cause::TooLong: return WrongUsage;
    default: return NoLink;
    }
}

ExitStatus run(const LinkUrl& url, const Options& options, const Job& job)
{
    const InterruptSignals interrupt;
    Host host(HostLinkPhysicalLayer::create(url.type, url.properties), interrupt.descriptor());
    HostSession session(host, std::chrono::milliseconds(options.timeout));
    try {
        session.open();
        const ExitStatus status = job(session);
        session.waitAcknowledged();
        return status;
    } catch (const HostError& error) {
        std::cerr << "hostlink: " << url.text << ": " << error.what() << std::endl;
        return statusOf(error.cause());
    }
}

void addCommand(CLI::App& host, const Command& command, const std::shared_ptr<Options>& options, int* status)
{
    CLI::App* app = host.add_subcommand(command.name, command.description);
    app->footer(std::string(command.footer)
                + "\nThe options of 'hostlink host' (--link, --timeout, --json) may stand here too.");
    app->fallthrough();
    app->add_option(command.argument, options->arguments, command.argumentHelp)
        ->required()
        ->type_name("")
        ->expected(1, command.repeated ? CLI::detail::expected_max_vector_size : 1);
    app->callback([&command, options, status] {
        const LinkUrl url = LinkUrl::parse(options->link, LinkUrl::Side::Host);
        *status = run(url, *options, command.prepare(*options));
    });
}
} // namespace

void addHostCommand(CLI::App& app, int* status)
{
    const auto options = std::make_shared<Options>();
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
    host->footer(
        "Example:\n  hostlink host get STA_Volume\n\n'hostlink host get --help' and its like tell more.");
    for (const Command& command : kCommands) {
        addCommand(*host, command, options, status);
    }
}
