// The CRC-32 of frames and of a data transfer's chunks, against zlib's of the same bytes.

#include <benchmark/benchmark.h>
#include <zlib.h>

#include <random>
#include <vector>

#include "platform/hostlink/ByteArray.h"
#include "platform/hostlink/DataTransferCrc32.h"

namespace
{

ByteArray randomBytes(std::size_t size)
{
    std::mt19937 random(1);
    ByteArray bytes(size);
    for (std::uint8_t& byte : bytes) {
        byte = static_cast<std::uint8_t>(random());
    }
    return bytes;
}

void zlib(benchmark::State& state)
{
    const ByteArray chunk = randomBytes(std::size_t(state.range()));
    for (auto _ : state) {
        benchmark::DoNotOptimize(crc32(0, chunk.data(), uInt(chunk.size())));
    }
    state.SetBytesProcessed(state.iterations() * state.range());
}
BENCHMARK(zlib)->Arg(20)->Arg(80)->Arg(504)->Arg(4096)->Arg(32768);

void dataTransfer(benchmark::State& state)
{
    const ByteArray chunk = randomBytes(std::size_t(state.range()));
    const auto tableSize = static_cast<std::uint16_t>(dataTransferCrc32TableSize());
    std::vector<std::uint32_t> table(tableSize);
    genDataTransferCrc32Table(table.data(), tableSize);
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            dataTransferCalcCrc32(table.data(), tableSize, chunk.data(), std::uint32_t(chunk.size())));
    }
    state.SetBytesProcessed(state.iterations() * state.range());
}
BENCHMARK(dataTransfer)->Arg(20)->Arg(80)->Arg(504)->Arg(4096)->Arg(32768);

} // namespace
