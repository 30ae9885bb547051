#include "cli/Output.h"

#include <cerrno>
#include <iostream>
#include <system_error>

void putLine(const std::string& line)
{
    errno = 0;
    if (!(std::cout << line << '\n' << std::flush)) {
        throw std::system_error(errno, std::generic_category(), "standard output");
    }
}
