#pragma once

#include <string>

#include "cli/Commands.h"
#include "cli/LineInput.h"
#include "host/HostSession.h"
#include "host/TunnelHost.h"

/// Acts for the clients of the module's TCP tunnel: prints what they send, or sends it back.
class TunnelEnd
{
public:
    /// Lines are read from the descriptor `input` once there is a session; its end ends nothing.
    TunnelEnd(HostSession& session, int input, bool echo, bool json);

    /// Needs an open session. Returns when it is interrupted, and closes all connections then.
    ExitStatus run();

private:
    void putData(TunnelHost::Id id, const ByteArray& data) const;
    void putClosed(TunnelHost::Id id) const;
    void readInput();
    void execute(const std::string& line);
    void closeAll();

    HostSession& m_session;
    const int m_input;
    const bool m_echo;
    const bool m_json;
    LineInput m_lines;
    TunnelHost m_tunnel;
};
