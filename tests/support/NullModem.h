#pragma once

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/eventfd.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "platform/hostlink/ByteArray.h"
#include "platform/hostlink/FileDescriptor.h"

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
            m_masters[side].reset();
        }
    }

    void plug()
    {
        for (int side = 0; side < 2; ++side) {
            m_masters[side] = makeTerminal(device(side));
        }
        m_stop = FileDescriptor(::eventfd(0, EFD_CLOEXEC));
        m_pump = std::thread([this] { pump(); });
    }

private:
    static FileDescriptor makeTerminal(const std::string& path)
    {
        FileDescriptor master(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
        char name[64];
        if (!master || ::grantpt(master.get()) != 0 || ::unlockpt(master.get()) != 0
            || ::ptsname_r(master.get(), name, sizeof name) != 0) {
            throw std::runtime_error("no pseudo-terminal");
        }
        // As a serial device it echoes nothing before its program has set it up.
        const FileDescriptor slave(::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC));
        termios settings{};
        ::tcgetattr(slave.get(), &settings);
        ::cfmakeraw(&settings);
        ::tcsetattr(slave.get(), TCSANOW, &settings);
        std::filesystem::create_symlink(name, path);
        return master;
    }

    /// Carries bytes until it is stopped.
    void pump()
    {
        std::array<ByteArray, 2> pending; // for each side
        for (;;) {
            pollfd descriptors[3] = {{m_stop.get(), POLLIN, 0}, {}, {}};
            bool isClosed[2];
            for (int side = 0; side < 2; ++side) {
                const short events =
                    short((pending[1 - side].empty() ? POLLIN : 0) | (pending[side].empty() ? 0 : POLLOUT));
                pollfd probe{m_masters[side].get(), POLLIN, 0};
                ::poll(&probe, 1, 0);
                isClosed[side] = probe.revents == POLLHUP;
                descriptors[1 + side] = {isClosed[side] ? -1 : m_masters[side].get(), events, 0};
            }
            // Nothing tells of a closed terminal that is opened again.
            constexpr int kLookAgainMs = 1;
            ::poll(descriptors, 3, isClosed[0] || isClosed[1] ? kLookAgainMs : -1);
            if (descriptors[0].revents != 0) {
                return;
            }
            for (int side = 0; side < 2; ++side) {
                if (isClosed[side]) {
                    pending[side].clear();
                }
                take(side, pending[1 - side]);
                give(side, pending[side]);
            }
        }
    }

    void take(int side, ByteArray& pending)
    {
        if (!pending.empty()) {
            return;
        }
        pending.resize(4096);
        const ssize_t size = ::read(m_masters[side].get(), pending.data(), pending.size());
        pending.resize(size > 0 ? std::size_t(size) : 0);
    }

    void give(int side, ByteArray& pending)
    {
        if (pending.empty()) {
            return;
        }
        const ssize_t size = ::write(m_masters[side].get(), pending.data(), pending.size());
        if (size > 0) {
            pending.erase(pending.begin(), pending.begin() + size);
        }
    }

    const std::string m_directory;
    FileDescriptor m_masters[2];
    FileDescriptor m_stop;
    std::thread m_pump;
};
