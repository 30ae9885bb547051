#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "platform/hostlink/ByteArray.h"

struct HostLinkFrame;

/// Trace points at the borders between the layers of every link of the process. While nobody listens each
/// costs a look at one flag.
///
/// A line is DIRECTION BORDER TEXT. The direction is ">" for what this end sends, "<" for what it receives
/// and "-" for neither; the borders:
///   line     it came up or went down
///   frame    its kind, its numbers (seq, ack), for data the class, which part of a message it is and, of one
///            that it holds whole, what HostLinkPrinter says
///   session  it began, was resumed or ended
///   message  as HostLinkPrinter has it, " | " and its bytes as hexadecimal digits
class HostLinkTrace
{
public:
    enum class Direction { In, Out };
    using Sink = std::function<void(const std::string& line)>;

    /// Turns the trace on, or with an empty sink off. A sink is called by one thread at a time, must not
    /// call into the library, and is not called any more once it was replaced. Thread-safe.
    static void setSink(Sink sink);

    static bool isOn() { return s_on.load(std::memory_order_relaxed); }

    /// `again`: it had been sent before.
    static void frame(Direction direction, const HostLinkFrame& frame, bool again = false)
    {
        if (isOn()) {
            writeFrame(direction, frame, again);
        }
    }

    /// Bytes that are no frame came.
    static void damaged(std::size_t size)
    {
        if (isOn()) {
            writeDamaged(size);
        }
    }

    static void message(Direction direction, const ByteArray& message)
    {
        if (isOn()) {
            writeMessage(direction, message, "");
        }
    }

    /// A message was not taken for sending.
    static void refused(const ByteArray& message)
    {
        if (isOn()) {
            writeMessage(Direction::Out, message, "refused ");
        }
    }

    static void line(const char* text) { event("line ", text); }
    static void session(const char* text, const char* why = "") { event("session ", text, why); }

private:
    static void event(const char* border, const char* text, const char* why = "")
    {
        if (isOn()) {
            writeEvent(border, text, why);
        }
    }
    static void writeFrame(Direction direction, const HostLinkFrame& frame, bool again);
    static void writeDamaged(std::size_t size);
    static void writeMessage(Direction direction, const ByteArray& message, const char* remark);
    static void writeEvent(const char* border, const char* text, const char* why);

    static std::atomic<bool> s_on;
};
