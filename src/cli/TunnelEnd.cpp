#include "cli/TunnelEnd.h"

#include <iostream>
#include <optional>
#include <sstream>

#include "cli/Output.h"
#include "platform/hostlink/HexText.h"
#include "platform/hostlink/NumberText.h"

namespace
{
void sayTrouble(TunnelHost::Id id, const std::string& what)
{
    std::cerr << "hostlink: connection " << int{id} << ": " << what << std::endl;
}
} // namespace

TunnelEnd::TunnelEnd(HostSession& session, int input, bool echo, bool json)
    : m_session(session), m_input(input), m_echo(echo), m_json(json),
      m_tunnel({[this](TunnelHost::Id id, const ByteArray& data) {
                    m_echo ? m_tunnel.write(id, data) : putData(id, data);
                },
                [this](TunnelHost::Id id) { putClosed(id); }, sayTrouble})
{
    session.addChannel(m_tunnel);
}

ExitStatus TunnelEnd::run()
{
    std::cerr << "hostlink: ready for clients" << std::endl;
    m_session.setInput(m_input);
    ByteArray message;
    for (;;) {
        switch (m_session.receive(&message, HostLinkTime::max())) {
        case Host::Event::Interrupted: closeAll(); return Done;
        case Host::Event::Input: readInput(); break;
        case Host::Event::Ended:
            std::cerr << "hostlink: the module ended the session; waiting for the next one" << std::endl;
            break;
        default: break;
        }
    }
}

/// Nobody would speak to the clients any more.
void TunnelEnd::closeAll()
{
    m_session.ignoreInterrupts(); // the one that ended this is still there
    m_session.setInput(-1);
    m_tunnel.closeAll();
    const HostLinkTime deadline = m_session.now() + m_session.timeout();
    ByteArray message;
    while (m_tunnel.hasConnections()) {
        const Host::Event event = m_session.receive(&message, deadline);
        if (event == Host::Event::TimedOut || event == Host::Event::Ended) {
            return;
        }
    }
}

void TunnelEnd::putData(TunnelHost::Id id, const ByteArray& data) const
{
    const std::string number = std::to_string(id);
    putLine(m_json ? "{\"connection\":" + number + ",\"data\":\"" + hexText(data) + "\"}"
                   : number + "\tdata\t" + hexText(data));
}

void TunnelEnd::putClosed(TunnelHost::Id id) const
{
    const std::string number = std::to_string(id);
    putLine(m_json ? "{\"connection\":" + number + ",\"closed\":true}" : number + "\tclosed\t");
}

void TunnelEnd::readInput()
{
    if (!m_lines.read(m_input, [this](const std::string& line) { execute(line); })) {
        m_session.setInput(-1);
    }
}

/// What is wrong with a line is said, and costs nothing but that line.
void TunnelEnd::execute(const std::string& line)
{
    std::istringstream words(line);
    std::string command, idText, dataText;
    words >> command >> idText >> dataText;
    if (command.empty()) {
        return;
    }
    const std::optional<TunnelHost::Id> id = wholeNumber<TunnelHost::Id>(idText);
    const std::optional<ByteArray> data = parseHex(dataText);
    if (command == "close" && id && dataText.empty()) {
        m_tunnel.close(*id);
    } else if (command == "write" && id && data && !data->empty()) {
        m_tunnel.write(*id, *data);
    } else {
        std::cerr << "hostlink: '" << line << "' is neither 'close ID' nor 'write ID HEX'" << std::endl;
    }
}
