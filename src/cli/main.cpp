#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <iostream>
#include <system_error>

#include "cli/Commands.h"
#include "cli/Usage.h"

namespace
{
int run(int argc, char** argv)
{
    int status = Done;
    CLI::App app("A streaming module's host link on a PC: run a module, be its host, look at both.",
                 "hostlink");
    app.set_version_flag("--version", "hostlink " HOSTLINK_VERSION);
    app.require_subcommand(1);
    app.footer("Examples:\n"
               "  hostlink module                          run a module; it waits for its host\n"
               "  hostlink host get STA_Volume STA_Mute    in another terminal: ask it as its host\n"
               "  hostlink node watch VornPlayerVolumePath see what it does to the module's nodes\n"
               "  hostlink states                          every state with its types and meaning\n"
               "  hostlink decode trace.txt                a recorded trace as readable text\n\n"
               "'hostlink host --help' and its like tell more.\n"
               "Exit status: 0 done, 1 refused, 2 wrong usage, 3 no link or time-out.");
    addModuleCommand(app, &status);
    addHostCommand(app, &status);
    addNodeCommand(app, &status);
    addStatesCommand(app, &status);
    addDecodeCommand(app, &status);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return app.exit(error);
        }
        explainUsage(app, error);
        return WrongUsage;
    }
    return status;
}

/// Keeps sockets from becoming standard input or output where the caller has closed those. A write to an
/// output that was closed still fails.
void occupyStandardDescriptors()
{
    int descriptor = 0;
    do {
        descriptor = open("/dev/null", O_RDONLY);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor > STDERR_FILENO) {
        close(descriptor);
    }
}

/// Ends as a program does whose reader has enough, head for one.
void endByBrokenPipe()
{
    std::signal(SIGPIPE, SIG_DFL);
    std::raise(SIGPIPE);
}
} // namespace

int main(int argc, char** argv)
{
    occupyStandardDescriptors();
    std::signal(SIGPIPE, SIG_IGN); // a reader that went away must not cost the goodbye
    try {
        return run(argc, argv);
    } catch (const std::system_error& error) {
        if (error.code() == std::errc::broken_pipe) {
            endByBrokenPipe();
        }
        std::cerr << "hostlink: " << error.what() << std::endl;
    } catch (const std::exception& error) {
        std::cerr << "hostlink: " << error.what() << std::endl;
    }
    return NoLink; // the module refused nothing: its answer did not come, or could not be told
}
