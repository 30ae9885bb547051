#pragma once

#include <sys/eventfd.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/hostlink/FileDescriptor.h"
#include "platform/hostlink/HostLinkPhysicalLayer.h"

/// A line in memory with two sides. It is up while both sides are open; what a side sent before it
/// closed can still be read. Thread-safe; each end has a descriptor to poll, and needs none on simulated
/// time. The side that closed, or a new end of it, may open again.
class MemoryLine
{
public:
    /// `capacity`: bytes that may lie unread in one direction before the line pushes back.
    explicit MemoryLine(std::size_t capacity = 64 * 1024) : m_capacity(capacity) {}

    /// Takes the line down, with all that lies on it, until mend().
    void cut()
    {
        const std::lock_guard lock(m_mutex);
        m_cut = true;
        if (m_current) {
            m_current->gone[0] = m_current->gone[1] = true;
            m_current->bytes[0].clear();
            m_current->bytes[1].clear();
        }
        signalBoth();
    }

    void mend()
    {
        const std::lock_guard lock(m_mutex);
        m_cut = false;
        connect();
        signalBoth();
    }

    /// A new end of a side, 0 or 1. At most one end of a side is open at a time.
    static std::unique_ptr<HostLinkPhysicalLayer> makeEnd(const std::shared_ptr<MemoryLine>& line, int side)
    {
        return std::make_unique<End>(line, side);
    }

private:
    /// One time that the line was up. Side s reads from bytes[s].
    struct Connection {
        std::uint64_t number;
        std::deque<std::uint8_t> bytes[2];
        bool gone[2] = {false, false}; ///< the side sends no more
    };

    class End final : public HostLinkPhysicalLayer
    {
    public:
        End(std::shared_ptr<MemoryLine> line, int side)
            : m_line(std::move(line)), m_side(side), m_event(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
        {
        }
        ~End() override { close(); }

        void open(HostLinkTime) override
        {
            const std::lock_guard lock(m_line->m_mutex);
            m_line->m_ends[m_side] = this;
            m_line->connect();
            m_line->signalBoth();
        }

        void close() override
        {
            const std::lock_guard lock(m_line->m_mutex);
            if (m_line->m_ends[m_side] != this) {
                return;
            }
            m_line->m_ends[m_side] = nullptr;
            leave();
        }

        void service(HostLinkTime) override
        {
            const std::lock_guard lock(m_line->m_mutex);
            m_line->connect();
            m_line->signalBoth();
            m_news = false;
            signal();
        }

        std::uint64_t lineNumber() const override
        {
            const std::lock_guard lock(m_line->m_mutex);
            return m_connection ? m_connection->number : 0;
        }

        std::size_t read(std::uint8_t* to, std::size_t max, HostLinkTime) override
        {
            const std::lock_guard lock(m_line->m_mutex);
            if (!m_connection) {
                return 0;
            }
            auto& bytes = m_connection->bytes[m_side];
            const auto size = std::min(max, bytes.size());
            std::copy_n(bytes.begin(), size, to);
            bytes.erase(bytes.begin(), bytes.begin() + std::ptrdiff_t(size));
            if (size == 0 && m_connection->gone[1 - m_side]) {
                leave();
            }
            m_line->signalBoth();
            return size;
        }

        std::size_t write(const std::uint8_t* from, std::size_t size, HostLinkTime) override
        {
            const std::lock_guard lock(m_line->m_mutex);
            if (!m_connection || m_connection->gone[1 - m_side]) {
                return 0;
            }
            auto& bytes = m_connection->bytes[1 - m_side];
            const std::size_t taken = std::min(size, m_line->m_capacity - bytes.size());
            bytes.insert(bytes.end(), from, from + taken);
            m_awaitsRoom = taken < size;
            m_line->signalBoth();
            return taken;
        }

        void waitOn(std::vector<pollfd>& descriptors, bool) const override
        {
            descriptors.push_back({m_event.get(), POLLIN, 0});
        }

    private:
        friend class MemoryLine;

        void attach(const std::shared_ptr<Connection>& connection)
        {
            m_connection = connection;
            m_awaitsRoom = false;
            m_news = true;
        }

        void leave()
        {
            if (m_connection) {
                m_connection->gone[m_side] = true;
                m_connection.reset();
                m_news = true;
            }
            m_line->signalBoth();
        }

        /// Makes the descriptor ready exactly while there is something to do.
        void signal()
        {
            bool ready = m_news;
            if (m_connection) {
                const bool hasRoom = m_connection->bytes[1 - m_side].size() < m_line->m_capacity;
                ready = ready || !m_connection->bytes[m_side].empty() || m_connection->gone[1 - m_side]
                        || (m_awaitsRoom && hasRoom);
            }
            if (ready == m_signalled) {
                return;
            }
            m_signalled = ready;
            eventfd_t count = 0;
            ready ? ::eventfd_write(m_event.get(), 1) : ::eventfd_read(m_event.get(), &count);
        }

        const std::shared_ptr<MemoryLine> m_line;
        const int m_side;
        const FileDescriptor m_event;
        std::shared_ptr<Connection> m_connection;
        bool m_news = false; ///< the line came up or went down, and service() has not been called since
        bool m_awaitsRoom = false;
        bool m_signalled = false;
    };

    /// Brings the line up when both sides are open and neither has an earlier connection to read out.
    void connect()
    {
        if (m_cut || !m_ends[0] || !m_ends[1] || m_ends[0]->m_connection || m_ends[1]->m_connection) {
            return;
        }
        m_current = std::make_shared<Connection>();
        m_current->number = ++m_lines;
        m_ends[0]->attach(m_current);
        m_ends[1]->attach(m_current);
    }

    void signalBoth()
    {
        for (End* end : m_ends) {
            if (end) {
                end->signal();
            }
        }
    }

    mutable std::mutex m_mutex;
    const std::size_t m_capacity;
    bool m_cut = false;
    End* m_ends[2] = {nullptr, nullptr}; ///< the open ends
    std::shared_ptr<Connection> m_current;
    std::uint64_t m_lines = 0;
};

/// Two ends of a line in memory.
inline std::pair<std::unique_ptr<HostLinkPhysicalLayer>, std::unique_ptr<HostLinkPhysicalLayer>>
memoryLayerPair(std::size_t capacity = 64 * 1024)
{
    const auto line = std::make_shared<MemoryLine>(capacity);
    return {MemoryLine::makeEnd(line, 0), MemoryLine::makeEnd(line, 1)};
}
