#include "runtime/LogLimiter.h"

#include <utility>

namespace
{
bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}

/// The text with one mark in place of each number.
std::string withoutNumbers(const std::string& text)
{
    std::string result;
    result.reserve(text.size());
    for (const char character : text) {
        if (!isDigit(character)) {
            result += character;
        } else if (result.empty() || result.back() != '#') {
            result += '#';
        }
    }
    return result;
}
} // namespace

bool LogLimiter::passes(const Line& line, Time now)
{
    if (m_end && now >= *m_end) {
        takeAll();
    }
    if (!m_end) {
        m_end = now + kInterval;
    }
    Kind kind{line.logger, line.level, withoutNumbers(line.text)};
    const auto known = m_kinds.find(kind);
    if (m_passed == kMost) {
        if (known != m_kinds.end()) {
            return hold(known->second, line);
        }
        ++m_others;
        m_holds = true;
        return false;
    }
    Lines& lines = known != m_kinds.end() ? known->second : m_kinds[std::move(kind)];
    if (lines.passed == kMostOfAKind) {
        return hold(lines, line);
    }
    ++lines.passed;
    ++m_passed;
    return true;
}

bool LogLimiter::hold(Lines& lines, const Line& line)
{
    ++lines.held;
    lines.last = line.text;
    m_holds = true;
    return false;
}

LogLimiter::Held LogLimiter::takeEnded(Time now)
{
    return m_end && now >= *m_end ? takeAll() : Held{};
}

LogLimiter::Held LogLimiter::takeAll()
{
    Held held;
    for (const auto& [kind, lines] : m_kinds) {
        if (lines.held > 0) {
            held.kinds.push_back({{std::get<0>(kind), std::get<1>(kind), lines.last}, lines.held});
        }
    }
    held.others = m_others;
    *this = LogLimiter();
    return held;
}
