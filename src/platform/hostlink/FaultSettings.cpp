#include "platform/hostlink/FaultSettings.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <set>

namespace
{

using Direction = FaultSettings::Direction;

/// What a name alone is for: both directions (and the line, where that has the same), the line as a whole, or
/// everything. All but the last take a direction too.
enum class Scope { Directions, Line, All };

/// A name of the text form: what it means, which numbers it takes, and where they go.
struct Parameter {
    std::string_view name;
    Scope scope;
    const char* meaning;
    double least;
    double most;
    bool whole; ///< whole numbers only
    void (*set)(Direction& faults, double value);
};

HostLinkDuration seconds(double number)
{
    return std::chrono::duration_cast<HostLinkDuration>(std::chrono::duration<double>(number));
}

constexpr Parameter kParameters[] = {
    {"drop", Scope::Directions, "a probability per byte", 0, 1, false,
     [](Direction& faults, double value) { faults.drop = value; }},
    {"flip", Scope::Directions, "a probability per byte", 0, 1, false,
     [](Direction& faults, double value) { faults.flip = value; }},
    {"dup", Scope::Directions, "a probability per byte", 0, 1, false,
     [](Direction& faults, double value) { faults.duplicate = value; }},
    {"insert", Scope::Directions, "a probability per byte", 0, 1, false,
     [](Direction& faults, double value) { faults.insert = value; }},
    {"burst", Scope::Directions, "the most bytes that one fault hits", 1, 500, true,
     [](Direction& faults, double value) { faults.burst = std::uint32_t(value); }},
    {"split", Scope::Directions, "a probability per write", 0, 1, false,
     [](Direction& faults, double value) { faults.split = value; }},
    {"merge", Scope::Directions, "a probability per write", 0, 1, false,
     [](Direction& faults, double value) { faults.merge = value; }},
    {"delay", Scope::Directions, "milliseconds", 0, 60'000, false,
     [](Direction& faults, double value) { faults.delay = seconds(value / 1000); }},
    {"rate", Scope::Directions, "bytes per second", 1, 1'000'000'000, true,
     [](Direction& faults, double value) { faults.bytesPerSecond = std::uint64_t(value); }},
    {"cut", Scope::Line, "seconds between cuts", 0.001, 1'000'000, false,
     [](Direction& faults, double value) { faults.cuts.interval = seconds(value); }},
    {"outage", Scope::Directions, "the most milliseconds that a cut lasts", 0, 60'000, false,
     [](Direction& faults, double value) { faults.cuts.longest = seconds(value / 1000); }},
    {"seed", Scope::All, "what all chance comes from", 0, 4'294'967'295.0, true, nullptr},
};

constexpr std::string_view kIn = ".in";
constexpr std::string_view kOut = ".out";

/// One pair of the text, its name without the direction.
struct Given {
    std::string_view fullName;
    std::string_view name;
    std::string_view direction; ///< kIn, kOut or nothing
    std::string_view value;
};

Given givenBy(std::string_view pair)
{
    const std::size_t end = std::min(pair.find('='), pair.size());
    Given given{pair.substr(0, end), {}, {}, pair.substr(std::min(end + 1, pair.size()))};
    const std::size_t dot = std::min(given.fullName.rfind('.'), given.fullName.size());
    const std::string_view suffix = given.fullName.substr(dot);
    given.direction = suffix == kIn || suffix == kOut ? suffix : std::string_view();
    given.name = given.fullName.substr(0, given.fullName.size() - given.direction.size());
    return given;
}

/// All pairs, those for both directions first.
std::vector<Given> allGivenBy(std::string_view text)
{
    std::vector<Given> all;
    while (!text.empty()) {
        const std::string_view pair = text.substr(0, text.find('&'));
        all.push_back(givenBy(pair));
        text.remove_prefix(std::min(text.size(), pair.size() + 1));
    }
    std::stable_partition(all.begin(), all.end(), [](const Given& given) { return given.direction.empty(); });
    return all;
}

const Parameter* findParameter(const Given& given)
{
    for (const Parameter& parameter : kParameters) {
        if (parameter.name == given.name) {
            return parameter.scope == Scope::All && !given.direction.empty() ? nullptr : &parameter;
        }
    }
    return nullptr;
}

std::optional<double> numberOf(const Given& given, const Parameter& parameter)
{
    const char* const end = given.value.data() + given.value.size();
    double number = 0;
    const auto result = std::from_chars(given.value.data(), end, number);
    const bool isNumber = result.ec == std::errc() && result.ptr == end;
    const bool isInside = number >= parameter.least && number <= parameter.most;
    const bool fits = isNumber && isInside && (!parameter.whole || std::floor(number) == number);
    return fits ? std::optional(number) : std::nullopt;
}

std::string numberText(double number)
{
    char text[32];
    const auto result = std::to_chars(std::begin(text), std::end(text), number, std::chars_format::fixed);
    return std::string(std::begin(text), result.ptr);
}

std::string wrongValue(const Given& given, const Parameter& parameter)
{
    return std::string(given.fullName) + " is " + parameter.meaning + ", "
           + (parameter.whole ? "a whole number from " : "a number from ") + numberText(parameter.least)
           + " to " + numberText(parameter.most) + ", not '" + std::string(given.value) + "'";
}

void apply(const Given& given, const Parameter& parameter, double value, FaultSettings& settings)
{
    if (parameter.scope == Scope::All) {
        settings.seed = static_cast<std::uint32_t>(value);
        return;
    }
    if (given.direction.empty()) {
        Direction line;
        line.cuts = settings.cuts;
        parameter.set(line, value);
        settings.cuts = line.cuts;
    }
    if (parameter.scope == Scope::Line && given.direction.empty()) {
        return;
    }
    if (given.direction != kOut) {
        parameter.set(settings.in, value);
    }
    if (given.direction != kIn) {
        parameter.set(settings.out, value);
    }
}

} // namespace

std::optional<FaultSettings> FaultSettings::parse(const std::string& text, std::string* error)
{
    FaultSettings settings;
    std::set<std::string_view> names;
    for (const Given& given : allGivenBy(text)) {
        const Parameter* parameter = findParameter(given);
        if (parameter == nullptr) {
            *error = "'" + std::string(given.fullName) + "' is no fault of a line";
            return std::nullopt;
        }
        const std::optional<double> value = numberOf(given, *parameter);
        if (!value) {
            *error = wrongValue(given, *parameter);
            return std::nullopt;
        }
        if (!names.insert(given.fullName).second) {
            *error = std::string(given.fullName) + " is given twice";
            return std::nullopt;
        }
        apply(given, *parameter, *value, settings);
    }
    return settings;
}

std::vector<std::string> FaultSettings::names()
{
    std::vector<std::string> all;
    for (const Parameter& parameter : kParameters) {
        const std::string name(parameter.name);
        all.push_back(name);
        if (parameter.scope != Scope::All) {
            all.insert(all.end(), {name + std::string(kIn), name + std::string(kOut)});
        }
    }
    return all;
}
