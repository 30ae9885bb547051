#include "platform/hostlink/HostLinkTrace.h"

#include <mutex>
#include <utility>

#include "platform/hostlink/BigEndian.h"
#include "platform/hostlink/HexText.h"
#include "platform/hostlink/HostLinkFrame.h"
#include "platform/hostlink/HostLinkHello.h"
#include "platform/hostlink/HostLinkMessage.h"
#include "platform/hostlink/HostLinkPrinter.h"

namespace
{

struct Listener {
    std::mutex mutex;
    HostLinkTrace::Sink sink;
};

/// Never destroyed: threads may still work on a link while the process ends.
Listener& listener()
{
    static Listener& instance = *new Listener;
    return instance;
}

void write(const std::string& line)
{
    const std::lock_guard lock(listener().mutex);
    if (listener().sink) {
        listener().sink(line);
    }
}

const char* arrow(HostLinkTrace::Direction direction)
{
    return direction == HostLinkTrace::Direction::Out ? "> " : "< ";
}

std::string instanceText(std::uint64_t instance)
{
    ByteArray bytes(sizeof instance);
    writeBigEndian(bytes.data(), instance);
    return hexText(bytes);
}

std::string helloText(const HostLinkFrame& frame)
{
    HostLinkHello hello;
    if (!hello.read(frame)) {
        return "hello of another version";
    }
    return std::string(hello.settled ? "hello settled" : "hello")
           + " instance=" + instanceText(hello.instance)
           + " knows=" + (hello.peer == 0 ? "nobody" : instanceText(hello.peer))
           + " received=" + std::to_string(hello.received) + " credit=" + std::to_string(hello.credit[0])
           + "+" + std::to_string(hello.credit[1]);
}

std::string numbersText(const HostLinkFrame& frame)
{
    return " seq=" + std::to_string(frame.sequence) + " ack=" + std::to_string(frame.acknowledgement);
}

std::string sizeText(std::size_t size)
{
    return " " + std::to_string(size) + (size == 1 ? " byte" : " bytes");
}

/// Which part of which message a data frame holds.
std::string partText(const HostLinkFrame& frame)
{
    const bool isFirst = (frame.control & HostLinkControl::First) != 0;
    const bool isLast = (frame.control & HostLinkControl::Last) != 0;
    const ByteArray payload(frame.payload, frame.payload + frame.size);
    if (isFirst && isLast) {
        return " whole " + HostLinkPrinter::printMessage(payload);
    }
    if (isFirst) {
        return " first" + sizeText(frame.size) + " of "
               + HostLinkPrinter::printMessageId(HostLinkMessage::messageId(payload));
    }
    return (isLast ? " last" : " next") + sizeText(frame.size);
}

std::string dataText(const HostLinkFrame& frame)
{
    std::string text = "data" + numbersText(frame);
    text += (frame.control & HostLinkControl::Bulk) != 0 ? " bulk" : " state";
    text += (frame.control & HostLinkControl::CreditState) != 0 ? " grants:state" : "";
    text += (frame.control & HostLinkControl::CreditBulk) != 0 ? " grants:bulk" : "";
    return text + partText(frame);
}

std::string grantText(const HostLinkFrame& frame)
{
    std::string text = "grant" + numbersText(frame);
    if (frame.size >= 8) {
        text += " state=" + std::to_string(readBigEndian<std::uint32_t>(frame.payload))
                + " bulk=" + std::to_string(readBigEndian<std::uint32_t>(frame.payload + 4));
    }
    return text;
}

std::string frameText(const HostLinkFrame& frame)
{
    switch (frame.control) {
    case HostLinkControl::Ack: return "ack" + numbersText(frame);
    case HostLinkControl::Nak: return "nak" + numbersText(frame);
    case HostLinkControl::Hello: return helloText(frame);
    case HostLinkControl::Goodbye: return "goodbye ack=" + std::to_string(frame.acknowledgement);
    case HostLinkControl::Refusal: return "refusal";
    case HostLinkControl::Grant: return grantText(frame);
    default: break;
    }
    if ((frame.control & HostLinkControl::Sequenced) == 0) {
        return "unknown control=" + std::to_string(frame.control) + sizeText(frame.size);
    }
    return dataText(frame);
}

} // namespace

std::atomic<bool> HostLinkTrace::s_on{false};

void HostLinkTrace::setSink(Sink sink)
{
    const std::lock_guard lock(listener().mutex);
    std::swap(listener().sink, sink);
    s_on = bool(listener().sink);
}

void HostLinkTrace::writeFrame(Direction direction, const HostLinkFrame& frame, bool again)
{
    write(std::string(arrow(direction)) + "frame " + (again ? "again " : "") + frameText(frame));
}

void HostLinkTrace::writeDamaged(std::size_t size)
{
    write("< frame damaged" + sizeText(size));
}

void HostLinkTrace::writeMessage(Direction direction, const ByteArray& message, const char* remark)
{
    write(std::string(arrow(direction)) + "message " + remark + HostLinkPrinter::printMessage(message) + " | "
          + hexText(message));
}

void HostLinkTrace::writeEvent(const char* border, const char* text, const char* why)
{
    write(std::string("- ") + border + text + (*why == '\0' ? "" : " ") + why);
}
