#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>

#include "vm/i2c-bus/CuseI2cDevice.h"

using namespace std::chrono_literals;

namespace
{
struct Options {
    std::string socket;
    std::string device = "i2c-3";
    int address = 0x77;
    std::size_t longest = 64;
    bool absent = false;
};

// A host that the bus has no room for is looked at again.
constexpr HostLinkDuration kLongestSleep = 20ms;

/// One line of what was typed; empty at its end.
class Typed
{
public:
    /// False at the end of the input.
    bool read()
    {
        char buffer[256];
        const ssize_t size = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (size > 0) {
            m_text.append(buffer, std::size_t(size));
        }
        return size > 0;
    }

    bool takeLine(std::string* line)
    {
        const std::size_t end = m_text.find('\n');
        if (end == std::string::npos) {
            return false;
        }
        *line = m_text.substr(0, end);
        m_text.erase(0, end + 1);
        return true;
    }

private:
    std::string m_text;
};

class Program
{
public:
    explicit Program(const Options& options)
        : m_host(options.socket), m_bus(m_host, options.address, options.longest),
          m_device(m_bus, options.device)
    {
        if (!options.absent) {
            m_device.appear();
        }
        std::cout << "ready" << std::endl;
    }

    /// Returns at the end of the input.
    void run()
    {
        bool typed = false;
        do {
            std::vector<pollfd> descriptors{{STDIN_FILENO, POLLIN, 0}, {calls(), POLLIN, 0}};
            m_host.waitOn(descriptors);
            ::poll(descriptors.data(), descriptors.size(), pause(HostLinkClock::now()));
            const HostLinkTime now = HostLinkClock::now();
            if (now >= m_hostDue || isReady(descriptors.begin() + 2, descriptors.end())) {
                m_host.service(now); // before the calls: they see what was sent before them
                m_hostDue = std::min(m_host.nextService(), now + kLongestSleep);
            }
            m_device.service(now);
            if (descriptors[1].revents != 0) {
                m_device.receive();
            }
            typed = descriptors[0].revents != 0;
        } while (!typed || obey());
    }

private:
    /// A busy host holds the clock: no transfer begins.
    int calls() const { return m_host.isBusy() ? -1 : m_device.descriptor(); }

    using Descriptors = std::vector<pollfd>::const_iterator;
    static bool isReady(Descriptors begin, Descriptors end)
    {
        return std::any_of(begin, end, [](const pollfd& each) { return each.revents != 0; });
    }

    /// Milliseconds.
    int pause(HostLinkTime now) const
    {
        const HostLinkTime until = std::min(m_hostDue, m_device.nextService());
        return int(std::chrono::ceil<std::chrono::milliseconds>(std::max(until, now) - now).count());
    }

    /// False at the end of the input.
    bool obey()
    {
        if (!m_typed.read()) {
            return false;
        }
        for (std::string line; m_typed.takeLine(&line);) {
            try {
                obey(line);
                std::cout << "ok " << line << std::endl;
            } catch (const std::exception& error) {
                std::cout << "error " << line << ": " << error.what() << std::endl;
            }
        }
        return true;
    }

    void obey(const std::string& line)
    {
        if (line == "vanish") {
            m_device.vanish();
        } else if (line == "appear") {
            m_device.appear();
        } else if (line == "report") {
            for (const std::string& entry : m_bus.report()) {
                std::cout << entry << '\n';
            }
        } else {
            m_bus.setFault(BusFault::parse(line));
        }
    }

    BusHost m_host;
    I2cBus m_bus;
    CuseI2cDevice m_device;
    HostLinkTime m_hostDue{}; ///< when the host is to be serviced though nothing comes
    Typed m_typed;
};

constexpr const char* kHelp =
    R"(Commands, a line of standard input each, answered with "ok" and the line. Its end ends the bus.
  refuse          the address is not acknowledged
  stall MS        the clock is held low so long; longer than the bus time-out, and the transfer fails
  cut BYTES       transfers break off behind so many bytes
  float           nobody drives the data line: reads are 0xff
  ... every N     only each Nth transfer does so
  heal            no transfer does
  vanish, appear  the device node goes, comes back
  report          print what was carried, and each breach of the link's rules

Without a program on the socket the address is not acknowledged.)";
} // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App app(
        "An I2C bus with a host on it, at /dev/i2c-3, for a module that has none. The host is whoever "
        "connects to SOCKET, as in: hostlink host --link unix:SOCKET attend");
    app.add_option("socket", options.socket, "The host's end")->required()->type_name("SOCKET");
    app.add_option("--device", options.device, "Name below /dev")->capture_default_str();
    app.add_option("--address", options.address, "Of the host, 119 is 0x77")->capture_default_str();
    app.add_option("--longest", options.longest, "Bytes of the longest transfer that the host takes")
        ->capture_default_str();
    app.add_flag("--absent", options.absent, "The device node is not there before \"appear\"");
    app.footer(kHelp);
    CLI11_PARSE(app, argc, argv);
    try {
        Program(options).run();
    } catch (const std::exception& error) {
        std::cerr << "i2c-bus: " << error.what() << std::endl;
        return 1;
    }
    return 0;
}
