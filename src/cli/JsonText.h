#pragma once

#include <string>
#include <string_view>

/// Text as a JSON string with its quotes (RFC 8259). Each byte that is not UTF-8 becomes U+FFFD.
std::string jsonString(std::string_view text);
