#include "platform/hostlink/DataTransferCrc32.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <random>
#include <string>
#include <vector>

namespace
{

using Table = std::vector<std::uint32_t>;

Table madeTable(std::size_t size = dataTransferCrc32TableSize())
{
    Table table(size);
    genDataTransferCrc32Table(table.data(), static_cast<std::uint16_t>(size));
    return table;
}

std::uint32_t crcOf(const Table& table, const std::string& bytes)
{
    return dataTransferCalcCrc32(table.data(), static_cast<std::uint16_t>(table.size()),
                                 reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                 static_cast<std::uint32_t>(bytes.size()));
}

std::uint32_t zlibCrcOf(const std::string& bytes)
{
    return static_cast<std::uint32_t>(
        crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size())));
}

std::string randomBytes(std::size_t size)
{
    std::mt19937 random(7);
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

TEST(DataTransferCrc32, OfTheCheckTextIsTheStandards)
{
    EXPECT_EQ(crcOf(madeTable(), "123456789"), 0xCBF43926U);
    EXPECT_EQ(crcOf(madeTable(), ""), 0U);
}

TEST(DataTransferCrc32, TheTableSizeTravelsIn16Bits)
{
    EXPECT_GE(dataTransferCrc32TableSize(), 256U);
    EXPECT_LE(dataTransferCrc32TableSize(), 0xFFFFU);
}

TEST(DataTransferCrc32, IsThatOfZlibForEveryLength)
{
    const Table table = madeTable();
    const std::string bytes = randomBytes(400);
    for (std::size_t size = 0; size <= bytes.size(); ++size) {
        ASSERT_EQ(crcOf(table, bytes.substr(0, size)), zlibCrcOf(bytes.substr(0, size))) << size;
    }
}

TEST(DataTransferCrc32, IsThatOfZlibAtEveryAlignmentAndForWholeChunks)
{
    const Table table = madeTable();
    const std::string bytes = randomBytes(32768 + 40);
    for (std::size_t begin = 0; begin < 40; ++begin) {
        const std::string chunk = bytes.substr(begin, 32768);
        ASSERT_EQ(dataTransferCalcCrc32(table.data(), static_cast<std::uint16_t>(table.size()),
                                        reinterpret_cast<const std::uint8_t*>(bytes.data()) + begin, 32768),
                  zlibCrcOf(chunk))
            << begin;
    }
}

TEST(DataTransferCrc32, OneTurnedBitChangesIt)
{
    const Table table = madeTable();
    const std::string bytes(128, '\x55');
    for (std::size_t bit = 0; bit < bytes.size() * 8; ++bit) {
        std::string turned = bytes;
        turned[bit / 8] = static_cast<char>(turned[bit / 8] ^ 1 << bit % 8);
        ASSERT_NE(crcOf(table, turned), crcOf(table, bytes)) << bit;
    }
}

TEST(DataTransferCrc32, ATableOf256WordsServesToo)
{
    const std::string bytes = randomBytes(1000);
    EXPECT_EQ(crcOf(madeTable(256), bytes), zlibCrcOf(bytes));
    EXPECT_EQ(madeTable(256)[1], 0x77073096U);
}

TEST(DataTransferCrc32, NothingIsWrittenBehindTheTable)
{
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{255}, std::size_t{300}}) {
        Table table(size + 1, 0xA5A5A5A5);
        genDataTransferCrc32Table(table.data(), static_cast<std::uint16_t>(size));
        EXPECT_EQ(table.back(), 0xA5A5A5A5U) << size;
    }
    Table larger(dataTransferCrc32TableSize() + 10, 0xA5A5A5A5);
    genDataTransferCrc32Table(larger.data(), static_cast<std::uint16_t>(larger.size()));
    EXPECT_EQ(larger[dataTransferCrc32TableSize()], 0xA5A5A5A5U);
}

} // namespace
