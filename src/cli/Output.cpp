#include "cli/Output.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <iostream>
#include <string_view>
#include <system_error>

#include "platform/hostlink/HexText.h"

namespace
{
constexpr std::size_t kPiece = PIPE_BUF; // a pipe that is ready takes as much without a wait

int interrupt = -1;

/// False when there was none before the interrupt.
bool awaitRoom()
{
    std::array<pollfd, 2> ready{{{STDOUT_FILENO, POLLOUT, 0}, {interrupt, POLLIN, 0}}};
    while (::poll(ready.data(), ready.size(), -1) < 0 && errno == EINTR) {
    }
    return ready[0].revents != 0;
}
} // namespace

void putLine(const std::string& line)
{
    static const bool isTerminal = ::isatty(STDOUT_FILENO) == 1;
    const std::string text = (isTerminal ? withoutControls(line, "\t\n") : line) + '\n';
    for (std::string_view rest = text; !rest.empty() && awaitRoom();) {
        const std::string_view piece = rest.substr(0, kPiece);
        errno = 0;
        if (!(std::cout << piece << std::flush)) {
            throw std::system_error(errno, std::generic_category(), "standard output");
        }
        rest.remove_prefix(piece.size());
    }
}

void setOutputInterrupt(int descriptor)
{
    interrupt = descriptor;
}
