#pragma once

#include <charconv>
#include <optional>
#include <string>
#include <system_error>

/// The number that the whole text is, without a plus sign or spaces; nothing where it is none or not of this
/// type.
template <typename Number>
std::optional<Number> wholeNumber(const std::string& text, int base = 10)
{
    Number number{};
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number, base);
    return result.ec == std::errc() && result.ptr == end ? std::optional(number) : std::nullopt;
}
