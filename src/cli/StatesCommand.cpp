#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>

#include "cli/Commands.h"
#include "cli/JsonText.h"
#include "cli/Output.h"
#include "platform/hostlink/HexText.h"
#include "vocabulary/HostNodes.h"
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
        entry.path = proxy->node ? nodePath(*proxy->node) : std::string();
        entry.kind = proxy->convert ? conversionRow(*proxy->convert).name : std::string_view();
    } else if (const HostNodeRow* pushed = findHostNode(state.id)) {
        entry.path = nodePath(pushed->node);
        entry.kind = conversionRow(pushed->convert).name;
    }
    return entry;
}

std::string orDash(const std::string& text)
{
    return text.empty() ? "-" : text;
}

std::string padded(std::string_view text, std::size_t width)
{
    std::string field(text);
    field.resize(std::max(width, field.size()), ' ');
    return field + ' ';
}

void printRow(std::string_view id, std::string_view name, std::string_view read, std::string_view write,
              std::string_view owner, std::string_view meaning)
{
    putLine(padded(id, 6) + padded(name, 28) + padded(read, 4) + padded(write, 5) + padded(owner, 22)
            + std::string(meaning));
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
        putLine("{\"id\":" + std::to_string(state.id) + ",\"name\":" + jsonString(state.name)
                + ",\"read\":" + jsonOrNull(entry.read) + ",\"write\":" + jsonOrNull(entry.write)
                + ",\"owner\":" + jsonOrNull(entry.owner) + ",\"path\":" + jsonOrNull(entry.path)
                + ",\"kind\":" + jsonOrNull(entry.kind) + '}');
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

constexpr const char* kMarkdownHead = R"(# States

Every state that a module and its host know by name. Made by `hostlink states --markdown`; do not edit it by hand.

*Read* is the type that the module answers, *write* the one that the host sends; an empty field means that the state
does not go that way. *Owner* is the class of the module's value proxy, empty where the module answers nil; *node* and
*conversion* are where and how that proxy keeps the value, or where the module puts a value that the host pushes. A
proxy without a conversion has one of its own.

| Id | Hex | Name | Read | Write | Meaning | Owner | Node | Conversion |
|---:|---|---|---|---|---|---|---|---|)";

void printMarkdown()
{
    putLine(kMarkdownHead);
    for (const StateRow& state : kStates) {
        const Entry entry = entryOf(state);
        const std::string fields[] = {std::to_string(state.id),
                                      hexNumber(state.id),
                                      code(std::string(state.name)),
                                      entry.read,
                                      entry.write,
                                      cell(state.description),
                                      code(entry.owner),
                                      code(entry.path),
                                      code(entry.kind)};
        std::string line = "|";
        for (const std::string& field : fields) {
            line += field.empty() ? " |" : ' ' + field + " |";
        }
        putLine(line);
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
    CLI::App* command = app.add_subcommand("states", "List every state: its id, name, types and owner");
    command->footer("Examples:\n"
                    "  hostlink states                    a line for each state\n"
                    "  hostlink states --json | grep Bt   one JSON object a line");
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
        *status = Done;
    });
}
