#include <CLI/CLI.hpp>

#include <iomanip>
#include <iostream>
#include <memory>

#include "cli/Commands.h"
#include "cli/JsonText.h"
#include "platform/hostlink/HexText.h"
#include "vocabulary/Proxies.h"

namespace
{

std::string nodePath(Node node)
{
    const std::string path(nodeRow(node).path);
    return isBelowPlayerInstance(node) ? std::string(kPlayerInstancePath) + '/' + path : path;
}

/// One state as it is listed; what does not apply is empty.
struct Entry {
    const StateRow& state;
    std::string read;
    std::string write;
    std::string owner;
    std::string path;
    std::string kind;
};

std::string typeText(WireType type)
{
    return type == WireType::None ? std::string() : std::string(wireTypeName(type));
}

Entry entryOf(const StateRow& state)
{
    Entry entry{state, typeText(state.read), typeText(state.write), {}, {}, {}};
    if (const ProxyRow* proxy = findProxy(state.id)) {
        entry.owner = proxyClassName(proxy->proxy);
        entry.path = nodePath(proxy->node);
        entry.kind = conversionRow(proxy->convert).name;
    }
    return entry;
}

std::string orDash(const std::string& text)
{
    return text.empty() ? "-" : text;
}

void printRow(const std::string& id, std::string_view name, const std::string& read, const std::string& write,
              const std::string& owner, std::string_view meaning)
{
    std::cout << std::left << std::setw(8) << id << std::setw(29) << name << std::setw(6) << read
              << std::setw(7) << write << std::setw(24) << owner << meaning << '\n';
}

void printText()
{
    printRow("ID", "NAME", "READ", "WRITE", "OWNER", "MEANING");
    for (const StateRow& state : kStates) {
        const Entry entry = entryOf(state);
        printRow(hexNumber(state.id), state.name, orDash(entry.read), orDash(entry.write),
                 orDash(entry.owner), state.description);
    }
}

std::string jsonOrNull(const std::string& text)
{
    return text.empty() ? "null" : jsonString(text);
}

void printJson()
{
    for (const StateRow& state : kStates) {
        const Entry entry = entryOf(state);
        std::cout << "{\"id\":" << static_cast<unsigned>(state.id) << ",\"name\":" << jsonString(state.name)
                  << ",\"read\":" << jsonOrNull(entry.read) << ",\"write\":" << jsonOrNull(entry.write)
                  << ",\"owner\":" << jsonOrNull(entry.owner) << ",\"path\":" << jsonOrNull(entry.path)
                  << ",\"kind\":" << jsonOrNull(entry.kind) << "}\n";
    }
}

std::string code(const std::string& text)
{
    return text.empty() ? text : '`' + text + '`';
}

/// Text for a table cell, where a bar would end it.
std::string cell(std::string_view text)
{
    std::string escaped;
    for (const char character : text) {
        escaped += character == '|' ? "\\|" : std::string(1, character);
    }
    return escaped;
}

void printMarkdown()
{
    std::cout
        << "# States\n\n"
           "Every state that a module and its host know by name. Made by `hostlink states --markdown`; do "
           "not\n"
           "edit it by hand.\n\n"
           "*Read* is the type that the module answers, *write* the one that the host sends; an empty field\n"
           "means that the state does not go that way. *Owner* is the class of the module's value proxy, "
           "empty\n"
           "where the module answers nil; *node* and *conversion* are where and how that proxy keeps the "
           "value.\n\n"
           "| Id | Hex | Name | Read | Write | Meaning | Owner | Node | Conversion |\n"
           "|---:|---|---|---|---|---|---|---|---|\n";
    for (const StateRow& state : kStates) {
        const Entry entry = entryOf(state);
        std::cout << "| " << static_cast<unsigned>(state.id) << " | " << hexNumber(state.id) << " | "
                  << code(std::string(state.name)) << " | " << entry.read << " | " << entry.write << " | "
                  << cell(state.description) << " | " << code(entry.owner) << " | " << code(entry.path)
                  << " | " << code(entry.kind) << " |\n";
    }
}

} // namespace

void addStatesCommand(CLI::App& app, int* status)
{
    struct Options {
        bool json = false;
        bool markdown = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("states", "list every state: its id, name, types and owner");
    CLI::Option* json = command->add_flag("--json", options->json, "one JSON object per line");
    command->add_flag("--markdown", options->markdown, "a Markdown page")->excludes(json);
    command->callback([options, status] {
        if (options->json) {
            printJson();
        } else if (options->markdown) {
            printMarkdown();
        } else {
            printText();
        }
        std::cout.flush();
        *status = Done;
    });
}
