#pragma once

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/hostlink/FileDescriptor.h"

/// A bad line between the two ends of an emulated link: it listens where the host connects, goes on to the
/// module, and on the way turns bits, loses bytes and cuts the line. All chance comes from one seed.
class FaultyRelay
{
public:
    struct Faults {
        std::size_t bytesPerFlip; ///< on the average
        std::size_t bytesPerLoss;
        std::size_t bytesPerCut;
    };

    FaultyRelay(const std::string& hostPath, std::string modulePath, Faults faults, unsigned seed = 1)
        : m_modulePath(std::move(modulePath)), m_faults(faults), m_random(seed),
          m_listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)), m_stop(::eventfd(0, EFD_CLOEXEC))
    {
        const sockaddr_un address = addressOf(hostPath);
        if (::bind(m_listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0
            || ::listen(m_listener.get(), 4) != 0) {
            throw std::runtime_error("cannot listen at " + hostPath);
        }
        m_thread = std::thread([this] { run(); });
    }

    ~FaultyRelay()
    {
        ::eventfd_write(m_stop.get(), 1);
        m_thread.join();
    }

    std::size_t cuts() const { return m_cuts; }     ///< to be read when the traffic is over
    std::size_t faults() const { return m_damage; } ///< as cuts()

private:
    static sockaddr_un addressOf(const std::string& path)
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        return address;
    }

    bool isStopped(std::vector<pollfd> waited)
    {
        waited.push_back({m_stop.get(), POLLIN, 0});
        ::poll(waited.data(), waited.size(), -1);
        m_ready = waited;
        return waited.back().revents != 0;
    }

    void run()
    {
        while (!isStopped({{m_listener.get(), POLLIN, 0}})) {
            const FileDescriptor host(::accept(m_listener.get(), nullptr, nullptr));
            const FileDescriptor module(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
            const sockaddr_un address = addressOf(m_modulePath);
            if (::connect(module.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
                continue;
            }
            while (!isStopped({{host.get(), POLLIN, 0}, {module.get(), POLLIN, 0}})) {
                if ((m_ready[0].revents != 0 && !carry(host.get(), module.get()))
                    || (m_ready[1].revents != 0 && !carry(module.get(), host.get()))) {
                    break;
                }
            }
        }
    }

    bool happens(std::size_t bytes, std::size_t bytesPerOne)
    {
        return std::uniform_int_distribution<std::size_t>(0, bytesPerOne)(m_random) < bytes;
    }

    /// False when the line goes down.
    bool carry(int from, int to)
    {
        char buffer[1500];
        const ssize_t got = ::read(from, buffer, sizeof buffer);
        if (got <= 0) {
            return false;
        }
        auto size = static_cast<std::size_t>(got);
        if (happens(size, m_faults.bytesPerCut)) {
            ++m_cuts;
            return false;
        }
        if (happens(size, m_faults.bytesPerFlip)) {
            ++m_damage;
            buffer[m_random() % size] ^= static_cast<char>(1 << m_random() % 8);
        }
        if (happens(size, m_faults.bytesPerLoss)) {
            ++m_damage;
            size = m_random() % size;
        }
        return ::send(to, buffer, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
    }

    const std::string m_modulePath;
    const Faults m_faults;
    std::mt19937 m_random;
    const FileDescriptor m_listener;
    const FileDescriptor m_stop;
    std::vector<pollfd> m_ready;
    std::size_t m_cuts = 0;
    std::size_t m_damage = 0;
    std::thread m_thread;
};
