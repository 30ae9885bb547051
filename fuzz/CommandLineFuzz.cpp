// What users type at the command `hostlink`: the first letter says what the rest is taken for.

#include <CLI/CLI.hpp>

#include <iostream>
#include <sstream>

#include "FuzzInput.h"
#include "cli/Commands.h"
#include "cli/FileReception.h"
#include "cli/HostRequest.h"
#include "cli/KeyNames.h"
#include "cli/LinkUrl.h"
#include "cli/ValueText.h"
#include "platform/hostlink/HexText.h"
#include "platform/hostlink/HostLinkLog.h"
#include "platform/sdk/VornJson.h"

namespace
{

/// Puts a text in place of what a stream reads, or takes what it writes.
class Redirected
{
public:
    Redirected(std::ios& stream, std::streambuf* buffer) : m_stream(stream), m_before(stream.rdbuf(buffer))
    {
        stream.clear();
    }
    ~Redirected() { m_stream.rdbuf(m_before); }
    Redirected(const Redirected&) = delete;
    Redirected& operator=(const Redirected&) = delete;

private:
    std::ios& m_stream;
    std::streambuf* m_before;
};

QVariantHash jsonObject(const std::string& text)
{
    VornJson::Error error;
    const QVariant json = VornJson::parse(QString::fromStdString(text), &error);
    require(error.isEmpty() && json.userType() == QMetaType::QVariantHash);
    return json.toHash();
}

/// Any values print as one line each, and as one object.
void requirePrintable(const HostLinkValueMessage& message)
{
    for (int i = 0; i < message.size(); ++i) {
        const std::string line = valueLine(message, i);
        require(line.find('\n') == std::string::npos && line.find('\r') == std::string::npos);
        require(std::count(line.begin(), line.end(), '\t') == 2);
        require(jsonObject(valueJson(message, i))["state"].toInt() == message.getTag(i));
    }
}

/// What an assignment made is printed with its type; typed so, it makes the same. Text is printed in another
/// form than it is typed in.
void requireAssignment(const std::string& text)
{
    HostLinkValueMessage message(MSG_SetState);
    const State state = appendAssignment(text, &message);
    require(message.size() == 1 && message.getTag(0) == state);
    requirePrintable(message);
    const std::string line = valueLine(message, 0);
    const std::size_t type = line.find('\t') + 1;
    const std::size_t value = line.find('\t', type) + 1;
    const std::string typeName = line.substr(type, value - 1 - type);
    if (typeName == "str") {
        return;
    }
    const std::string typed = typeName == "nil" ? typeName : typeName + ':' + line.substr(value);
    HostLinkValueMessage again(MSG_SetState);
    appendAssignment(std::to_string(state) + '=' + typed, &again);
    require(again.serialize() == message.serialize());
}

void requireKey(const std::string& text)
{
    require(similarKeys(text).find('\n') == std::string::npos || text.find('\n') != std::string::npos);
    if (const auto code = keyCode(text)) {
        require(keyCode(std::to_string(*code)) == code);
    }
}

void requireHex(const std::string& text)
{
    if (const std::optional<ByteArray> bytes = parseHex(text)) {
        require(2 * bytes->size() == text.size() && parseHex(hexText(*bytes)) == bytes);
    }
}

/// A link's text, with all that was filled in, is the same link.
void requireLink(const std::string& text)
{
    if (text.rfind("emulated", 0) == 0) {
        return; // makes a directory
    }
    for (const LinkUrl::Side side : {LinkUrl::Side::Module, LinkUrl::Side::Host}) {
        const LinkUrl link = LinkUrl::parse(text, side);
        require(LinkUrl::parse(link.text, side).text == link.text);
    }
}

/// Whatever the lines are, all that are no messages are named, and the others printed in a line each.
void requireDecode(const std::string& text)
{
    static CLI::App app;
    static int status = 0;
    if (app.get_subcommands({}).empty()) {
        addDecodeCommand(app, &status);
    }
    std::istringstream in(text);
    std::ostringstream out;
    std::ostringstream errors;
    const Redirected input(std::cin, in.rdbuf());
    const Redirected output(std::cout, out.rdbuf());
    const Redirected complaints(std::cerr, errors.rdbuf());
    app.parse(std::vector<std::string>{"decode"});
    require((status == Refused) == !errors.str().empty() && (status == Refused || status == Done));
    const std::string printed = out.str();
    require(std::count(printed.begin(), printed.end(), '\n')
            <= std::count(text.begin(), text.end(), '\n') + 1);
}

/// The first word is a request of a host, the others what is typed behind it. It makes a message, or is
/// refused.
void requireRequest(const std::string& text)
{
    std::istringstream words(text);
    std::string name;
    words >> name;
    HostRequest::Arguments arguments;
    for (std::string word; words >> word;) {
        arguments.push_back(word);
    }
    for (const HostRequest* request : kHostRequests) {
        if (request->name == name && !arguments.empty()) {
            const ByteArray message = request->message(arguments);
            require(request == &kSendRequest || message.size() >= 2 + 2 * arguments.size());
        }
    }
}

void take(char kind, const std::string& text)
{
    switch (kind) {
    case 's': require(parseState(std::to_string(parseState(text))) == parseState(text)); break;
    case 'a': requireAssignment(text); break;
    case 'k': requireKey(text); break;
    case 'h': requireHex(text); break;
    case 'l': requireLink(text); break;
    case 'f': FileReception::parseFailure(text); break;
    case 'd': requireDecode(text); break;
    case 'r': requireRequest(text); break;
    case 'v': requirePrintable(HostLinkValueMessage(ByteArray(text.begin(), text.end()))); break;
    default: break;
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    HostLinkLog::setSink([](HostLinkLog::Level, const std::string&) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    std::ostringstream remarks;
    const Redirected errors(std::cerr, remarks.rdbuf());
    try {
        take(static_cast<char>(data[0]), std::string(data + 1, data + size));
    } catch (const CLI::ParseError&) {
        // The refusal of what is wrong, in words. Anything else is a fault.
    }
    return 0;
}
