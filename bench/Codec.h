#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Processes.h"

// The reply of ten values, built and read again by any codec.

struct TenValues {
    std::uint8_t bytes[6];
    std::uint32_t u32;
    std::int32_t i32;
    std::int64_t i64;
    std::string text;

    static TenValues some()
    {
        return {{1, 2, 3, 4, 5, 6}, 4000000000U, -5, 123456789012, "twenty bytes of name"};
    }

    bool operator==(const TenValues& other) const
    {
        return std::memcmp(bytes, other.bytes, sizeof bytes) == 0 && u32 == other.u32 && i32 == other.i32
               && i64 == other.i64 && text == other.text;
    }
};

/// Keeps the compiler from knowing what memory holds, and from leaving out what writes there.
inline void opaque(const void* memory)
{
    asm volatile("" : : "g"(memory) : "memory");
}

/// Reports the processor time of one call of `work`, whatever else the machine does.
template <typename Work>
void reportLoop(int count, Work work)
{
    const double begin = processorSeconds(0);
    for (int i = 0; i < count; ++i) {
        work();
    }
    report("ns", 1e9 * (processorSeconds(0) - begin) / count);
}

/// Encodes or decodes again and again. A codec has
///     void encode(const TenValues&)     keeps the bytes
///     void decode(TenValues*)           reads them; throws when they are not ten values
template <typename Codec>
void reportCodec(Codec codec, const std::string& what, int count)
{
    TenValues values = TenValues::some();
    TenValues decoded{};
    codec.encode(values);
    codec.decode(&decoded);
    if (!(decoded == values)) {
        throw std::runtime_error("what was decoded is not what was encoded");
    }
    if (what == "encode") {
        reportLoop(count, [&] {
            opaque(&values);
            codec.encode(values);
        });
    } else {
        reportLoop(count, [&] {
            codec.decode(&decoded);
            opaque(&decoded);
        });
    }
}

/// The main function of a program of codecs, called with CODEC encode|decode [COUNT]; `measure` gets these.
template <typename Measure>
int runCodecs(int argc, char** argv, Measure measure)
{
    return runBench([&] {
        const std::string codec = argc > 1 ? argv[1] : "";
        const std::string what = argc > 2 ? argv[2] : "encode";
        measure(codec, what, argc > 3 ? std::atoi(argv[3]) : 1000000);
    });
}
