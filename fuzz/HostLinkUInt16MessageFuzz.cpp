#include <algorithm>

#include "FuzzInput.h"
#include "platform/hostlink/HostLinkPrinter.h"
#include "platform/hostlink/HostLinkUInt16Message.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const ByteArray input(data, data + size);
    const HostLinkUInt16Message parsed(input);
    HostLinkUInt16Message copy(parsed.id());
    for (int i = 0; i < parsed.size(); ++i) {
        bool ok = false;
        copy.addValue(parsed.get(i, &ok));
        require(ok);
    }
    require(copy.serialize() == parsed.serialize());
    if (size >= 2) {
        require(copy.serialize().size() == size / 2 * 2
                && std::equal(copy.serialize().begin(), copy.serialize().end(), input.begin()));
    }
    bool beyond = true;
    require(parsed.get(parsed.size(), &beyond) == 0 && !beyond);
    require(HostLinkPrinter::printMessage(input).find('\n') == std::string::npos);
    return 0;
}
