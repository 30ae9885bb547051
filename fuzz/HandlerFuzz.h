#pragma once

#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>

#include <QCoreApplication>
#include <memory>

#include "FuzzInput.h"
#include "SimulatedEvents.h"
#include "platform/hostlink/HostLinkLog.h"
#include "platform/hostlink/HostLinkTransportLayer.h"
#include "platform/sdk/CMWorker.h"
#include "platform/sdk/MetaTypes.h"
#include "support/MemoryLayer.h"

/// What every fuzzer of handlers needs: an application, quiet logs that are nevertheless built, and a worker
/// with a link that nobody is on.
class HandlerFuzz
{
public:
    HandlerFuzz() { registerSdkMetaTypes(); }
    ~HandlerFuzz() { transport.stop(); }

    CMNodesWorker worker{{}, "worker"};
    HostLinkTransportLayer transport{MemoryLine::makeEnd(std::make_shared<MemoryLine>(), 0)};

    /// To be called once, before anything else. The application has simulated time.
    static void initialize(int* argc, char*** argv)
    {
        SimulatedEvents::install();
        static const QCoreApplication application(*argc, *argv);
        log4cplus::Logger logger = log4cplus::Logger::getRoot();
        logger.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
        logger.setLogLevel(log4cplus::TRACE_LOG_LEVEL);
        HostLinkLog::setSink([](HostLinkLog::Level, const std::string&) {});
    }

    static void runEvents() { SimulatedEvents::instance().settle(); }
};
