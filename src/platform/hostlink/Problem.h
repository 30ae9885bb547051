#pragma once

#include <cerrno>
#include <string>
#include <system_error>

inline constexpr const char* kDeviceGone = "the device is not there; waits for it";

/// "cannot ACTION: the text of errno".
inline std::string problemWith(const std::string& action)
{
    return "cannot " + action + ": " + std::generic_category().message(errno);
}
