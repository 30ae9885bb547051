#pragma once

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

/// The source file's own handle of the logger that the whole host link shares. The LOG4CPLUS_* macros look
/// at its level first: what they would print is neither computed nor built while the level is off.
static log4cplus::Logger hostLinkLogger = log4cplus::Logger::getInstance("HostLink");

/// Traces that a function is left, on whatever way, when its begin was traced.
class TraceLeave
{
public:
    explicit TraceLeave(const char* function)
        : m_function(hostLinkLogger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL) ? function : nullptr)
    {
    }
    ~TraceLeave()
    {
        if (isTraced()) {
            LOG4CPLUS_TRACE(hostLinkLogger, "Leave " << m_function);
        }
    }

    TraceLeave(const TraceLeave&) = delete;
    TraceLeave& operator=(const TraceLeave&) = delete;

    bool isTraced() const { return m_function != nullptr; }

private:
    const char* m_function;
};

/// Traces the function that it begins: "Enter " and the full signature here, "Leave " and the same at its
/// end.
#define HOSTLINK_TRACE_FUNCTION() HOSTLINK_TRACE_LINES("Enter " << __PRETTY_FUNCTION__)

/// The same with a detail behind the signature, a chain of values joined by <<.
#define HOSTLINK_TRACE_FUNCTION_WITH(detail)                                                                 \
    HOSTLINK_TRACE_LINES("Enter " << __PRETTY_FUNCTION__ << ": " << detail)

#define HOSTLINK_TRACE_LINES(enter)                                                                          \
    const TraceLeave traceLeave(__PRETTY_FUNCTION__);                                                        \
    if (traceLeave.isTraced()) {                                                                             \
        LOG4CPLUS_TRACE(hostLinkLogger, enter);                                                              \
    }                                                                                                        \
    static_cast<void>(0)
