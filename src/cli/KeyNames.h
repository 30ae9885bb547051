#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// The Linux code of a key that is given by its name, with or without KEY_ in front (VOLUMEUP, KEY_1,
/// BTN_LEFT) and in any case, or as a number, decimal or 0x and hexadecimal digits, of 0 to 65535. A bare
/// digit is a number. Nothing when it is neither.
std::optional<std::uint16_t> keyCode(const std::string& text);

/// "; did you mean ...?" for a mistyped name; empty when none is near.
std::string similarKeys(const std::string& text);
