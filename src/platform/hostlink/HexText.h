#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/hostlink/ByteArray.h"

/// Bytes as pairs of lower-case hexadecimal digits.
std::string hexText(const ByteArray& bytes);

/// \xNN for each byte, in lower case.
std::string escapedBytes(std::string_view bytes);

/// The text with \xNN for each byte of its control characters, but for those in `kept`: they may be commands
/// to a terminal.
std::string withoutControls(std::string_view text, std::string_view kept = {});

/// The bytes of pairs of hexadecimal digits; empty when there is anything else in the text.
std::optional<ByteArray> parseHex(std::string_view text);

/// 0x and four upper-case hexadecimal digits, as ids are written.
std::string hexNumber(std::uint16_t number);
