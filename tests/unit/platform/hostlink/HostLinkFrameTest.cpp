#include "platform/hostlink/HostLinkFrame.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <vector>

#include "platform/hostlink/ByteArray.h"
#include "platform/hostlink/DataTransferCrc32.h"

namespace
{

using Result = HostLinkFrameDecoder::Result;

/// A frame with memory of its own.
struct Copy {
    std::uint8_t control = 0;
    std::uint8_t sequence = 0;
    std::uint8_t acknowledgement = 0;
    ByteArray payload;

    bool operator==(const Copy& other) const
    {
        return control == other.control && sequence == other.sequence
               && acknowledgement == other.acknowledgement && payload == other.payload;
    }
};

ByteArray encode(const Copy& copy, bool zeroFirst = false)
{
    HostLinkFrame frame;
    frame.control = copy.control;
    frame.sequence = copy.sequence;
    frame.acknowledgement = copy.acknowledgement;
    frame.payload = copy.payload.data();
    frame.size = copy.payload.size();
    HostLinkFrameEncoder encoder;
    encoder.encode(frame, zeroFirst);
    return ByteArray(encoder.data(), encoder.data() + encoder.size());
}

/// A frame of any length, and the zero behind it.
ByteArray encodeAny(const Copy& copy)
{
    ByteArray raw{copy.control, copy.sequence, copy.acknowledgement};
    raw.insert(raw.end(), copy.payload.begin(), copy.payload.end());
    std::array<std::uint32_t, 256> table{};
    genDataTransferCrc32Table(table.data(), std::uint16_t(table.size()));
    const std::uint32_t crc = dataTransferCalcCrc32(table.data(), std::uint16_t(table.size()), raw.data(),
                                                    std::uint32_t(raw.size()));
    for (const int shift : {24, 16, 8, 0}) {
        raw.push_back(std::uint8_t(crc >> shift));
    }
    ByteArray bytes;
    std::size_t code = 0; // its place
    const auto beginBlock = [&] {
        code = bytes.size();
        bytes.push_back(1);
    };
    beginBlock();
    for (const std::uint8_t byte : raw) {
        if (bytes[code] == 0xFF) {
            beginBlock();
        }
        if (byte == 0) {
            beginBlock();
        } else {
            bytes.push_back(byte);
            ++bytes[code];
        }
    }
    bytes.push_back(0);
    return bytes;
}

Copy frameWith(ByteArray payload)
{
    return {0xB0, 7, 9, std::move(payload)};
}

struct Decoded {
    std::vector<Copy> frames;
    int damaged = 0;
};

void feed(HostLinkFrameDecoder& decoder, const ByteArray& bytes, Decoded& to)
{
    const std::uint8_t* at = bytes.data();
    for (;;) {
        const Result result = decoder.next(at, bytes.data() + bytes.size());
        if (result == Result::More) {
            return;
        }
        if (result == Result::Damaged) {
            ++to.damaged;
            continue;
        }
        const HostLinkFrame& frame = decoder.frame();
        to.frames.push_back({frame.control, frame.sequence, frame.acknowledgement,
                             ByteArray(frame.payload, frame.payload + frame.size)});
    }
}

Decoded decode(const ByteArray& bytes, std::size_t portion = SIZE_MAX)
{
    HostLinkFrameDecoder decoder;
    Decoded decoded;
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t size = std::min(portion, bytes.size() - at);
        feed(decoder,
             ByteArray(bytes.begin() + std::ptrdiff_t(at), bytes.begin() + std::ptrdiff_t(at + size)),
             decoded);
        at += size;
    }
    return decoded;
}

void append(ByteArray& to, const ByteArray& bytes)
{
    to.insert(to.end(), bytes.begin(), bytes.end());
}

ByteArray randomBytes(std::mt19937& random, std::size_t size, unsigned kinds)
{
    ByteArray bytes(size);
    for (std::uint8_t& byte : bytes) {
        byte = static_cast<std::uint8_t>(random() % kinds);
    }
    return bytes;
}

TEST(HostLinkFrame, ComesOutAsItWentInForEverySizeAndPortion)
{
    std::mt19937 random(1);
    for (std::size_t size = 0; size <= HostLinkFrame::kMaxPayload; ++size) {
        for (const unsigned kinds : {1U, 2U, 256U}) {
            const Copy frame = frameWith(randomBytes(random, size, kinds));
            for (const std::size_t portion : {std::size_t(1), std::size_t(100), SIZE_MAX}) {
                const Decoded decoded = decode(encode(frame), portion);
                ASSERT_EQ(decoded.frames.size(), 1U) << size;
                ASSERT_EQ(decoded.frames[0], frame) << size;
                ASSERT_EQ(decoded.damaged, 0) << size;
            }
        }
    }
}

TEST(HostLinkFrame, HoldsNoZeroButAtItsEnds)
{
    const ByteArray bytes = encode(frameWith(ByteArray(501, 0)), true);
    EXPECT_EQ(bytes.front(), 0);
    EXPECT_EQ(bytes.back(), 0);
    EXPECT_EQ(std::count(bytes.begin(), bytes.end(), 0), 2);
}

TEST(HostLinkFrame, CostsNineBytesUpTo247AndTenUpTo501)
{
    for (std::size_t size = 0; size <= 501; ++size) {
        ASSERT_LE(encode(frameWith(ByteArray(size, 0xAA))).size(), size + (size <= 247 ? 9 : 10)) << size;
    }
    EXPECT_EQ(encode(frameWith(ByteArray(247, 0xAA))).size(), 256U);
    EXPECT_EQ(encode(frameWith(ByteArray(501, 0xAA))).size(), 511U);
}

TEST(HostLinkFrame, CutsAPayloadThatIsTooLong)
{
    const Decoded decoded = decode(encode(frameWith(ByteArray(600, 1))));
    ASSERT_EQ(decoded.frames.size(), 1U);
    EXPECT_EQ(decoded.frames[0].payload, ByteArray(501, 1));
}

TEST(HostLinkFrame, IsKnownByItsCrc)
{
    // control, sequence and acknowledgement 01 02 03, then zlib's crc32 of these three.
    EXPECT_EQ(encode({1, 2, 3, {}}), (ByteArray{8, 1, 2, 3, 0x55, 0xBC, 0x80, 0x1D, 0}));
}

TEST(HostLinkFrame, AnySingleTurnedBitIsSeen)
{
    const Copy frame = frameWith({1, 0, 2, 0, 0, 3});
    const ByteArray whole = encode(frame);
    for (std::size_t bit = 0; bit < 8 * whole.size(); ++bit) {
        ByteArray bytes = whole;
        bytes[bit / 8] ^= static_cast<std::uint8_t>(1U << (bit % 8));
        append(bytes, {0});
        append(bytes, whole);
        const Decoded decoded = decode(bytes);
        ASSERT_EQ(decoded.frames.size(), 1U) << bit;
        ASSERT_EQ(decoded.frames[0], frame) << bit;
        ASSERT_GE(decoded.damaged, 1) << bit;
    }
}

TEST(HostLinkFrame, AMissingBeginningOrEndCostsOneFrame)
{
    const ByteArray whole = encode(frameWith({5, 6, 7, 8}));
    for (std::size_t cut = 1; cut < whole.size(); ++cut) {
        ByteArray bytes(whole.begin() + std::ptrdiff_t(cut), whole.end());
        append(bytes, whole);
        EXPECT_EQ(decode(bytes).frames.size(), 1U) << cut;

        bytes.assign(whole.begin(), whole.end() - std::ptrdiff_t(cut));
        append(bytes, encode(frameWith({9}), true));
        EXPECT_EQ(decode(bytes).frames.size(), cut == 1 ? 2U : 1U) << cut;
    }
}

TEST(HostLinkFrame, GarbageCannotSwallowAFrameThatBeginsWithZero)
{
    ByteArray bytes(1000, 0x55);
    append(bytes, encode(frameWith({1}), true));
    const Decoded decoded = decode(bytes, 7);
    EXPECT_EQ(decoded.frames.size(), 1U);
    EXPECT_EQ(decoded.damaged, 1);
}

TEST(HostLinkFrame, ZerosBetweenFramesMeanNothing)
{
    ByteArray bytes(300, 0);
    append(bytes, encode(frameWith({1})));
    append(bytes, ByteArray(300, 0));
    const Decoded decoded = decode(bytes);
    EXPECT_EQ(decoded.frames.size(), 1U);
    EXPECT_EQ(decoded.damaged, 0);
}

TEST(HostLinkFrame, AnEndlessFrameIsDroppedAndTheNextOneFound)
{
    HostLinkFrameDecoder decoder;
    Decoded decoded;
    for (int i = 0; i < 1000; ++i) {
        feed(decoder, ByteArray(1000, 0xFF), decoded);
    }
    feed(decoder, {0}, decoded);
    feed(decoder, encode(frameWith({1})), decoded);
    EXPECT_EQ(decoded.damaged, 1);
    EXPECT_EQ(decoded.frames.size(), 1U);
}

TEST(HostLinkFrame, AFrameOneByteTooLongIsDropped)
{
    // Right but for its length. With zeros its bytes on the line are no more than a frame's may be, without
    // them they are two more.
    for (const auto& [content, size] : {std::pair(0x00, 510U), std::pair(0xAA, 512U)}) {
        const Copy longest = frameWith(ByteArray(501, std::uint8_t(content)));
        EXPECT_EQ(encodeAny(longest), encode(longest));
        const ByteArray bytes = encodeAny(frameWith(ByteArray(502, std::uint8_t(content))));
        EXPECT_EQ(bytes.size(), size + 1);
        for (const std::size_t portion : {std::size_t(1), std::size_t(509), SIZE_MAX}) {
            const Decoded decoded = decode(bytes, portion);
            EXPECT_EQ(decoded.damaged, 1);
            EXPECT_TRUE(decoded.frames.empty());
        }
    }
}

TEST(HostLinkFrame, ShortPiecesAreNoFrames)
{
    for (std::size_t size = 1; size < 8; ++size) {
        ByteArray bytes(size, 1);
        bytes.push_back(0);
        const Decoded decoded = decode(bytes);
        EXPECT_EQ(decoded.damaged, 1) << size;
        EXPECT_TRUE(decoded.frames.empty()) << size;
    }
}

TEST(HostLinkFrame, ForgetsABegunFrame)
{
    const ByteArray whole = encode(frameWith({1, 2, 3}));
    HostLinkFrameDecoder decoder;
    Decoded decoded;
    feed(decoder, ByteArray(whole.begin(), whole.begin() + 4), decoded);
    decoder.reset();
    feed(decoder, whole, decoded);
    EXPECT_EQ(decoded.frames.size(), 1U);
    EXPECT_EQ(decoded.damaged, 0);
}

} // namespace
