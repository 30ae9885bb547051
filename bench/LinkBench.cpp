// What the link costs: bytes around a message, use of a slow line by bulk messages and by a pushed file,
// answers meanwhile, damage and wake-ups, all on simulated time; and what the trace points cost while nobody
// listens, on real time.

#include <cmath>

#include "Processes.h"
#include "platform/hostlink/HostLinkFrame.h"
#include "platform/hostlink/HostLinkTrace.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "support/LinkMessages.h"
#include "support/SimulatedLink.h"
#include "support/SlowLineRun.h"

using namespace std::chrono_literals;

namespace
{

double nanoseconds(Clock::duration duration, std::uint64_t times)
{
    return std::chrono::duration<double, std::nano>(duration).count() / double(times);
}

/// Sends messages of one size both ways, each as the answer to the one before.
void overhead(std::size_t size)
{
    constexpr int kExchanges = 2000;
    SimulatedLink link;
    link.lineUp();
    link.run(50ms);
    const std::uint64_t before = link.a.bytes;
    for (int i = 0; i < kExchanges; ++i) {
        for (SimulatedLink::End* from : {&link.a, &link.b}) {
            SimulatedLink::End& to = from == &link.a ? link.b : link.a;
            from->core->send(ByteArray(size, 1), link.now);
            link.runUntil([&] { return !to.received.empty(); }, 10ms);
            to.received.clear();
        }
    }
    report(("bytes_around_" + std::to_string(size)).c_str(),
           double(link.a.bytes - before) / kExchanges - double(size));
}

void slowLine(HostLinkDuration delay)
{
    SlowLineRun run(delay);
    run.run(1000);
    const std::string where =
        std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(delay).count()) + "us";
    report(("bulk_share_" + where).c_str(), run.bulkRate() / SlowLineRun::kLineRate);
    report(("get_p99_ms_" + where).c_str(), std::chrono::duration<double, std::milli>(run.slowGet()).count());
    report(("frames_repeated_" + where).c_str(), double(run.repeated()));
}

constexpr std::size_t kFileSize = 2 * 1024 * 1024;

ByteArray chunk(std::uint32_t index, std::size_t size)
{
    HostLinkValueMessage message(MSG_DataTransfer);
    if (index == 0) {
        message.addValueString(0, "song.flac");
    }
    message.addValueUint32(1, index);
    message.addValueBin16(2, ByteArray(size, std::uint8_t(index + 1)));
    message.addValueUint32(4, index);
    return message.serialize();
}

ByteArray answer(std::int32_t index)
{
    HostLinkValueMessage message(MSG_DataTransferResponse);
    message.addValueInt32(0, index);
    return message.serialize();
}

/// The share of the line's bytes that are the file's. It stops and waits: while an answer is on its way,
/// nothing of the file is.
double pushShare(std::size_t chunkSize)
{
    SimulatedLink::Faults line;
    line.delay = 5ms;
    line.bytesPerSecond = std::uint64_t(SlowLineRun::kLineRate);
    SimulatedLink link(line);
    link.lineUp();
    link.run(1s);
    const HostLinkTime begin = link.now;
    const auto chunks = std::uint32_t(kFileSize / chunkSize);
    for (std::uint32_t i = 0; i < chunks; ++i) {
        link.a->send(chunk(i, chunkSize), link.now);
        link.runUntil([&] { return link.b.received.size() > i; }, 60s);
        link.b->send(answer(std::int32_t(i)), link.now);
        link.runUntil([&] { return link.a.received.size() > i; }, 60s);
    }
    const double seconds = std::chrono::duration<double>(link.now - begin).count();
    return double(chunks) * double(chunkSize) / seconds / SlowLineRun::kLineRate;
}

void slowPush()
{
    for (const std::size_t size : {std::size_t{128}, std::size_t{4096}, std::size_t{32768}}) {
        report(("push_share_" + std::to_string(size)).c_str(), pushShare(size));
    }
}

/// Messages of 32 KiB over the slow line, each when the one before is there, as chunks of files go.
void damagedLine(int percentOfFullFrames)
{
    constexpr int kMessages = 20;
    SimulatedLink::Faults faults;
    faults.bytesPerSecond = SlowLineRun::kLineRate;
    faults.flip = 1 - std::pow(1 - percentOfFullFrames / 100.0, 1.0 / HostLinkFrame::kMaxEncoded);
    SimulatedLink link(faults);
    link.lineUp();
    link.run(3s);
    const HostLinkTime begin = link.now;
    for (std::uint32_t i = 0; i < kMessages; ++i) {
        link.a->send(bulk(i, 32'768), link.now);
        link.runUntil([&] { return link.b.received.size() > i; }, 10min);
    }
    report(("seconds_for_32KiB_damaged_" + std::to_string(percentOfFullFrames)).c_str(),
           std::chrono::duration<double>(link.now - begin).count() / kMessages);
}

void idle()
{
    constexpr int kSeconds = 600;
    SimulatedLink link;
    link.lineUp();
    link.run(5s);
    const std::uint64_t before[] = {link.a.wakeUps, link.b.wakeUps};
    link.run(std::chrono::seconds(kSeconds));
    report("idle_wakeups_per_s", double(link.a.wakeUps - before[0]) / kSeconds);
    report("idle_wakeups_per_s_of_peer", double(link.b.wakeUps - before[1]) / kSeconds);
}

/// One message over two ends joined by calls, as a transport carries it. It passes eight trace points: taken,
/// sent, received and handed over, and the same for the one that goes back.
double roundTrip(int rounds)
{
    HostLinkCore ends[2] = {HostLinkCore({}), HostLinkCore({})};
    const HostLinkTime now{1h};
    const auto carry = [&](int from) {
        for (;;) {
            const HostLinkCore::Bytes bytes = ends[from].transmit(now);
            if (bytes.size == 0) {
                return;
            }
            ends[1 - from].receive(bytes.data, bytes.size, now);
        }
    };
    ends[0].lineUp(now);
    ends[1].lineUp(now);
    for (int i = 0; i < 4; ++i) {
        carry(i % 2);
    }
    const ByteArray sent = state(1, 20);
    ByteArray got;
    const Clock::time_point begin = Clock::now();
    for (int i = 0; i < rounds; ++i) {
        for (int from = 0; from < 2; ++from) {
            ends[from].send(sent, now);
            carry(from);
            if (!ends[1 - from].take(got)) {
                std::puts("a message did not arrive");
                return 0;
            }
            ends[1 - from].handled();
        }
    }
    return nanoseconds(Clock::now() - begin, std::uint64_t(rounds));
}

/// The look at the flag that each trace point is while nobody listens.
double tracePoint(int rounds)
{
    const ByteArray message = state(1, 20);
    const Clock::time_point begin = Clock::now();
    for (int i = 0; i < rounds; ++i) {
        HostLinkTrace::message(HostLinkTrace::Direction::Out, message);
    }
    return nanoseconds(Clock::now() - begin, std::uint64_t(rounds));
}

void trace()
{
    constexpr int kRounds = 200'000;
    constexpr int kPoints = 8;
    roundTrip(kRounds); // warms up
    const double trip = roundTrip(kRounds);
    const double points = kPoints * tracePoint(50 * kRounds);
    HostLinkTrace::setSink([](const std::string&) {});
    const double traced = roundTrip(kRounds / 10);
    HostLinkTrace::setSink({});
    report("trip_ns", trip);
    report("trip_trace_points_ns", points);
    report("trip_traced_ns", traced);
}

} // namespace

int main()
{
    for (const std::size_t size : {2, 20, 247, 248, 500}) {
        overhead(size);
    }
    slowLine(100us);
    slowLine(5ms);
    slowPush();
    for (const int percent : {0, 10, 30, 50, 70}) {
        damagedLine(percent);
    }
    idle();
    trace();
}
