#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "cli/Commands.h"
#include "cli/Output.h"
#include "platform/hostlink/HexText.h"
#include "platform/hostlink/HostLinkPrinter.h"

namespace
{

constexpr std::string_view kBlanks = " \t\r";

std::vector<std::string_view> columnsOf(std::string_view line)
{
    std::vector<std::string_view> columns;
    while (true) {
        const std::size_t begin = line.find_first_not_of(kBlanks);
        if (begin == std::string_view::npos) {
            return columns;
        }
        line.remove_prefix(begin);
        columns.push_back(line.substr(0, line.find_first_of(kBlanks)));
        line.remove_prefix(columns.back().size());
    }
}

bool consistsOf(std::string_view text, std::string_view characters)
{
    return text.find_first_not_of(characters) == std::string_view::npos;
}

/// An arrow (">", "<-", ...) or one of the usual words, with or without a colon.
bool isDirection(std::string_view column)
{
    if (column.back() == ':') {
        column.remove_suffix(1);
    }
    constexpr std::string_view words[] = {"in", "out", "rx", "tx", "host", "module"};
    return (!column.empty() && consistsOf(column, "<>-="))
           || std::find(std::begin(words), std::end(words), column) != std::end(words);
}

bool isNumber(std::string_view column)
{
    return consistsOf(column, "0123456789");
}

/// Digits among marks that no hexadecimal digits have: 12.5, 3s, [12:30:01].
bool isTime(std::string_view column)
{
    return consistsOf(column, "0123456789[]().:,+-TZs") && !isNumber(column)
           && column.find_first_of("0123456789") != std::string_view::npos;
}

/// How many columns stand before the message: a time, a direction or both. A plain number is a time
/// only where a direction follows, since it could be hexadecimal as well.
std::size_t leadingColumns(const std::vector<std::string_view>& columns)
{
    const auto is = [&](std::size_t i, bool (*kind)(std::string_view)) {
        return i < columns.size() && kind(columns[i]);
    };
    if (is(0, isDirection)) {
        return is(1, isTime) ? 2 : 1;
    }
    if (is(1, isDirection) && (is(0, isTime) || is(0, isNumber))) {
        return 2;
    }
    return is(0, isTime) ? 1 : 0;
}

/// What a line of a trace is about, behind its time and direction (see HostLinkTrace).
bool isOfTrace(std::string_view column)
{
    constexpr std::string_view borders[] = {"line", "frame", "session", "message"};
    return std::find(std::begin(borders), std::end(borders), column) != std::end(borders);
}

/// Whether a line is what else a recorded standard error holds: of the log, a remark, or the counters of
/// --stats.
bool isRemark(std::string_view column)
{
    constexpr std::string_view begins[] = {"FATAL", "ERROR", "WARN",  "INFO",
                                           "DEBUG", "TRACE", "stats", "hostlink:"};
    return std::find(std::begin(begins), std::end(begins), column) != std::end(begins);
}

/// The columns that hold the message: in a trace, of a line about a message, those behind the last bar.
std::vector<std::string_view> messageColumns(std::vector<std::string_view> columns, std::size_t leading)
{
    columns.erase(columns.begin(), columns.begin() + std::ptrdiff_t(leading));
    if (!columns.empty() && columns.front() == "message") {
        const auto bar = std::find(columns.rbegin(), columns.rend(), "|");
        columns.erase(columns.begin(), bar == columns.rend() ? columns.end() : bar.base());
    }
    return columns;
}

/// Prints one line's message behind its leading columns; returns what is wrong with the line, if
/// anything. Blank lines, those that begin with #, remarks and those of a trace about a border below that of
/// messages hold no message.
std::optional<std::string> decodeLine(std::string_view line)
{
    const std::vector<std::string_view> columns = columnsOf(line);
    if (columns.empty() || columns[0][0] == '#' || isRemark(columns[0])) {
        return std::nullopt;
    }
    std::string text;
    ByteArray message;
    const std::size_t leading = leadingColumns(columns);
    for (std::size_t i = 0; i < leading; ++i) {
        text += std::string(columns[i]) + ' ';
    }
    if (leading < columns.size() && isOfTrace(columns[leading]) && columns[leading] != "message") {
        return std::nullopt;
    }
    const std::vector<std::string_view> digits = messageColumns(columns, leading);
    for (const std::string_view each : digits) {
        const std::optional<ByteArray> bytes = parseHex(each);
        if (!bytes) {
            return "'" + std::string(each) + "' is no pairs of hexadecimal digits";
        }
        message.insert(message.end(), bytes->begin(), bytes->end());
    }
    if (digits.empty()) {
        return "there is no message";
    }
    putLine(text + HostLinkPrinter::printMessage(message));
    return std::nullopt;
}

/// A bad line is named and left out; the others are decoded.
ExitStatus decode(std::istream& input)
{
    ExitStatus status = Done;
    std::string line;
    for (std::size_t number = 1; std::getline(input, line); ++number) {
        if (const std::optional<std::string> error = decodeLine(line)) {
            std::cerr << "hostlink decode: line " << number << ": " << *error << std::endl;
            status = Refused;
        }
    }
    return status;
}

ExitStatus decodeFile(const std::string& name)
{
    std::ifstream file(name);
    const ExitStatus status = decode(file);
    if (!file.is_open() || file.bad()) {
        std::cerr << "hostlink decode: cannot read " << name << ": " << std::strerror(errno) << std::endl;
        return WrongUsage;
    }
    return status;
}

} // namespace

void addDecodeCommand(CLI::App& app, int* status)
{
    const auto file = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand("decode", "Print recorded messages as readable text");
    command->add_option("FILE", *file, "lines of hexadecimal digits; standard input when left out");
    command->footer(
        "Each line holds one message as pairs of hexadecimal digits, blanks between them allowed,\n"
        "behind a time (12.5, 10:30:01.250) and a direction (>, <-, rx, host) where there are any;\n"
        "blank lines and lines that begin with # are passed over. Of a trace as --trace prints it the\n"
        "messages are read back and the lines of frames, sessions and the line passed over. A line that "
        "cannot be read is\n"
        "named on standard error and left out.\n\n"
        "Examples:\n"
        "  echo 0001 0009 CC 41 | hostlink decode\n"
        "  hostlink host send 00020009 | hostlink decode\n\n"
        "Exit status: 0 every line was read, 1 some were not, 2 the file cannot be read.");
    command->callback([file, status] { *status = file->empty() ? decode(std::cin) : decodeFile(*file); });
}
