#include "vm/BusFixture.h"

#include <cstdio>

void BusFixture::startBus(const Program::Arguments& options)
{
    Program::Arguments arguments{linkSocket()};
    arguments.insert(arguments.end(), options.begin(), options.end());
    m_bus = std::make_unique<Program>(I2C_BUS_PROGRAM, arguments, Program::Input::Typed);
    ASSERT_NE(m_bus->nextLineWith("ready"), "");
}

void BusFixture::bus(const std::string& command)
{
    m_bus->type(command + "\n");
    ASSERT_NE(m_bus->nextLineWith("ok " + command), "");
}

BusFixture::Report BusFixture::report()
{
    Report report;
    m_bus->type("report\n");
    std::string line;
    while ((line = m_bus->nextLineWith("")).find("breach") == 0) {
        report.breaches += line + "\n";
    }
    const int numbers = std::sscanf(
        line.c_str(), "reads=%d writes=%d failed=%d faults=%d longest=%d timeout=%d", &report.reads,
        &report.writes, &report.failed, &report.faults, &report.longest, &report.timeout);
    EXPECT_EQ(numbers, 6) << line;
    m_bus->nextLineWith("ok report");
    return report;
}
