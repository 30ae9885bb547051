#include "platform/hostlink/HostLinkCounters.h"

static_assert(sizeof(HostLinkCounters) == HostLinkCounters::kSize * sizeof(std::uint64_t),
              "each counter has a row");

constexpr HostLinkCounters::Row HostLinkCounters::kRows[kSize] = {
    {"bytesSent", &HostLinkCounters::bytesSent, true, "bytes put on the line"},
    {"bytesReceived", &HostLinkCounters::bytesReceived, true, "bytes that came from the line"},
    {"framesSent", &HostLinkCounters::framesSent, true, "frames put on the line"},
    {"framesRepeated", &HostLinkCounters::framesRepeated, true, "of those, frames sent again"},
    {"framesReceived", &HostLinkCounters::framesReceived, true, "undamaged frames that came"},
    {"framesDamaged", &HostLinkCounters::framesDamaged, true, "frames with a wrong CRC, or that are none"},
    {"framesDuplicate", &HostLinkCounters::framesDuplicate, true, "frames that had come before"},
    {"framesIgnored", &HostLinkCounters::framesIgnored, true,
     "other undamaged frames that were not expected"},
    {"resyncs", &HostLinkCounters::resyncs, true, "times the peer was asked to go back to a missing frame"},
    {"timeouts", &HostLinkCounters::timeouts, true, "times an acknowledgement did not come in time"},
    {"messagesSent", &HostLinkCounters::messagesSent, true, "messages taken for sending"},
    {"messagesReceived", &HostLinkCounters::messagesReceived, true, "whole messages that came"},
    {"messagesRefused", &HostLinkCounters::messagesRefused, true, "messages not taken for sending"},
    {"messagesDiscarded", &HostLinkCounters::messagesDiscarded, true,
     "messages taken, but meant for a session that ended"},
    {"messagesBroken", &HostLinkCounters::messagesBroken, true,
     "messages of which parts did not fit together"},
    {"sessions", &HostLinkCounters::sessions, true, "sessions established"},
    {"greetings", &HostLinkCounters::greetings, true, "times the line was greeted"},
    {"refusals", &HostLinkCounters::refusals, true, "times the line was held by another peer"},
    {"stateQueued", &HostLinkCounters::stateQueued, false, "bytes of state messages that wait to be sent"},
    {"bulkQueued", &HostLinkCounters::bulkQueued, false, "bytes of bulk messages that wait to be sent"},
    {"framesUnacknowledged", &HostLinkCounters::framesUnacknowledged, false,
     "frames sent, not acknowledged yet"},
    {"messagesUnhandled", &HostLinkCounters::messagesUnhandled, false, "messages that came, not handled yet"},
    {"roundTrip", &HostLinkCounters::roundTrip, false,
     "microseconds from a frame to its acknowledgement, smoothed; 0 while unknown"},
};

std::string HostLinkCounters::text() const
{
    std::string line;
    for (const Row& row : kRows) {
        line += (line.empty() ? "" : " ") + std::string(row.name) + '=' + std::to_string(this->*row.value);
    }
    return line;
}
