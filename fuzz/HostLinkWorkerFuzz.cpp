// Any messages of a host to a whole worker: its intake, all its handlers, its proxies. The lights' handler is
// asked too, and takes nothing.

#include "modules/hostlink/HostLinkWorker.h"

#include "HandlerFuzz.h"
#include "modules/hostlink/LedApi.h"
#include "platform/hostlink/HostLinkPhysicalLayer.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    HandlerFuzz::initialize(argc, argv);
    registerSdkMetaTypes();
    HostLinkPhysicalLayer::registerType("i2c", [](const HostLinkPhysicalLayer::Properties&) {
        return MemoryLine::makeEnd(std::make_shared<MemoryLine>(), 0);
    });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // One for all inputs: a worker's transport is never released.
    static auto& worker = *new CMHostLinkWorker({});
    static auto& outside = *new HandlerFuzz;
    static auto& lights = *new LedApi(&outside.worker, &outside.transport);
    FuzzMessages messages(data, size);
    for (ByteArray message; messages.next(&message);) {
        const QByteArray bytes(reinterpret_cast<const char*>(message.data()), int(message.size()));
        require(QMetaObject::invokeMethod(&worker, "on_message_received", Q_ARG(QByteArray, bytes)));
        require(!lights.handleMessage(HostLinkMessage::messageId(message), message));
    }
    HandlerFuzz::runEvents();
    return 0;
}
