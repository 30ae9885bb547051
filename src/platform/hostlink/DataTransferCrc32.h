#pragma once

#include <cstdint>

// The checksum of a data transfer's chunk: the CRC-32 of IEEE 802.3 (reflected polynomial 0xEDB88320,
// begun with and inverted by 0xFFFFFFFF); the text "123456789" gives 0xCBF43926. Its user keeps a table, for
// libraries that calculate with one. This one leaves it alone: processors have instructions that are faster.

/// Words of the table: what each byte contributes.
std::uint32_t dataTransferCrc32TableSize();

/// Fills a table of dataTransferCrc32TableSize() words. Of a shorter one only the words that it has are
/// filled; those beyond stay as they are.
void genDataTransferCrc32Table(std::uint32_t* table, std::uint16_t size);

/// The CRC-32 of `length` bytes, with a table of any size, also none.
std::uint32_t dataTransferCalcCrc32(const std::uint32_t* table, std::uint16_t tableSize,
                                    const std::uint8_t* data, std::uint32_t length);
