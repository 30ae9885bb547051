#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>

/// The number in an environment variable, or another one where it is not set.
inline std::uint32_t numberFromEnvironment(const char* name, std::uint32_t otherwise)
{
    const char* given = std::getenv(name);
    return given ? static_cast<std::uint32_t>(std::strtoul(given, nullptr, 10)) : otherwise;
}

/// The seeds of a test that takes `count` of them, from 1 on. HOSTLINK_TEST_SEED is the first one instead,
/// and HOSTLINK_TEST_SEEDS how many there are.
inline auto testSeeds(std::uint32_t count)
{
    const std::uint32_t first = numberFromEnvironment("HOSTLINK_TEST_SEED", 1);
    return ::testing::Range(first, first + numberFromEnvironment("HOSTLINK_TEST_SEEDS", count));
}

/// What a failure shows, to be set in the environment of the same test.
inline std::string replayWith(std::uint32_t seed)
{
    return "HOSTLINK_TEST_SEED=" + std::to_string(seed) + " HOSTLINK_TEST_SEEDS=1";
}
