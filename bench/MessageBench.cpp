// Building and reading the reply of ten values (6 x u8, u32, i32, i64, a 20-byte string), against a copy of
// the same bytes.

#include <benchmark/benchmark.h>

#include <cstring>

#include "platform/hostlink/HostLinkValueMessage.h"

namespace
{

HostLinkValueMessage tenValues()
{
    HostLinkValueMessage message(MSG_GetStateResponse);
    for (std::uint16_t tag = 1; tag <= 6; ++tag) {
        message.addValueUint8(tag, std::uint8_t(tag));
    }
    message.addValueUint32(7, 4000000000u);
    message.addValueInt32(8, -5);
    message.addValueInt64(9, 123456789012);
    message.addValueString(10, "twenty bytes of name");
    return message;
}

void copy(benchmark::State& state)
{
    const ByteArray bytes = tenValues().serialize();
    ByteArray to(bytes.size());
    for (auto _ : state) {
        std::memcpy(to.data(), bytes.data(), bytes.size());
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(copy);

void build(benchmark::State& state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(tenValues().serialize().data());
    }
}
BENCHMARK(build);

void parseAndRead(benchmark::State& state)
{
    const ByteArray bytes = tenValues().serialize();
    for (auto _ : state) {
        const HostLinkValueMessage message(bytes);
        std::uint64_t sum = 0;
        for (int i = 0; i < 6; ++i) {
            sum += message.getUint8(i);
        }
        sum += message.getUint32(6) + std::uint64_t(message.getInt32(7)) + std::uint64_t(message.getInt64(8));
        sum += message.getString(9).size();
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(parseAndRead);

} // namespace
