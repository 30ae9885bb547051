// Any messages of a module to a host that takes files and acts for the tunnel's clients.

#include <stdlib.h>

#include <algorithm>
#include <filesystem>

#include "FuzzInput.h"
#include "host/FileReceiver.h"
#include "host/TunnelHost.h"
#include "platform/hostlink/HostLinkMessage.h"

namespace
{

const std::string& directory()
{
    static const std::string path = [] {
        char pattern[] = "/tmp/channels-fuzz-XXXXXX";
        const std::string root = mkdtemp(pattern);
        std::filesystem::create_directory(root + "/files");
        return root;
    }();
    return path;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FileReceiver files(directory() + "/files", [](const FileReceiver::Report&) {});
    TunnelHost* echo = nullptr;
    TunnelHost tunnel({[&](TunnelHost::Id id, const ByteArray& bytes) { echo->write(id, bytes); },
                       [](TunnelHost::Id) {}, [](TunnelHost::Id, const std::string&) {}});
    echo = &tunnel;
    HostLinkTime now{};
    while (size >= 2) {
        const std::size_t length = std::min<std::size_t>(data[0] << 8 | data[1], size - 2);
        const ByteArray message(data + 2, data + 2 + length);
        data += 2 + length;
        size -= 2 + length;
        const MessageId id = HostLinkMessage::messageId(message);
        require(files.take(message, now) == (id == MSG_DataTransfer));
        require(tunnel.take(message, now) == (id == MSG_TcpTunnel || id == MSG_TcpTunnelReply));
        for (HostChannel* channel : {static_cast<HostChannel*>(&files), static_cast<HostChannel*>(&tunnel)}) {
            std::size_t sent = 0;
            while (channel->next(now)) {
                require(++sent <= 256);
            }
            require(channel->deadline() > now);
        }
        now = std::min(now + std::chrono::milliseconds(5), std::max(tunnel.deadline(), now));
    }
    // Nothing outside the directory, whatever the names were.
    require(std::distance(std::filesystem::directory_iterator(directory()), {}) == 1);
    return 0;
}
