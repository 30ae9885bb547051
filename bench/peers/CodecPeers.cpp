// The reply of ten values in other codecs: msgpuck and msgpack-c write them as an array of MessagePack
// values, protobuf as a message with a field each.
//
// usage: codec_peers msgpuck|msgpack-c|protobuf encode|decode [COUNT]

#include <msgpack.h>
#include <msgpuck.h>

#include "Codec.h"
#include "TenValues.pb.h"

namespace
{

[[noreturn]] void fail()
{
    throw std::runtime_error("not ten values");
}

class MsgpuckCodec
{
public:
    void encode(const TenValues& values)
    {
        char* at = mp_encode_array(m_bytes, 10);
        for (const std::uint8_t byte : values.bytes) {
            at = mp_encode_uint(at, byte);
        }
        at = mp_encode_uint(at, values.u32);
        at = mp_encode_int(at, values.i32);
        at = mp_encode_uint(at, std::uint64_t(values.i64));
        at = mp_encode_str(at, values.text.data(), std::uint32_t(values.text.size()));
        m_end = at;
        opaque(m_bytes);
    }

    void decode(TenValues* values) const
    {
        const char* at = m_bytes;
        if (mp_check(&at, m_end) != 0) {
            fail();
        }
        at = m_bytes;
        if (mp_typeof(*at) != MP_ARRAY || mp_decode_array(&at) != 10) {
            fail();
        }
        for (std::uint8_t& byte : values->bytes) {
            byte = std::uint8_t(number(&at));
        }
        values->u32 = std::uint32_t(number(&at));
        if (mp_typeof(*at) != MP_INT) {
            fail();
        }
        values->i32 = std::int32_t(mp_decode_int(&at));
        values->i64 = std::int64_t(number(&at));
        if (mp_typeof(*at) != MP_STR) {
            fail();
        }
        std::uint32_t size = 0;
        const char* text = mp_decode_str(&at, &size);
        values->text.assign(text, size);
    }

private:
    static std::uint64_t number(const char** at)
    {
        if (mp_typeof(**at) != MP_UINT) {
            fail();
        }
        return mp_decode_uint(at);
    }

    char m_bytes[128];
    const char* m_end = m_bytes;
};

class MsgpackCodec
{
public:
    MsgpackCodec() { msgpack_sbuffer_init(&m_bytes); }

    void encode(const TenValues& values)
    {
        msgpack_sbuffer_clear(&m_bytes);
        msgpack_packer packer;
        msgpack_packer_init(&packer, &m_bytes, msgpack_sbuffer_write);
        msgpack_pack_array(&packer, 10);
        for (const std::uint8_t byte : values.bytes) {
            msgpack_pack_uint8(&packer, byte);
        }
        msgpack_pack_uint32(&packer, values.u32);
        msgpack_pack_int32(&packer, values.i32);
        msgpack_pack_int64(&packer, values.i64);
        msgpack_pack_str(&packer, values.text.size());
        msgpack_pack_str_body(&packer, values.text.data(), values.text.size());
        opaque(m_bytes.data);
    }

    void decode(TenValues* values) const
    {
        msgpack_unpacked unpacked;
        msgpack_unpacked_init(&unpacked);
        const bool whole =
            msgpack_unpack_next(&unpacked, m_bytes.data, m_bytes.size, nullptr) == MSGPACK_UNPACK_SUCCESS;
        const msgpack_object& object = unpacked.data;
        if (!whole || object.type != MSGPACK_OBJECT_ARRAY || object.via.array.size != 10) {
            fail();
        }
        const msgpack_object* at = object.via.array.ptr;
        for (std::uint8_t& byte : values->bytes) {
            byte = std::uint8_t(number(*at++));
        }
        values->u32 = std::uint32_t(number(*at++));
        if (at->type != MSGPACK_OBJECT_NEGATIVE_INTEGER) {
            fail();
        }
        values->i32 = std::int32_t((at++)->via.i64);
        values->i64 = std::int64_t(number(*at++));
        if (at->type != MSGPACK_OBJECT_STR) {
            fail();
        }
        values->text.assign(at->via.str.ptr, at->via.str.size);
        msgpack_unpacked_destroy(&unpacked);
    }

private:
    static std::uint64_t number(const msgpack_object& object)
    {
        if (object.type != MSGPACK_OBJECT_POSITIVE_INTEGER) {
            fail();
        }
        return object.via.u64;
    }

    msgpack_sbuffer m_bytes;
};

class ProtobufCodec
{
public:
    void encode(const TenValues& values)
    {
        bench::TenValues message;
        message.set_a(values.bytes[0]);
        message.set_b(values.bytes[1]);
        message.set_c(values.bytes[2]);
        message.set_d(values.bytes[3]);
        message.set_e(values.bytes[4]);
        message.set_f(values.bytes[5]);
        message.set_u32(values.u32);
        message.set_i32(values.i32);
        message.set_i64(values.i64);
        message.set_text(values.text);
        message.SerializeToString(&m_bytes);
        opaque(m_bytes.data());
    }

    void decode(TenValues* values) const
    {
        bench::TenValues message;
        if (!message.ParseFromString(m_bytes)) {
            fail();
        }
        const std::uint32_t bytes[] = {message.a(), message.b(), message.c(),
                                       message.d(), message.e(), message.f()};
        for (int i = 0; i < 6; ++i) {
            values->bytes[i] = std::uint8_t(bytes[i]);
        }
        values->u32 = message.u32();
        values->i32 = message.i32();
        values->i64 = message.i64();
        values->text = message.text();
    }

private:
    std::string m_bytes;
};

} // namespace

int main(int argc, char** argv)
{
    return runCodecs(argc, argv, [](const std::string& codec, const std::string& what, int count) {
        if (codec == "protobuf") {
            reportCodec(ProtobufCodec(), what, count);
        } else if (codec == "msgpack-c") {
            reportCodec(MsgpackCodec(), what, count);
        } else {
            reportCodec(MsgpuckCodec(), what, count);
        }
    });
}
