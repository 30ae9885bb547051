#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <string>

#include "support/Program.h"

/// A directory of its own for each test, in which bare commands find each other.
class RuntimeDirectory : public testing::Test
{
protected:
    RuntimeDirectory();
    ~RuntimeDirectory() override;

    const std::string& directory() const { return m_directory; }

    /// Runs `hostlink host ARGUMENTS...`.
    static ProgramResult host(Program::Arguments arguments);

private:
    std::string m_directory;
};

/// With a module on the default link.
class ModuleFixture : public RuntimeDirectory
{
protected:
    void SetUp() override { startModule(); }

    /// Starts it, with these options too, and waits until it is ready.
    void startModule(const Program::Arguments& more = {});

    /// Ends it by a signal.
    ProgramResult stopModule(int signal = SIGTERM);

    std::unique_ptr<Program> m_module;
};
