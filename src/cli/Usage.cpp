#include "cli/Usage.h"

#include <iostream>

#include "cli/Suggestions.h"

namespace
{
std::vector<const CLI::App*> subcommandsOf(const CLI::App& app)
{
    return app.get_subcommands([](const CLI::App*) { return true; });
}

const CLI::App& chosenIn(const CLI::App& app)
{
    const CLI::App* chosen = &app;
    while (!chosen->get_subcommands().empty()) {
        chosen = chosen->get_subcommands().front();
    }
    return *chosen;
}

/// The words that choose `app`; empty for a root without a name.
std::string commandLineOf(const CLI::App& app)
{
    const std::string parent = app.get_parent() == nullptr ? "" : commandLineOf(*app.get_parent());
    return parent.empty() ? app.get_name() : parent + " " + app.get_name();
}

/// The word that stands where a subcommand belongs; empty when there is none.
std::string mistypedSubcommand(const CLI::App& app)
{
    const std::vector<std::string> rest = app.remaining();
    const bool mistyped = !subcommandsOf(app).empty() && !rest.empty() && rest.front().substr(0, 1) != "-";
    return mistyped ? rest.front() : std::string();
}

std::string similarSubcommands(const CLI::App& app, const std::string& typed)
{
    std::vector<std::string> names;
    for (const CLI::App* subcommand : subcommandsOf(app)) {
        names.push_back(subcommand->get_name());
    }
    return suggestions(typed, {names.begin(), names.end()});
}
} // namespace

void explainUsage(const CLI::App& root, const CLI::ParseError& error)
{
    const CLI::App& app = chosenIn(root);
    const std::string command = commandLineOf(app);
    const std::string mistyped = mistypedSubcommand(app);
    const std::string prefix = command.empty() ? "" : command + ": ";
    if (!mistyped.empty()) {
        std::cerr << prefix << "there is no command '" << mistyped << "'" << similarSubcommands(app, mistyped)
                  << '\n';
    } else if (!subcommandsOf(app).empty() && app.remaining().empty()
               && error.get_name() == "RequiredError") {
        std::cerr << root.help();
        return;
    } else {
        std::cerr << prefix << error.what() << '\n';
    }
    std::cerr << "'" << (command.empty() ? "help" : command + " --help") << "' tells how it is used."
              << std::endl;
}
