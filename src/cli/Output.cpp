#include "cli/Output.h"

#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <system_error>

#include "platform/hostlink/HexText.h"

void putLine(const std::string& line)
{
    static const bool isTerminal = ::isatty(STDOUT_FILENO) == 1;
    errno = 0;
    if (!(std::cout << (isTerminal ? withoutControls(line, "\t\n") : line) << '\n' << std::flush)) {
        throw std::system_error(errno, std::generic_category(), "standard output");
    }
}
