#include "support/ModuleFixture.h"

#include <stdlib.h>

#include <filesystem>

RuntimeDirectory::RuntimeDirectory()
{
    char pattern[] = "/tmp/hostlink-e2e-XXXXXX";
    m_directory = mkdtemp(pattern);
    setenv("XDG_RUNTIME_DIR", m_directory.c_str(), 1);
}

RuntimeDirectory::~RuntimeDirectory()
{
    std::filesystem::remove_all(m_directory);
}

ProgramResult RuntimeDirectory::host(Program::Arguments arguments)
{
    arguments.insert(arguments.begin(), "host");
    return Program::run(arguments);
}

void ModuleFixture::startModule(const Program::Arguments& more)
{
    Program::Arguments arguments{"module", "--state-dir", directory() + "/state"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    m_module = std::make_unique<Program>(arguments);
    ASSERT_NE(m_module->waitForLine("ready link="), "");
}

ProgramResult ModuleFixture::stopModule(int signal)
{
    m_module->signal(signal);
    return m_module->wait();
}
