#include "platform/hostlink/DataTransferCrc32.h"

#include <libdeflate.h>

#include <algorithm>

namespace
{

constexpr std::uint32_t kPolynomial = 0xEDB88320; ///< lowest bit first
constexpr std::uint32_t kTableWords = 256;

std::uint32_t contributionOf(std::uint32_t byte)
{
    for (int bit = 0; bit < 8; ++bit) {
        byte = (byte & 1) != 0 ? byte >> 1 ^ kPolynomial : byte >> 1;
    }
    return byte;
}

} // namespace

std::uint32_t dataTransferCrc32TableSize()
{
    return kTableWords;
}

void genDataTransferCrc32Table(std::uint32_t* table, std::uint16_t size)
{
    const std::uint32_t words = std::min<std::uint32_t>(size, kTableWords);
    for (std::uint32_t byte = 0; byte < words; ++byte) {
        table[byte] = contributionOf(byte);
    }
}

std::uint32_t dataTransferCalcCrc32(const std::uint32_t* /*table*/, std::uint16_t /*tableSize*/,
                                    const std::uint8_t* data, std::uint32_t length)
{
    return libdeflate_crc32(0, data, length);
}
