// A file pushed over a serial line of 115,200 bit/s (11,520 bytes/s) that takes 5 ms each way, on simulated
// time: both real ends of the link, chunks and answers as data transfer sends them. Prints the share of the
// line's bytes that are the file's. It stops and waits: while an answer is on its way, nothing of the file
// is.

#include <cstdio>

#include "platform/hostlink/HostLinkValueMessage.h"
#include "support/SimulatedLink.h"

using namespace std::chrono_literals;

namespace
{

constexpr std::uint64_t kBytesPerSecond = 11'520;
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

double share(std::size_t chunkSize)
{
    SimulatedLink::Faults line;
    line.delay = 5ms;
    line.bytesPerSecond = kBytesPerSecond;
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
    return double(chunks) * double(chunkSize) / seconds / double(kBytesPerSecond);
}

} // namespace

int main()
{
    for (const std::size_t size : {std::size_t{128}, std::size_t{4096}, std::size_t{32768}}) {
        std::printf("chunks of %5zu bytes: %.1f %% of the line\n", size, 100 * share(size));
    }
    return 0;
}
