#include "cli/AttendedHost.h"

#include <QDateTime>
#include <QProcess>
#include <iostream>

#include "cli/HostRequest.h"
#include "cli/JsonText.h"
#include "cli/LinkReport.h"
#include "cli/Output.h"
#include "cli/Usage.h"
#include "platform/hostlink/HexText.h"
#include "platform/hostlink/HostLinkPrinter.h"

namespace
{
std::string clockTime()
{
    return QTime::currentTime().toString("HH:mm:ss.zzz").toStdString();
}

/// The words of a line, with blanks inside double quotes kept; last word first, as the parser takes them.
std::vector<std::string> reversedWords(const std::string& line)
{
    std::vector<std::string> words;
    for (const QString& word : QProcess::splitCommand(QString::fromStdString(line))) {
        words.insert(words.begin(), word.toStdString());
    }
    return words;
}
} // namespace

AttendedHost::AttendedHost(HostSession& session, int input, bool json)
    : m_session(session), m_input(input), m_json(json), m_commands("Commands of an attended host")
{
    addCommands();
    m_session.observe(
        [this](HostSession::Side side, const ByteArray& message) { putMessage(side, message); });
}

void AttendedHost::addCommands()
{
    m_commands.require_subcommand(1);
    for (const HostRequest* request : kHostRequests) {
        CLI::App* command = m_commands.add_subcommand(request->name, request->description);
        command->add_option(request->argument, m_arguments, request->argumentHelp)
            ->required()
            ->type_name("")
            ->expected(1, request->repeated ? CLI::detail::expected_max_vector_size : 1);
        command->callback([this, request] {
            const ByteArray message = request->message(m_arguments);
            if (request == &kPushRequest) {
                m_session.answers().own(HostLinkValueMessage(message));
            }
            send(message);
        });
    }
    m_commands.add_subcommand("stats", "Print the counters of the link so far")->callback([this] {
        putStats();
    });
    m_commands.add_subcommand("help", "Print these commands")->callback([this] {
        const auto formatter = m_commands.get_formatter();
        std::cerr << formatter->make_help(&m_commands, {}, CLI::AppFormatMode::Normal);
    });
    m_commands.add_subcommand("quit", "Await the answers to all that was sent, then end")->callback([this] {
        m_end = m_session.now() + m_session.timeout();
        send(HostSession::emptyRequest());
    });
}

ExitStatus AttendedHost::run(const ByteArray& ownedStates)
{
    m_session.answers().own(HostLinkValueMessage(ownedStates));
    ByteArray message;
    for (;;) {
        switch (m_session.receive(&message, m_end)) {
        case Host::Event::Interrupted:
        case Host::Event::TimedOut: return Done;
        case Host::Event::NewSession: beginSession(); break;
        case Host::Event::Ended: putNote("the module ended the session"); break;
        case Host::Event::Input: readInput(); break;
        case Host::Event::Message:
            if (m_end != HostLinkTime::max() && HostSession::isEmptyReply(message)) {
                return Done;
            }
            break;
        default: break;
        }
    }
}

void AttendedHost::beginSession()
{
    putNote("a session with the module begins");
    HostLinkValueMessage announcement(MSG_StateChanged);
    announcement.addValueUint8(STA_HostResubscribe, 1);
    m_session.answers().addOwned(&announcement);
    send(announcement.serialize());
    m_session.setInput(m_input);
}

void AttendedHost::readInput()
{
    if (!m_lines.read(m_input, [this](const std::string& line) { execute(line); })) {
        m_session.setInput(-1);
    }
}

/// What is wrong with a line is said, and costs nothing but that line.
void AttendedHost::execute(const std::string& line)
{
    std::vector<std::string> words = reversedWords(line);
    if (words.empty() || words.back().front() == '#') {
        return;
    }
    try {
        m_commands.parse(words);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            m_commands.exit(error, std::cerr, std::cerr);
        } else {
            explainUsage(m_commands, error);
        }
    }
}

void AttendedHost::send(const ByteArray& message)
{
    try {
        if (!message.empty() && !m_session.send(message)) {
            std::cerr << "hostlink: there is no session; not sent" << std::endl;
        }
    } catch (const HostError& error) {
        std::cerr << "hostlink: " << error.what() << std::endl;
    }
}

void AttendedHost::putMessage(HostSession::Side side, const ByteArray& message) const
{
    const bool host = side == HostSession::Side::Host;
    const std::string text = HostLinkPrinter::printMessage(message);
    if (m_json) {
        putLine("{\"time\":" + jsonString(clockTime()) + ",\"from\":" + (host ? "\"host\"" : "\"module\"")
                + ",\"message\":" + jsonString(hexText(message)) + ",\"text\":" + jsonString(text) + '}');
    } else {
        putLine(clockTime() + (host ? " host:   " : " module: ") + text);
    }
}

void AttendedHost::putStats() const
{
    const HostLinkCounters counters = m_session.counters();
    if (m_json) {
        putLine("{\"time\":" + jsonString(clockTime()) + ",\"stats\":" + countersJson(counters) + '}');
    } else {
        putNote("stats " + counters.text());
    }
}

void AttendedHost::putNote(const std::string& note) const
{
    if (m_json) {
        putLine("{\"time\":" + jsonString(clockTime()) + ",\"note\":" + jsonString(note) + '}');
    } else {
        putLine(clockTime() + " -- " + note);
    }
}
