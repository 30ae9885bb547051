// What the link costs: bytes around a message, use of a slow line, answers meanwhile and wake-ups, all on
// simulated time; and what the trace points cost while nobody listens, on real time.

#include <cmath>
#include <cstdio>

#include "platform/hostlink/HostLinkFrame.h"
#include "platform/hostlink/HostLinkTrace.h"
#include "support/LinkMessages.h"
#include "support/SimulatedLink.h"
#include "support/SlowLineRun.h"

using namespace std::chrono_literals;

namespace
{

using Clock = std::chrono::steady_clock;

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
    std::printf("bytes around a message of %3zu: %.2f\n", size,
                double(link.a.bytes - before) / kExchanges - double(size));
}

void slowLine(HostLinkDuration delay)
{
    SlowLineRun run(delay);
    run.run(1000);
    std::printf(
        "115200 bit/s, %lld us each way: bulk at %.2f %% of the line; get p99 %.1f ms; %llu repeated\n",
        static_cast<long long>(std::chrono::duration_cast<std::chrono::microseconds>(delay).count()),
        100 * run.bulkRate() / SlowLineRun::kLineRate,
        std::chrono::duration<double, std::milli>(run.slowGet()).count(),
        static_cast<unsigned long long>(run.repeated()));
}

/// Messages of 32 KiB over the slow line, each when the one before is there, as chunks of files go.
void damagedLine(double damagedFullFrames)
{
    constexpr int kMessages = 20;
    SimulatedLink::Faults faults;
    faults.bytesPerSecond = SlowLineRun::kLineRate;
    faults.flip = 1 - std::pow(1 - damagedFullFrames, 1.0 / HostLinkFrame::kMaxEncoded);
    SimulatedLink link(faults);
    link.lineUp();
    link.run(3s);
    const HostLinkTime begin = link.now;
    for (std::uint32_t i = 0; i < kMessages; ++i) {
        link.a->send(bulk(i, 32'768), link.now);
        link.runUntil([&] { return link.b.received.size() > i; }, 10min);
    }
    std::printf("115200 bit/s, %2.0f %% of the full frames damaged: 32 KiB in %.1f s; %llu repeated\n",
                100 * damagedFullFrames, std::chrono::duration<double>(link.now - begin).count() / kMessages,
                static_cast<unsigned long long>(link.a->counters().framesRepeated));
}

void idle()
{
    constexpr int kSeconds = 600;
    SimulatedLink link;
    link.lineUp();
    link.run(5s);
    const std::uint64_t before[] = {link.a.wakeUps, link.b.wakeUps};
    link.run(std::chrono::seconds(kSeconds));
    std::printf("idle: %.2f and %.2f wake-ups a second\n", double(link.a.wakeUps - before[0]) / kSeconds,
                double(link.b.wakeUps - before[1]) / kSeconds);
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
            ends[1 - from].handled(MessageClass::State, got.size(), now);
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
    std::uint64_t lines = 0;
    HostLinkTrace::setSink([&](const std::string&) { ++lines; });
    const double traced = roundTrip(kRounds / 10);
    HostLinkTrace::setSink({});
    std::printf(
        "a message there and one back: %.0f ns, of which %d trace points nobody listens to %.1f ns (%.2f "
        "%%); %.0f ns traced, %llu lines\n",
        trip, kPoints, points, 100 * points / trip, traced, static_cast<unsigned long long>(lines));
}

} // namespace

int main()
{
    for (const std::size_t size : {2, 20, 247, 248, 500}) {
        overhead(size);
    }
    slowLine(100us);
    slowLine(5ms);
    for (const double damaged : {0.0, 0.1, 0.3, 0.5, 0.7}) {
        damagedLine(damaged);
    }
    idle();
    trace();
}
