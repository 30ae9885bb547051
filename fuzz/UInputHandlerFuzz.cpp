// Any messages of a host to the keyboard.

#include "modules/hostlink/UInputHandler.h"

#include "HandlerFuzz.h"
#include "platform/hostlink/HostLinkValueMessage.h"

namespace
{

class CountingKernel : public UInputSystem
{
public:
    int open(const char*, int) override { return 3; }
    int ioctl(int, unsigned long, int) override { return 0; }
    std::ptrdiff_t write(int, const void*, std::size_t size) override
    {
        ++writes;
        return static_cast<std::ptrdiff_t>(size);
    }
    int close(int) override { return 0; }

    int writes = 0;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    HandlerFuzz::initialize(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    CountingKernel kernel;
    UInputHandler handler(nullptr, kernel);
    FuzzMessages messages(data, size);
    for (ByteArray message; messages.next(&message);) {
        kernel.writes = 0;
        const MessageId id = HostLinkMessage::messageId(message);
        require(handler.handleMessage(id, message) == (id == MSG_InputEvent));
        const int keys = id == MSG_InputEvent ? HostLinkValueMessage(message).size() : 0;
        require(kernel.writes == (keys > 0 ? keys + 1 : 0));
    }
    return 0;
}
