#include "cli/LinkUrl.h"

#include <sys/stat.h>
#include <unistd.h>

#include <CLI/Error.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "cli/Suggestions.h"
#include "platform/hostlink/FaultSettings.h"
#include "platform/hostlink/NumberText.h"
#include "platform/hostlink/UnixSocket.h"

namespace
{

[[noreturn]] void fail(const std::string& reason)
{
    throw CLI::ValidationError("--link", reason);
}

bool beginsWith(const std::string& text, const std::string& prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

LinkUrl deviceLine(const std::string& type, const std::string& device)
{
    LinkUrl line;
    line.text = type + ":" + device;
    line.type = type;
    line.properties.setString(HostLinkPhysicalLayer::Device, device);
    return line;
}

LinkUrl emulatedLine(const std::string& type, const std::string& device, LinkUrl::Side side)
{
    LinkUrl line = deviceLine(type, device);
    line.properties.setInt(HostLinkPhysicalLayer::Listen, side == LinkUrl::Side::Module ? 1 : 0);
    return line;
}

void checkSocketPath(const std::string& path)
{
    if (path.empty()) {
        fail("unix: needs the path of a socket, as in unix:/run/link.socket");
    }
    if (path.size() > kMaxUnixPath) {
        fail("the socket path has " + std::to_string(path.size()) + " bytes, at most "
             + std::to_string(kMaxUnixPath) + " are possible: " + path);
    }
}

bool isPort(const std::string& text)
{
    return wholeNumber<std::uint16_t>(text).value_or(0) > 0;
}

bool isHost(const std::string& text)
{
    if (beginsWith(text, "[")) {
        return text.size() > 2 && text.find(']') == text.size() - 1;
    }
    return !text.empty() && text.find_first_of(":[]") == std::string::npos;
}

void checkAddress(const std::string& address)
{
    const std::size_t colon = address.rfind(':');
    if (colon == std::string::npos || !isHost(address.substr(0, colon))) {
        fail("tcp: needs a host and a port, as in tcp:localhost:7000 or tcp:[::1]:7000, not '" + address
             + "'");
    }
    if (!isPort(address.substr(colon + 1))) {
        fail("'" + address.substr(colon + 1) + "' is no port; ports are 1 to 65535");
    }
}

bool isDirectory(const std::string& path)
{
    struct stat status {
    };
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// A directory below /tmp could have been put there by someone else, who would then own our sockets.
void checkOwnDirectory(const std::string& path)
{
    struct stat status {
    };
    if (lstat(path.c_str(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    if (!S_ISDIR(status.st_mode) || status.st_uid != geteuid()
        || (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        throw std::runtime_error(path + " is not a directory that only this user may use; remove it");
    }
}

/// NAME=VALUE as it stands in a URL.
struct Parameter {
    std::string name;
    std::string value;
};

/// What stands before the first question mark of a URL, and the parameters behind it.
struct SplitUrl {
    std::string line;
    std::vector<Parameter> parameters;
};

SplitUrl splitQuery(const std::string& url)
{
    const std::size_t mark = url.find('?');
    SplitUrl split{url.substr(0, mark), {}};
    std::istringstream query(mark == std::string::npos ? "" : url.substr(mark + 1));
    for (std::string pair; std::getline(query, pair, '&');) {
        const std::size_t middle = pair.find('=');
        if (middle == std::string::npos) {
            fail("'" + pair + "' is no NAME=VALUE, as stand behind a link's '?' with '&' between them");
        }
        split.parameters.push_back({pair.substr(0, middle), pair.substr(middle + 1)});
    }
    return split;
}

std::string joinQuery(const std::vector<Parameter>& parameters)
{
    std::string text;
    for (const Parameter& each : parameters) {
        text += (text.empty() ? "" : "&") + each.name + '=' + each.value;
    }
    return text;
}

[[noreturn]] void failUnknown(const std::string& name, std::vector<std::string> known, bool isSerial)
{
    if (isSerial) {
        known.insert(known.begin(), {"baud", "parity", "stop"});
    }
    const std::string near = suggestions(name, {known.begin(), known.end()});
    if (!near.empty()) {
        fail("'" + name + "' is no parameter of this link" + near);
    }
    std::string list;
    for (const std::string& each : known) {
        list += each.find('.') == std::string::npos ? (list.empty() ? "" : ", ") + each : "";
    }
    fail("'" + name + "' is no parameter of this link; there are " + list
         + ", most faults also with .in or .out for one direction");
}

int positiveNumber(const Parameter& parameter)
{
    const int number = wholeNumber<int>(parameter.value).value_or(0);
    if (number <= 0) {
        fail(parameter.name + " is a positive number, not '" + parameter.value + "'");
    }
    return number;
}

/// False for a parameter that is not one of a serial line.
bool setSerial(const Parameter& parameter, HostLinkPhysicalLayer::Properties& properties)
{
    const auto& [name, value] = parameter;
    if (name == "baud") {
        properties.setInt(HostLinkPhysicalLayer::BitRate, positiveNumber(parameter));
    } else if (name == "parity") {
        if (value != "none" && value != "even" && value != "odd") {
            fail("parity is none, even or odd, not '" + value + "'");
        }
        properties.setString(HostLinkPhysicalLayer::Parity, value);
    } else if (name == "stop") {
        if (value != "1" && value != "2") {
            fail("stop is 1 or 2, not '" + value + "'");
        }
        properties.setInt(HostLinkPhysicalLayer::StopBits, positiveNumber(parameter));
    } else {
        return false;
    }
    return true;
}

LinkUrl serialLine(const std::string& device)
{
    if (device.empty()) {
        fail("serial: needs a device, as in serial:/dev/ttyUSB0?baud=115200");
    }
    return deviceLine("serial", device);
}

LinkUrl i2cLine(const std::string& device, LinkUrl::Side side)
{
    if (side == LinkUrl::Side::Host) {
        fail("i2c is the module's end of a bus; a host is the bus's slave, and no Linux device makes one");
    }
    if (device.empty()) {
        fail("i2c: needs a device, as in i2c:/dev/i2c-1");
    }
    return deviceLine("i2c", device);
}

/// Makes the line faulty. A seed that is not given is drawn, appended and said, so that the run can be
/// repeated.
void addFaults(LinkUrl& link, std::vector<Parameter>& faults)
{
    const std::vector<std::string> names = FaultSettings::names();
    bool hasSeed = false;
    for (const Parameter& each : faults) {
        if (std::find(names.begin(), names.end(), each.name) == names.end()) {
            failUnknown(each.name, names, link.type == "serial");
        }
        hasSeed = hasSeed || each.name == "seed";
    }
    if (!hasSeed) {
        faults.push_back({"seed", std::to_string(std::random_device()())});
    }
    std::string error;
    if (!FaultSettings::parse(joinQuery(faults), &error)) {
        fail(error);
    }
    if (!hasSeed) {
        std::cerr << "hostlink: the faults of this link come from seed=" << faults.back().value << std::endl;
    }
    link.properties.setString(HostLinkPhysicalLayer::Faults, joinQuery(faults));
}

/// Sorts the parameters into those of the line and those of its faults.
void applyQuery(LinkUrl& link, const std::vector<Parameter>& parameters)
{
    std::vector<Parameter> ofLine;
    std::vector<Parameter> ofFaults;
    for (const Parameter& each : parameters) {
        const bool isOfLine = link.type == "serial" && setSerial(each, link.properties);
        (isOfLine ? ofLine : ofFaults).push_back(each);
    }
    if (!ofFaults.empty()) {
        addFaults(link, ofFaults);
    }
    ofLine.insert(ofLine.end(), ofFaults.begin(), ofFaults.end());
    link.text += '?' + joinQuery(ofLine);
}

LinkUrl parseLine(const std::string& url, LinkUrl::Side side)
{
    if (url == "emulated") {
        return parseLine("unix:" + userFile("link.socket"), side);
    }
    if (url == "native") {
        if (side == LinkUrl::Side::Host) {
            fail("native is the module's own end; a host needs serial:DEVICE, unix:PATH, tcp:HOST:PORT or "
                 "emulated");
        }
        LinkUrl native;
        native.text = url;
        return native;
    }
    if (beginsWith(url, "unix:")) {
        checkSocketPath(url.substr(5));
        return emulatedLine("unix", url.substr(5), side);
    }
    if (beginsWith(url, "tcp:")) {
        checkAddress(url.substr(4));
        return emulatedLine("tcp", url.substr(4), side);
    }
    if (beginsWith(url, "serial:")) {
        return serialLine(url.substr(7));
    }
    if (beginsWith(url, "i2c:")) {
        return i2cLine(url.substr(4), side);
    }
    fail("'" + url + "' is no link; a link is " + (side == LinkUrl::Side::Module ? "i2c:DEVICE, " : "")
         + "serial:DEVICE, unix:PATH, tcp:HOST:PORT"
         + (side == LinkUrl::Side::Module ? ", emulated or native" : " or emulated"));
}
} // namespace

LinkUrl LinkUrl::parse(const std::string& url, Side side)
{
    const SplitUrl split = splitQuery(url);
    LinkUrl link = parseLine(split.line, side);
    if (split.parameters.empty()) {
        return link;
    }
    if (link.type.empty()) {
        fail("native is the worker's own line and takes no parameters");
    }
    applyQuery(link, split.parameters);
    return link;
}

std::string userFile(const std::string& name)
{
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    const bool hasRuntime = runtime != nullptr && runtime[0] == '/' && isDirectory(runtime);
    const std::string directory =
        hasRuntime ? std::string(runtime) + "/hostlink" : "/tmp/hostlink-" + std::to_string(geteuid());
    if (mkdir(directory.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        throw std::system_error(errno, std::generic_category(), directory);
    }
    checkOwnDirectory(directory);
    return directory + "/" + name;
}
