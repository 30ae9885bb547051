#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "cli/Commands.h"
#include "cli/LineInput.h"
#include "host/HostSession.h"

/// A host that stays on the link: prints every message both ways and sends what a user types.
class AttendedHost
{
public:
    /// Lines are read from the descriptor `input` once there is a session, and as long as there is room for
    /// what they send; its end ends nothing.
    AttendedHost(HostSession& session, int input, bool json);

    /// Owns these states, and pushes them at the start of every session behind the request that the module
    /// renew its subscription. Returns when it is interrupted, or after quit.
    ExitStatus run(const ByteArray& ownedStates);

private:
    void addCommands();
    void putMessage(HostSession::Side side, const ByteArray& message) const;
    void putStats() const;
    void putNote(const std::string& note) const;
    void beginSession();
    void readInput();
    void execute(const std::string& line);
    void send(const ByteArray& message);

    HostSession& m_session;
    const int m_input;
    const bool m_json;
    HostLinkTime m_end = HostLinkTime::max(); ///< after quit: when to end although no answer came
    LineInput m_lines;
    std::vector<std::string> m_arguments;
    CLI::App m_commands;
};
