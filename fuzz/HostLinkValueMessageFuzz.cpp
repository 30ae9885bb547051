#include <algorithm>

#include "FuzzInput.h"
#include "platform/hostlink/HostLinkPrinter.h"
#include "platform/hostlink/HostLinkValueMessage.h"

namespace
{

/// Reads value i by its own reader, checks that it is the only one that accepts it, and writes it again.
void copyValue(const HostLinkValueMessage& from, int i, HostLinkValueMessage* to)
{
    bool int8 = false, uint8 = false, uint16 = false, int32 = false, uint32 = false, int64 = false;
    bool text = false, bin = false;
    const std::int8_t int8Value = from.getInt8(i, &int8);
    const std::uint8_t uint8Value = from.getUint8(i, &uint8);
    const std::uint16_t uint16Value = from.getUint16(i, &uint16);
    const std::int32_t int32Value = from.getInt32(i, &int32);
    const std::uint32_t uint32Value = from.getUint32(i, &uint32);
    const std::int64_t int64Value = from.getInt64(i, &int64);
    const std::string textValue = from.getString(i, &text);
    const ByteArray binValue = from.getBin16(i, &bin);
    const int readers = int8 + uint8 + uint16 + int32 + uint32 + int64 + text + bin;
    const WireType type = wireTypeOfEncoding(from.getEnc(i));
    require(type != WireType::None && readers == (type == WireType::Nil ? 0 : 1));

    const std::uint16_t tag = from.getTag(i);
    switch (type) {
    case WireType::None: break;
    case WireType::Nil: to->addValueNil(tag); break;
    case WireType::I8: to->addValueInt8(tag, int8Value); break;
    case WireType::U8: to->addValueUint8(tag, uint8Value); break;
    case WireType::U16: to->addValueUint16(tag, uint16Value); break;
    case WireType::I32: to->addValueInt32(tag, int32Value); break;
    case WireType::U32: to->addValueUint32(tag, uint32Value); break;
    case WireType::I64: to->addValueInt64(tag, int64Value); break;
    case WireType::Str: require(to->addValueString(tag, textValue)); break;
    case WireType::Bin: require(to->addValueBin16(tag, binValue)); break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const ByteArray input(data, data + size);
    const HostLinkValueMessage parsed(input);
    HostLinkValueMessage copy(parsed.id());
    for (int i = 0; i < parsed.size(); ++i) {
        copyValue(parsed, i, &copy);
    }
    require(copy.serialize() == parsed.serialize());
    if (size >= 2) {
        require(copy.serialize().size() <= size
                && std::equal(copy.serialize().begin(), copy.serialize().end(), input.begin()));
    }
    bool beyond = true;
    require(parsed.getEnc(parsed.size(), &beyond) == 0 && !beyond);
    require(HostLinkPrinter::printMessage(input).find('\n') == std::string::npos);
    return 0;
}
