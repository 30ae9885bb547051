#pragma once

#include <poll.h>
#include <sys/eventfd.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "platform/hostlink/ByteArray.h"
#include "platform/hostlink/FileDescriptor.h"
#include "support/Terminal.h"

/// Two serial devices, made of pseudo-terminals, that are joined crosswise. They keep their paths when they
/// are unplugged and plugged in again. What is sent to a device that nobody has open is lost.
class NullModem
{
public:
    explicit NullModem(std::string directory) : m_directory(std::move(directory)) { plug(); }
    ~NullModem() { unplug(); }
    NullModem(const NullModem&) = delete;
    NullModem& operator=(const NullModem&) = delete;

    std::string device(int side) const { return m_directory + (side == 0 ? "/tty-a" : "/tty-b"); }

    /// Both devices go away: their paths, and the line for those who have them open.
    void unplug()
    {
        ::eventfd_write(m_stop.get(), 1);
        if (m_pump.joinable()) {
            m_pump.join();
        }
        for (int side = 0; side < 2; ++side) {
            std::filesystem::remove(device(side));
            m_terminals[side].reset();
        }
    }

    void plug()
    {
        for (int side = 0; side < 2; ++side) {
            m_terminals[side] = makeTerminal(device(side));
        }
        m_stop = FileDescriptor(::eventfd(0, EFD_CLOEXEC));
        m_pump = std::thread([this] { pump(); });
    }

private:
    static std::unique_ptr<Terminal> makeTerminal(const std::string& path)
    {
        auto terminal = std::make_unique<Terminal>();
        // As a serial device it echoes nothing before its program has set it up.
        const FileDescriptor device = terminal->openDevice();
        termios settings{};
        ::tcgetattr(device.get(), &settings);
        ::cfmakeraw(&settings);
        ::tcsetattr(device.get(), TCSANOW, &settings);
        std::filesystem::create_symlink(terminal->path(), path);
        return terminal;
    }

    /// Carries bytes until it is stopped.
    void pump()
    {
        std::array<ByteArray, 2> pending; // for each side
        for (;;) {
            pollfd descriptors[3] = {{m_stop.get(), POLLIN, 0}, {}, {}};
            for (int side = 0; side < 2; ++side) {
                const short events =
                    short((pending[1 - side].empty() ? POLLIN : 0) | (pending[side].empty() ? 0 : POLLOUT));
                descriptors[1 + side] = {isClosed(side) ? -1 : m_terminals[side]->master(), events, 0};
            }
            // Nothing tells of a closed terminal that is opened again.
            constexpr int kLookAgainMs = 1;
            ::poll(descriptors, 3, descriptors[1].fd < 0 || descriptors[2].fd < 0 ? kLookAgainMs : -1);
            if (descriptors[0].revents != 0) {
                return;
            }
            for (int side = 0; side < 2; ++side) {
                take(side, pending[1 - side]);
            }
            for (int side = 0; side < 2; ++side) {
                give(side, pending[side]);
            }
        }
    }

    bool isClosed(int side) const
    {
        pollfd probe{m_terminals[side]->master(), POLLIN, 0};
        ::poll(&probe, 1, 0);
        return probe.revents == POLLHUP;
    }

    void take(int side, ByteArray& pending)
    {
        if (pending.empty()) {
            pending = m_terminals[side]->read();
        }
    }

    void give(int side, ByteArray& pending)
    {
        // Asked now: whoever has opened the device meanwhile may have been sent something since.
        if (pending.empty() || isClosed(side)) {
            pending.clear();
            return;
        }
        const ssize_t size = ::write(m_terminals[side]->master(), pending.data(), pending.size());
        if (size > 0) {
            pending.erase(pending.begin(), pending.begin() + size);
        }
    }

    const std::string m_directory;
    std::unique_ptr<Terminal> m_terminals[2];
    FileDescriptor m_stop;
    std::thread m_pump;
};
