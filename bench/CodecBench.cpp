// Encodes or decodes the reply of ten values (6 x u8, u32, i32, i64, a text of 20 bytes) with the link's
// value message, beside a copy of the same bytes and a codec written by hand for just these values, which
// checks what a reader has to check. Instructions are counted by running this under callgrind (bench/run).
//
// usage: codec_bench own|hand|memcpy encode|decode [COUNT]

#include "Codec.h"
#include "platform/hostlink/BigEndian.h"
#include "platform/hostlink/HostLinkValueMessage.h"

namespace
{

class OwnCodec
{
public:
    void encode(const TenValues& values)
    {
        m_built.restart(MSG_GetStateResponse);
        for (std::uint16_t i = 0; i < 6; ++i) {
            m_built.addValueUint8(i, values.bytes[i]);
        }
        m_built.addValueUint32(6, values.u32);
        m_built.addValueInt32(7, values.i32);
        m_built.addValueInt64(8, values.i64);
        m_built.addValueString(9, values.text);
        opaque(m_built.serialize().data());
        if (m_bytes.empty()) {
            m_bytes = m_built.serialize();
        }
    }

    void decode(TenValues* values)
    {
        m_read.restart(m_bytes);
        bool ok = m_read.size() == 10;
        for (int i = 0; i < 6 && ok; ++i) {
            values->bytes[i] = m_read.getUint8(i, &ok);
        }
        bool oks[4];
        values->u32 = m_read.getUint32(6, &oks[0]);
        values->i32 = m_read.getInt32(7, &oks[1]);
        values->i64 = m_read.getInt64(8, &oks[2]);
        values->text = m_read.getStringView(9, &oks[3]);
        if (!ok || !oks[0] || !oks[1] || !oks[2] || !oks[3]) {
            throw std::runtime_error("not ten values");
        }
    }

private:
    ByteArray m_bytes;

    // Kept, as the worker keeps those that it builds and reads.
    HostLinkValueMessage m_built{MSG_GetStateResponse};
    HostLinkValueMessage m_read{MSG_GetStateResponse};
};

/// The same bytes as the link's, into memory that is there already.
class HandCodec
{
public:
    void encode(const TenValues& values)
    {
        std::uint8_t* at = m_bytes;
        writeBigEndian<std::uint16_t>(at, MSG_GetStateResponse);
        at += 2;
        for (std::uint16_t i = 0; i < 6; ++i) {
            at = head(at, i, 0xCC);
            *at++ = values.bytes[i];
        }
        at = number(head(at, 6, 0xCE), values.u32);
        at = number(head(at, 7, 0xD2), values.i32);
        at = number(head(at, 8, 0xD3), values.i64);
        const std::size_t left = std::size_t(m_bytes + sizeof m_bytes - at);
        if (values.text.size() + 5 > left) {
            throw std::runtime_error("the text is too long");
        }
        at = number(head(at, 9, 0xDA), std::uint16_t(values.text.size()));
        std::memcpy(at, values.text.data(), values.text.size());
        m_end = at + values.text.size();
        opaque(m_bytes);
    }

    void decode(TenValues* values) const
    {
        const std::uint8_t* at = m_bytes + 2;
        constexpr std::size_t kNumbers = 2 + 6 * 4 + 2 * 7 + 11 + 5;
        if (std::size_t(m_end - m_bytes) < kNumbers
            || readBigEndian<std::uint16_t>(m_bytes) != MSG_GetStateResponse) {
            throw std::runtime_error("not ten values");
        }
        for (std::uint16_t i = 0; i < 6; ++i) {
            at = check(at, i, 0xCC);
            values->bytes[i] = *at++;
        }
        at = check(at, 6, 0xCE);
        values->u32 = readBigEndian<std::uint32_t>(at);
        at = check(at + 4, 7, 0xD2);
        values->i32 = readBigEndian<std::int32_t>(at);
        at = check(at + 4, 8, 0xD3);
        values->i64 = readBigEndian<std::int64_t>(at);
        at = check(at + 8, 9, 0xDA);
        const std::size_t size = readBigEndian<std::uint16_t>(at);
        if (size != std::size_t(m_end - at - 2)) {
            throw std::runtime_error("the text is cut off");
        }
        values->text.assign(reinterpret_cast<const char*>(at + 2), size);
    }

private:
    static std::uint8_t* head(std::uint8_t* at, std::uint16_t tag, std::uint8_t encoding)
    {
        writeBigEndian(at, tag);
        at[2] = encoding;
        return at + 3;
    }

    template <typename Integer>
    static std::uint8_t* number(std::uint8_t* at, Integer value)
    {
        writeBigEndian(at, value);
        return at + sizeof value;
    }

    static const std::uint8_t* check(const std::uint8_t* at, std::uint16_t tag, std::uint8_t encoding)
    {
        if (readBigEndian<std::uint16_t>(at) != tag || at[2] != encoding) {
            throw std::runtime_error("not ten values");
        }
        return at + 3;
    }

    std::uint8_t m_bytes[128];
    const std::uint8_t* m_end = m_bytes;
};

/// No codec: as many bytes copied.
void reportCopy(int count)
{
    char from[76] = {};
    char to[sizeof from];
    reportLoop(count, [&] {
        opaque(from);
        std::memcpy(to, from, sizeof to);
        opaque(to);
    });
}

} // namespace

int main(int argc, char** argv)
{
    return runCodecs(argc, argv, [](const std::string& codec, const std::string& what, int count) {
        if (codec == "hand") {
            reportCodec(HandCodec(), what, count);
        } else if (codec == "memcpy") {
            reportCopy(count);
        } else {
            reportCodec(OwnCodec(), what, count);
        }
    });
}
