#include "platform/hostlink/DataTransferCrc32.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

namespace
{

constexpr std::uint32_t kPolynomial = 0xEDB88320; ///< lowest bit first

// The bytes are taken in words. Word i belongs to lane i modulo kLanes: each lane goes over its own words,
// so that the processor works on all lanes at a time, and in the end the lanes are joined.
constexpr std::uint32_t kWord = 8;
constexpr std::uint32_t kLanes = 4;
constexpr std::uint32_t kBlock = kLanes * kWord;

// The table holds slices of 256 words: what each byte contributes to the CRC when a number of bytes follow
// it. Slice s of the first kWord is for s following bytes, slice s of the second for a whole block less
// one word more than that.
constexpr std::uint32_t kSlice = 256;
constexpr std::uint32_t kJoin = 0;
constexpr std::uint32_t kStride = kWord * kSlice;
constexpr std::uint32_t kTableWords = 2 * kWord * kSlice;
static_assert(kTableWords <= 0xFFFF, "the size travels as 16 bits");

std::uint32_t contributionOf(std::uint32_t byte)
{
    for (int bit = 0; bit < 8; ++bit) {
        byte = (byte & 1) != 0 ? byte >> 1 ^ kPolynomial : byte >> 1;
    }
    return byte;
}

/// The slice of which each word is for `more` bytes more than the one before it.
void addFollowing(std::array<std::uint32_t, kSlice>& slice, std::uint32_t more)
{
    for (std::uint32_t& word : slice) {
        for (std::uint32_t i = 0; i < more; ++i) {
            word = word >> 8 ^ contributionOf(word & 0xFF);
        }
    }
}

// Written without loops, which the compiler would not unroll: these are where the time goes.

template <std::size_t... I>
std::uint64_t readWord(const std::uint8_t* bytes, std::index_sequence<I...>)
{
    return ((std::uint64_t{bytes[I]} << 8 * I) | ...);
}

/// What the bytes of a word contribute, by the slices for its bytes from the last to the first.
template <std::size_t... I>
[[gnu::always_inline]] inline std::uint32_t contributionOf(const std::uint32_t* slices, std::uint64_t word,
                                                           std::index_sequence<I...>)
{
    return (slices[(kWord - 1 - I) * kSlice + (word >> 8 * I & 0xFF)] ^ ...);
}

[[gnu::always_inline]] inline std::uint32_t takeWord(const std::uint32_t* slices, std::uint32_t crc,
                                                     const std::uint8_t* bytes)
{
    constexpr auto eachByte = std::make_index_sequence<kWord>();
    return contributionOf(slices, crc ^ readWord(bytes, eachByte), eachByte);
}

using Lanes = std::array<std::uint32_t, kLanes>;

template <std::size_t... I>
void takeBlock(const std::uint32_t* slices, Lanes& lanes, const std::uint8_t* bytes,
               std::index_sequence<I...>)
{
    ((lanes[I] = takeWord(slices, lanes[I], bytes + I * kWord)), ...);
}

/// Goes over whole blocks and returns how many bytes those are.
std::uint32_t takeBlocks(const std::uint32_t* table, const std::uint8_t* data, std::uint32_t length,
                         std::uint32_t& crc)
{
    const std::uint32_t whole = length - length % kBlock;
    if (whole == 0) {
        return 0;
    }
    Lanes lanes{crc};
    const std::uint8_t* const lastBlock = data + whole - kBlock;
    for (; data < lastBlock; data += kBlock) {
        takeBlock(table + kStride, lanes, data, std::make_index_sequence<kLanes>());
    }
    crc = 0;
    for (std::uint32_t lane = 0; lane < kLanes; ++lane) {
        crc = takeWord(table + kJoin, crc ^ lanes[lane], data + lane * kWord);
    }
    return whole;
}

} // namespace

std::uint32_t dataTransferCrc32TableSize()
{
    return kTableWords;
}

void genDataTransferCrc32Table(std::uint32_t* table, std::uint16_t size)
{
    std::array<std::uint32_t, kSlice> slice{};
    for (std::uint32_t byte = 0; byte < kSlice; ++byte) {
        slice[byte] = contributionOf(byte);
    }
    const std::uint32_t words = std::min<std::uint32_t>(size, kTableWords);
    for (std::uint32_t begin = 0; begin < words; begin += kSlice) {
        const std::uint32_t count = std::min(kSlice, words - begin);
        std::copy_n(slice.begin(), count, table + begin);
        addFollowing(slice, begin + kSlice == kStride ? kBlock - 2 * kWord + 1 : 1);
    }
}

std::uint32_t dataTransferCalcCrc32(const std::uint32_t* table, std::uint16_t tableSize,
                                    const std::uint8_t* data, std::uint32_t length)
{
    std::uint32_t crc = 0xFFFFFFFF;
    if (tableSize >= kTableWords) {
        const std::uint32_t taken = takeBlocks(table, data, length, crc);
        data += taken;
        length -= taken;
    }
    for (; length > 0; --length, ++data) {
        crc = crc >> 8 ^ table[(crc ^ *data) & 0xFF];
    }
    return ~crc;
}
