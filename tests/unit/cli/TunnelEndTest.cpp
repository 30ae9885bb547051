#include "cli/TunnelEnd.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/ScriptedModule.h"
#include "unit/host/SimulatedSystem.h"

using namespace std::chrono_literals;

namespace
{
const ByteArray kMuteChanged{0x00, 0x04, 0x00, 0x07, 0xCC, 0x01};

ByteArray clientData()
{
    HostLinkValueMessage message(MSG_TcpTunnel);
    message.addValueBin16(1, {0, 'x'});
    return message.serialize();
}
} // namespace

TEST(TunnelEnd, AnInterruptEndsItWhileMessagesPourIn)
{
    int interrupt[2];
    ASSERT_EQ(pipe(interrupt), 0);
    const SocketDirectory directory;
    SimulatedSystem system;
    ScriptedModule module(directory.socket());
    system.onWait = [&] { module.step(system.now()); };
    module.start(system.now());
    Host host(HostLinkPhysicalLayer::create("unix", unixLine(directory.socket(), false)), interrupt[0],
              system);
    HostSession session(host, 2000ms);
    session.open();

    TunnelEnd tunnel(session, -1, false, false);
    HostLinkTime interrupted{};
    session.observe([&](HostSession::Side side, const ByteArray& message) {
        if (message == clientData()) {
            interrupted = system.now();
            EXPECT_EQ(write(interrupt[1], "x", 1), 1);
        }
        // Not for ever, or a wait without end would keep the test.
        if (side == HostSession::Side::Module && system.now() < interrupted + 10s) {
            std::vector<pollfd> none;
            module.send(kMuteChanged, system.now());
            system.wait(none, HostLinkTime::max());
        }
    });
    module.send(clientData(), system.now());
    EXPECT_EQ(tunnel.run(), Done);
    EXPECT_LE(system.now() - interrupted, 2010ms);
    close(interrupt[0]);
    close(interrupt[1]);
}
