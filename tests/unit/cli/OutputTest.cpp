#include "cli/Output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdlib>
#include <system_error>

namespace
{
/// Puts a full pipe, which nobody reads, in the place of standard output; gives its other end.
int becomeFullPipe()
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        std::abort();
    }
    const std::string page(4096, 'x');
    while (::write(ends[1], page.data(), page.size()) > 0) {
    }
    ::fcntl(ends[1], F_SETFL, 0);
    ::dup2(ends[1], STDOUT_FILENO);
    ::close(ends[1]);
    return ends[0];
}

constexpr unsigned kPatience = 20; // seconds, after which a signal ends the process of a test that hangs
} // namespace

TEST(Output, AnInterruptEndsTheWaitForAReader)
{
    const auto putWithoutReader = [] {
        ::alarm(kPatience);
        becomeFullPipe();
        setOutputInterrupt(::eventfd(1, 0));
        putLine("nobody reads this");
        std::_Exit(0);
    };
    EXPECT_EXIT(putWithoutReader(), testing::ExitedWithCode(0), "");
}

TEST(Output, AReaderWhoComesLateGetsAllOfALongLine)
{
    const auto putBeforeReader = [] {
        ::alarm(kPatience);
        const int end = becomeFullPipe();
        const std::string line(300'000, 'y');
        if (const pid_t writer = ::fork(); writer == 0) {
            putLine(line);
            std::_Exit(0);
        }
        ::close(STDOUT_FILENO);
        ::fcntl(end, F_SETFL, 0);
        std::string text;
        char part[65536];
        for (ssize_t size = 0; (size = ::read(end, part, sizeof part)) > 0;) {
            text.append(part, std::size_t(size));
        }
        std::_Exit(text.find(line + '\n') == std::string::npos ? 1 : 0);
    };
    EXPECT_EXIT(putBeforeReader(), testing::ExitedWithCode(0), "");
}

TEST(Output, NobodyWhoReadsIsAnError)
{
    const auto putToNobody = [] {
        ::alarm(kPatience);
        ::signal(SIGPIPE, SIG_IGN);
        ::close(becomeFullPipe());
        try {
            putLine("nobody reads this");
        } catch (const std::system_error& error) {
            std::_Exit(error.code() == std::errc::broken_pipe ? 0 : 1);
        }
        std::_Exit(2);
    };
    EXPECT_EXIT(putToNobody(), testing::ExitedWithCode(0), "");
}
