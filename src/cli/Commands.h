#pragma once

namespace CLI
{
class App;
}

/// Exit statuses of every command.
enum ExitStatus { Done = 0, Refused = 1, WrongUsage = 2, NoLink = 3 };

// Each adds one subcommand to `app`; when the subcommand was chosen it runs and leaves its exit status.
void addModuleCommand(CLI::App& app, int* status);
void addHostCommand(CLI::App& app, int* status);
void addNodeCommand(CLI::App& app, int* status);
void addStatesCommand(CLI::App& app, int* status);
void addDecodeCommand(CLI::App& app, int* status);
