// Any messages of a host while a file is pushed to it, or none is.

#include "modules/hostlink/DataTransfer.h"

#include <QTemporaryFile>

#include "HandlerFuzz.h"
#include "platform/sdk/CMNode.h"
#include "platform/sdk/Paths.h"

using Parameters = VornHostLinkDataTransferParameters;
using Status = VornHostLinkDataTransferStatus;

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    HandlerFuzz::initialize(argc, argv);
    return 0;
}

/// The file that is pushed: 4 chunks of 128 bytes and a short one.
static const QString& fileName()
{
    static QTemporaryFile file;
    if (!file.isOpen()) {
        require(file.open());
        file.write(QByteArray(4 * 128 + 5, 'x'));
        file.flush();
    }
    static const QString name = file.fileName();
    return name;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    HandlerFuzz fuzz;
    auto* const transfer = new DataTransfer(&fuzz.worker, &fuzz.transport); // the worker's
    if (size > 0 && data[0] % 4 != 0) {
        const Parameters params = Parameters()
                                      .setAction(Parameters::Start)
                                      .setFileName(fileName())
                                      .setChunkSize(128)
                                      .setCrc(data[0] & 1);
        transfer->on_hostlinkDataTransfer_activated(CMSetDataRequest(QVariant(QVariantHash(params)), {}));
        if (data[0] % 4 != 1) {
            HandlerFuzz::runEvents(); // the first chunk
        }
    }
    FuzzMessages messages(data + (size > 0), size - (size > 0));
    for (ByteArray message; messages.next(&message);) {
        const MessageId id = HostLinkMessage::messageId(message);
        require(transfer->handleMessage(id, message) == (id == MSG_DataTransferResponse));
        const Status status = VornHash(fuzz.worker.getValue(VornHostLinkDataTransferStatusPath()).toHash());
        require(status.bytesSent() <= 4 * 128 + 5);
        require(!status.active() || !status.contains(Status::Error()));
    }
    transfer->shutdown();
    HandlerFuzz::runEvents();
    return 0;
}
