#pragma once

#include <CLI/CLI.hpp>

/// Says on standard error what is wrong with a command line for `root`, and where help is. Words in the place
/// of a command are compared with the commands that there are.
void explainUsage(const CLI::App& root, const CLI::ParseError& error);
