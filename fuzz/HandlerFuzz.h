#pragma once

#include <log4cplus/logger.h>

#include <QCoreApplication>
#include <cstdlib>
#include <memory>

#include "platform/hostlink/HostLinkLog.h"
#include "platform/hostlink/HostLinkTransportLayer.h"
#include "platform/sdk/CMWorker.h"
#include "platform/sdk/MetaTypes.h"
#include "support/MemoryLayer.h"

inline void require(bool condition)
{
    if (!condition) {
        std::abort();
    }
}

/// What every fuzzer of handlers needs: an application, quiet logs that are nevertheless built, and a worker
/// with a link that nobody is on.
class HandlerFuzz
{
public:
    HandlerFuzz() { registerSdkMetaTypes(); }
    ~HandlerFuzz() { transport.stop(); }

    CMNodesWorker worker{{}, "worker"};
    HostLinkTransportLayer transport{MemoryLine::makeEnd(std::make_shared<MemoryLine>(), 0)};

    /// To be called once, before anything else.
    static void initialize(int* argc, char*** argv)
    {
        static const QCoreApplication application(*argc, *argv);
        log4cplus::Logger logger = log4cplus::Logger::getInstance("HostLink");
        logger.setAdditivity(false); // to no appender
        logger.setLogLevel(log4cplus::TRACE_LOG_LEVEL);
        HostLinkLog::setSink([](HostLinkLog::Level, const std::string&) {});
    }

    static void runEvents() { QCoreApplication::processEvents(); }
};

/// The input as messages: each behind its length in two bytes, the last one as long as it is.
class FuzzMessages
{
public:
    FuzzMessages(const std::uint8_t* data, std::size_t size) : m_at(data), m_end(data + size) {}

    bool next(ByteArray* message)
    {
        if (m_end - m_at < 2) {
            return false;
        }
        const std::ptrdiff_t size = m_at[0] << 8 | m_at[1];
        m_at += 2;
        const std::uint8_t* const end = m_at + std::min(size, m_end - m_at);
        message->assign(m_at, end);
        m_at = end;
        return true;
    }

private:
    const std::uint8_t* m_at;
    const std::uint8_t* m_end;
};
